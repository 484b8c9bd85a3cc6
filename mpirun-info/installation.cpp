// The launcher's installation, its helper, and what the programs are made of.

#include "mpirun-info/probe.h"
#include "mpirun-info/report.h"
#include "mpirun-info/request.h"
#include "mpirun-info/sections.h"

#include "branding/filenames.h"
#include "common/compatibility_simple/process/executable.h"
#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/system/versionstrings.h"
#include "common/installation.h"
#include "common/talvoraglobals.h"
#include "version/hgid.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>

#include <unistd.h>

namespace {

// Shells keep the descriptor of their script at 10 or above.
constexpr rlim_t descriptorsOfShell = 11;

struct FaultFinding
{
    ProgramFault fault;
    Finding finding;
};
constexpr FaultFinding faultFindings[] = {
    {ProgramFault::Missing, Finding::HelperMissing},
    {ProgramFault::Unreachable, Finding::HelperUnreachable},
    {ProgramFault::NoFile, Finding::HelperNoFile},
    {ProgramFault::NotExecutable, Finding::HelperNotExecutable},
    {ProgramFault::NoExecMount, Finding::HelperNoexec},
    {ProgramFault::Empty, Finding::HelperEmpty},
    {ProgramFault::NoProgram, Finding::HelperNoProgram},
    {ProgramFault::Foreign, Finding::HelperForeign},
    {ProgramFault::Truncated, Finding::HelperTruncated},
    {ProgramFault::Interpreter, Finding::HelperInterpreter},
    {ProgramFault::CarriageReturn, Finding::HelperCarriageReturn},
    {ProgramFault::Loader, Finding::HelperLoader},
};

// The libraries that the loader does not find for a binary.
QStringList missingLibraries(const QString& path)
{
    const QString loader = loaderOf(path);
    QStringList missing;
    if (!loader.isEmpty()) {
        // Of the C library of GNU, of musl.
        static const QRegularExpression notFound(
            QStringLiteral("(?:loading shared libraries: |Error loading shared library )([^: ]+)|"
                           "(\\S+) => not found"));
        auto matches = notFound.globalMatch(outputOf(loader, {QStringLiteral("--list"), path}));
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            missing += match.captured(1) + match.captured(2);
        }
    }
    return missing;
}

// What a probe finds out of the helper: the number of its fault and the cause.
QJsonValue lookAtHelper(const QString& path)
{
    const ProgramState state = examineProgram(path);
    const QStringList missing =
        state.fault == ProgramFault::None ? missingLibraries(path) : QStringList();
    return QJsonObject{
        {QStringLiteral("fault"), static_cast<int>(state.fault)},
        {QStringLiteral("cause"), state.cause},
        {QStringLiteral("script"), sc_isScript(path)},
        {QStringLiteral("readable"), access(QFile::encodeName(path).constData(), R_OK) == 0},
        {QStringLiteral("libraries"), missing.join(QStringLiteral(", "))},
    };
}

void findFaultsOfHelper(Report* report, const QString& path, const QJsonValue& seen,
                        rlim_t descriptors)
{
    const auto fault = static_cast<ProgramFault>(seen[QStringLiteral("fault")].toInt());
    for (const FaultFinding& entry : faultFindings) {
        if (entry.fault == fault) {
            report->find(entry.finding,
                         path + QStringLiteral(": ") + seen[QStringLiteral("cause")].toString());
            return;
        }
    }
    const QString libraries = seen[QStringLiteral("libraries")].toString();
    if (!libraries.isEmpty()) {
        report->find(Finding::HelperLibrary, QStringLiteral("%1 needs %2").arg(path, libraries));
    }
    if (!seen[QStringLiteral("readable")].toBool()) {
        report->find(Finding::HelperUnreadable, path);
    }
    if (seen[QStringLiteral("script")].toBool() && descriptors < descriptorsOfShell) {
        report->find(Finding::DescriptorsExhausted,
                     QStringLiteral("%1 is a script, and a shell needs at least %2 descriptors")
                         .arg(path)
                         .arg(descriptorsOfShell));
    }
}

void describeHelper(Report* report, const Request& request, const QString& path)
{
    Probe probe([&] { return lookAtHelper(path); });
    if (probe.wait() != Probe::Outcome::Answered) {
        report->addPath("helper", path, QStringLiteral("no answer"));
        report->find(Finding::LaunchWouldHang, path);
        return;
    }
    const QString cause = probe.answer()[QStringLiteral("cause")].toString();
    report->addPath("helper", path, cause.isEmpty() ? QStringLiteral("present") : cause);
    findFaultsOfHelper(report, path, probe.answer(), request.start.limits[RLIMIT_NOFILE].rlim_cur);
}

