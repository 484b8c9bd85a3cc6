#include "common/compatibility_simple/process/executable.h"

#include "common/compatibility_simple/files/obstacle.h"
#include "common/compatibility_simple/files/read.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

// The kernel's limit for scripts whose interpreter is a script.
constexpr int deepestNesting = 4;
// The headers of a binary are in its first bytes. The kernel reads 256 bytes of the first
// line of a script.
constexpr qsizetype headerSize = 4096;
constexpr qsizetype longestLine = 256;

using Fault = ProgramFault;

Result<QByteArray> readHeader(const QString& path)
{
    return readRegularFile(path, headerSize);
}

// The value of a key, such as "magic 7f454c46", in the description of a handler; null for
// none.
QByteArray valueIn(const QByteArray& description, const QByteArray& key)
{
    const qsizetype start = description.indexOf('\n' + key);
    return start == -1 ? QByteArray() : description.mid(start + 1 + key.size()).split('\n').first();
}

QByteArray masked(QByteArray bytes, const QByteArray& mask)
{
    for (qsizetype i = 0; i < std::min(bytes.size(), mask.size()); ++i) {
        bytes[i] = char(bytes[i] & mask[i]);
    }
    return bytes;
}

bool matches(const QByteArray& header, const QByteArray& description)
{
    const QByteArray magic = QByteArray::fromHex(valueIn(description, "magic "));
    const QByteArray mask = QByteArray::fromHex(valueIn(description, "mask "));
    const QByteArray start = header.mid(valueIn(description, "offset ").toInt(), magic.size());
    return !magic.isEmpty() && masked(start, mask) == masked(magic, mask);
}

// Whether binfmt_misc has a handler for a file, see the kernel's
// Documentation/admin-guide/binfmt-misc.rst. Handlers for file name extensions do not
// count: the helper's name has none.
bool isHandled(const QByteArray& header)
{
    const QDir handlers(QStringLiteral("/proc/sys/fs/binfmt_misc"));
    const QStringList names = handlers.entryList(QDir::Files);
    return std::any_of(names.begin(), names.end(), [&](const QString& name) {
        const QByteArray description = readHeader(handlers.filePath(name)).value_or(QByteArray());
        return description.startsWith("enabled\n") && matches(header, description);
    });
}

bool isBinary(const QByteArray& header)
{
    return header.size() >= qsizetype(sizeof(Elf32_Ehdr)) &&
           memcmp(header.constData(), ELFMAG, SELFMAG) == 0;
}

template <typename T> T at(const QByteArray& bytes, qsizetype offset)
{
    T value = {};
    if (offset >= 0 && offset <= bytes.size() - qsizetype(sizeof value)) {
        memcpy(&value, bytes.constData() + offset, sizeof value);
    }
    return value;
}

// The program headers of a binary, as far as they are checked.
struct Segments
{
    bool areOfProgram = false; // false for an object file or a library
    quint64 end = 0;           // offset in the file of the end of the last segment
    QString loader;
};

template <typename Header, typename Segment> Segments segmentsOf(const QByteArray& bytes)
{
    Segments result;
    const auto header = at<Header>(bytes, 0);
    result.areOfProgram = (header.e_type == ET_EXEC || header.e_type == ET_DYN) &&
                          header.e_entry != 0 && header.e_phnum > 0 &&
                          header.e_phentsize == sizeof(Segment);
    for (int i = 0; i < header.e_phnum; ++i) {
        const auto segment = at<Segment>(bytes, qsizetype(header.e_phoff) + i * header.e_phentsize);
        if (segment.p_type == PT_LOAD) {
            result.end = qMax<quint64>(result.end, segment.p_offset + segment.p_filesz);
        } else if (segment.p_type == PT_INTERP) {
            result.loader = QFile::decodeName(bytes.mid(qsizetype(segment.p_offset)).constData());
        }
    }
    return result;
}

Segments segmentsOf(const QByteArray& header)
{
    return header.at(EI_CLASS) == ELFCLASS64 ? segmentsOf<Elf64_Ehdr, Elf64_Phdr>(header)
                                             : segmentsOf<Elf32_Ehdr, Elf32_Phdr>(header);
}

// Includes 32-bit programs of the same family. On systems that do not run them, their
// loader is usually missing.
bool isOwnArchitecture(const QByteArray& header)
{
    static const QByteArray own =
        readHeader(QStringLiteral("/proc/self/exe")).value_or(QByteArray());
    // Unknown without /proc.
    if (own.isEmpty()) {
        return true;
    }
    const auto machine = at<Elf32_Ehdr>(header, 0).e_machine;
    const auto ownMachine = at<Elf32_Ehdr>(own, 0).e_machine;
    return header.at(EI_DATA) == own.at(EI_DATA) &&
           (machine == ownMachine || (ownMachine == EM_X86_64 && machine == EM_386) ||
            (ownMachine == EM_AARCH64 && machine == EM_ARM));
}

ProgramState examine(const QString& path, int nesting);

// Examines the interpreter or loader of a program. Returns its fault as `fault`.
ProgramState through(Fault fault, const char* role, const QString& path, int nesting)
{
    ProgramState state = examine(path, nesting + 1);
    if (state.fault == Fault::None) {
        return state;
    }
    const char* const form = state.fault == Fault::Missing ? "%1 %2 is missing: %3" : "%1 %2: %3";
    return {fault, QString::fromLatin1(form).arg(QLatin1String(role), path, state.cause)};
}

ProgramState examineBinary(const QString& path, const QByteArray& header, int nesting)
{
    if (!isOwnArchitecture(header)) {
        return {Fault::Foreign, QStringLiteral("a program for another kind of processor")};
    }
    const Segments segments = segmentsOf(header);
    if (!segments.areOfProgram) {
        return {Fault::NoProgram, QStringLiteral("a binary file, but not a program")};
    }
    const qint64 size = QFileInfo(path).size();
    if (quint64(size) < segments.end) {
        return {Fault::Truncated,
                QStringLiteral("cut off: %1 of at least %2 bytes").arg(size).arg(segments.end)};
    }
    return segments.loader.isEmpty()
               ? ProgramState()
               : through(Fault::Loader, "its loader", segments.loader, nesting);
}

// The program that env(1) starts. The kernel passes the rest of the line as one argument,
// which env splits only after -S. Null without a program: env then starts the script again
// and again.
QString programOfEnv(const QString& argument)
{
    static const QRegularExpression split(QStringLiteral("^(-[i0v]*S|--split-string[= ])"));
    const QRegularExpressionMatch match = split.match(argument);
    if (!match.hasMatch()) {
        return argument.startsWith(QLatin1Char('-')) || argument.contains(QLatin1Char('='))
                   ? QString()
                   : argument;
    }
    const QStringList words =
        argument.mid(match.capturedLength()).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (qsizetype i = 0; i < words.size(); ++i) {
        const QString& word = words.at(i);
        if (word == QLatin1String("-u") || word == QLatin1String("-C")) {
            ++i;
        } else if (!word.startsWith(QLatin1Char('-')) && !word.contains(QLatin1Char('='))) {
            return word;
        }
    }
    return QString();
}

ProgramState examineEnv(const QString& argument, int nesting)
{
    // Quotes, variables and another PATH are not evaluated.
    static const QRegularExpression notEvaluated(QStringLiteral("[\"'\\\\$#]|PATH="));
    if (argument.contains(notEvaluated)) {
        return ProgramState();
    }
    const QString program = programOfEnv(argument);
    if (program.isEmpty()) {
        return {Fault::Interpreter,
                QStringLiteral("its first line names no interpreter after env")};
    }
    const QString path =
        program.contains(QLatin1Char('/')) ? program : QStandardPaths::findExecutable(program);
    if (!path.isEmpty()) {
        return through(Fault::Interpreter, "its interpreter", path, nesting);
    }
    const char* const form = program.contains(QLatin1Char(' '))
                                 ? "its interpreter '%1' is not on PATH; env needs -S to split it"
                                 : "its interpreter %1 is not on PATH";
    return {Fault::Interpreter, QString::fromLatin1(form).arg(program)};
}

ProgramState examineScript(const QByteArray& header, int nesting)
{
    const QByteArray line = header.mid(2, longestLine - 2).split('\n').first().split('\0').first();
    if (line.endsWith('\r')) {
        return {Fault::CarriageReturn,
                QStringLiteral("its first line ends with a carriage return")};
    }
    const QString text =
        QFile::decodeName(line.trimmed()).replace(QLatin1Char('\t'), QLatin1Char(' '));
    const QString interpreter = text.section(QLatin1Char(' '), 0, 0);
    if (interpreter.isEmpty() || nesting > deepestNesting) {
        return {Fault::Interpreter, QStringLiteral("its first line names no interpreter")};
    }
    const ProgramState state = through(Fault::Interpreter, "its interpreter", interpreter, nesting);
    return state.fault == Fault::None && interpreter.endsWith(QLatin1String("/env"))
               ? examineEnv(text.section(QLatin1Char(' '), 1).trimmed(), nesting)
               : state;
}

ProgramState examineContent(const QByteArray& header, const QString& path, int nesting)
{
    if (header.isEmpty()) {
        return {Fault::Empty, QStringLiteral("an empty file")};
    }
    if (header.startsWith("#!")) {
        return examineScript(header, nesting);
    }
    const ProgramState state =
        isBinary(header)
            ? examineBinary(path, header, nesting)
            : ProgramState{Fault::NoProgram, QStringLiteral("neither a program for this system nor "
                                                            "a script that begins with #!")};
    return state.fault != Fault::None && isHandled(header) ? ProgramState() : state;
}

ProgramState examine(const QString& path, int nesting)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    struct statvfs system;
    if (stat(name.constData(), &status) == -1) {
        return {errno == EACCES ? Fault::Unreachable : Fault::Missing, obstacleOn(path)};
    }
    if (!S_ISREG(status.st_mode)) {
        return {Fault::NoFile, S_ISDIR(status.st_mode) ? QStringLiteral("a directory")
                                                       : QStringLiteral("not a regular file")};
    }
    if (faccessat(AT_FDCWD, name.constData(), X_OK, AT_EACCESS) == -1) {
        if (statvfs(name.constData(), &system) == 0 && (system.f_flag & ST_NOEXEC)) {
            return {Fault::NoExecMount, QStringLiteral("its file system is mounted noexec")};
        }
        return {Fault::NotExecutable, QStringLiteral("you may not execute it")};
    }
    const Result<QByteArray> header = readHeader(path);
    return header ? examineContent(*header, path, nesting) : ProgramState();
}

} // namespace

ProgramState examineProgram(const QString& path)
{
    return examine(path, 0);
}

QString loaderOf(const QString& path)
{
    const QByteArray header = readHeader(path).value_or(QByteArray());
    return isBinary(header) && isOwnArchitecture(header) ? segmentsOf(header).loader : QString();
}

QString describeStartFailure(const QString& path, const QString& systemText)
{
    const ProgramState state = examineProgram(path);
    if (state.fault == Fault::Missing) {
        return systemText;
    }
    const QString cause =
        state.fault == Fault::None ? QString() : state.cause + QStringLiteral("; ");
    return QStringLiteral("%1 (%2zorv-mpirun-info tells more)").arg(systemText, cause);
}