void describeDirectory(Report* report, const char* key, const QString& path)
{
    const bool present = QFileInfo(path).isDir();
    report->addPath(key, path, present ? QStringLiteral("present") : QStringLiteral("missing"));
    if (!present) {
        report->find(Finding::DirectoryMissing, path);
    }
}

// The files that the loader has mapped into this program, by their directories.
QMap<QString, QStringList> loadedLibraries()
{
    QMap<QString, QStringList> libraries;
    const QList<QByteArray> lines = systemFile(QStringLiteral("/proc/self/maps")).split('\n');
    for (const QByteArray& line : lines) {
        const qsizetype start = line.indexOf('/');
        const QFileInfo file(QFile::decodeName(line.mid(qMax<qsizetype>(start, 0))));
        if (start != -1 && file.fileName().contains(QLatin1String(".so")) &&
            !libraries[file.path()].contains(file.fileName())) {
            libraries[file.path()] += file.fileName();
        }
    }
    for (QStringList& names : libraries) {
        names.sort();
    }
    return libraries;
}

// The libraries that variables of the loader bring in, see ld.so(8).
QStringList foreignLibraries(const QMap<QString, QStringList>& libraries)
{
    static const QRegularExpression separator(QStringLiteral("[: ;]"));
    QStringList foreign;
    const QStringList places = (qEnvironmentVariable("LD_LIBRARY_PATH") + QLatin1Char(':') +
                                qEnvironmentVariable("LD_PRELOAD"))
                                   .split(separator, Qt::SkipEmptyParts);
    for (const QString& place : places) {
        const QFileInfo info(QFileInfo(place).canonicalFilePath());
        if (info.isDir()) {
            foreign += libraries.value(info.filePath());
        } else if (libraries.value(info.path()).contains(info.fileName())) {
            foreign += info.fileName();
        }
    }
    return foreign;
}

} // namespace

void describeVersion(Report* report, const Request&)
{
    report->beginSection("version");
    report->add("version", sc_version());
    report->add("releaseVersion", sc_releaseVersion());
    report->add("changeset", QString::fromLatin1(HGID));
    report->add("releaseTag", QString::fromLatin1(HGBRANCH));
    report->add("compatibilityKey", sc_versionForCompatibility(0));
    report->add("qt", QString::fromLatin1(qVersion()));
}

void describeInstallation(Report* report, const Request& request)
{
    report->beginSection("installation");
    Probe probe([] {
        chooseInstallationLayout();
        return QJsonValue();
    });
    if (probe.wait() != Probe::Outcome::Answered) {
        report->find(Finding::LaunchWouldHang,
                     QStringLiteral("a directory of the installation of %1")
                         .arg(QFile::decodeName(helperPath())));
        return;
    }
    const InstallationLayout layout = chooseInstallationLayout();
    if (layout == InstallationLayout::Unknown) {
        report->find(Finding::NotLookedAt,
                     QStringLiteral("the installation: this program's file was replaced"));
        return;
    }
    report->add("layout", layout == InstallationLayout::Flat ? QStringLiteral("flat")
                                                             : QStringLiteral("installed"));
    const TalvoraGlobals* const globals = TalvoraGlobals::instance();
    describeDirectory(report, "root", globals->installPath());
    describeDirectory(report, "bin", globals->binPath());
    describeDirectory(report, "lib", globals->libPath());
    describeDirectory(report, "libexec", globals->libexecPath());
    describeHelper(report, request, QDir(globals->binPath()).filePath(FileName::zorvDebugger));
}

void describeLibraries(Report* report, const Request&)
{
    const QMap<QString, QStringList> libraries = loadedLibraries();
    QStringList files;
    QStringList lines;
    for (auto it = libraries.begin(); it != libraries.end(); ++it) {
        for (const QString& name : it.value()) {
            files += it.key() + QLatin1Char('/') + name;
        }
        lines += it.key() + QStringLiteral(": ") + it.value().join(QStringLiteral(", "));
    }
    report->beginSection("libraries");
    report->add("build", files.filter(QStringLiteral("libQt")).isEmpty()
                             ? QStringLiteral("portable")
                             : QStringLiteral("ordinary"));
    report->add("libraryPath", orNull(qEnvironmentVariable("LD_LIBRARY_PATH")));
    report->add("preload", orNull(qEnvironmentVariable("LD_PRELOAD")));
    report->addLines("loaded", QJsonArray::fromStringList(files), lines);
    const QStringList foreign = foreignLibraries(libraries);
    if (!foreign.isEmpty()) {
        report->find(Finding::ForeignLibrary, foreign.join(QStringLiteral(", ")));
    }
}
