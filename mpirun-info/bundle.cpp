#include "mpirun-info/bundle.h"

#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"

#include <QFile>

#include <cstdio>
#include <ctime>

namespace {

constexpr qsizetype blockSize = 512;
constexpr qsizetype longestLogEnd = 65536;
const QByteArray notRead = QByteArrayLiteral("It cannot be read.\n");

// Writes a number or text into the field of a header.
void put(QByteArray* header, qsizetype offset, const QByteArray& text)
{
    header->replace(offset, text.size(), text);
}

QByteArray octal(qint64 number, int digits)
{
    return QByteArray::number(number, 8).rightJustified(digits, '0');
}

// One file of an archive, see the tar(5) of FreeBSD or pax(1).
QByteArray archived(const QByteArray& name, const QByteArray& content)
{
    QByteArray header(blockSize, '\0');
    put(&header, 0, "zorv-mpirun-info/" + name);
    put(&header, 100, octal(0600, 7));
    put(&header, 108, octal(0, 7));
    put(&header, 116, octal(0, 7));
    put(&header, 124, octal(content.size(), 11));
    put(&header, 136, octal(time(nullptr), 11));
    put(&header, 156, "0");
    put(&header, 257, QByteArray("ustar\00000", 8));
    // The checksum is computed with blanks in its own field.
    put(&header, 148, QByteArray(8, ' '));
    qint64 sum = 0;
    for (const char c : std::as_const(header)) {
        sum += static_cast<unsigned char>(c);
    }
    put(&header, 148, octal(sum, 6) + QByteArray("\0 ", 2));
    const qsizetype padding = (blockSize - content.size() % blockSize) % blockSize;
    return header + content + QByteArray(padding, '\0');
}

// The fields of the session file. The file itself contains the secret, and a malformed one
// may contain it anywhere.
QJsonValue describeSessionFile(const Request& request)
{
    BackendUserData session;
    static_cast<void>(findSession(request, &session));
    UserData file;
    const bool isRead = file.load(session.sessionFileName());
    return filled("file: %1\nreadable: %2\nhost: %3\nport: %4\nsession: %5\ncookie: %6\n",
                  session.sessionFileName(), QLatin1String(isRead ? "yes" : "no"),
                  file.getHostNamesAndAddresses().join(QLatin1Char(',')), file.getPort(),
                  file.getSession(),
                  QLatin1String(file.sessionCookie().isEmpty() ? "none" : "(hidden)"));
}

QJsonValue endOfLog()
{
    QFile log(launcherLogFileName());
    if (log.fileName().isEmpty() || !log.open(QIODevice::ReadOnly)) {
        return QStringLiteral("There is no log.\n");
    }
    log.seek(qMax<qint64>(log.size() - longestLogEnd, 0));
    return QString::fromLocal8Bit(log.read(longestLogEnd));
}

QByteArray answerOf(Probe* probe)
{
    return probe->isAnswered() ? probe->answer().toString().toLocal8Bit() : notRead;
}

} // namespace

BundledFiles::BundledFiles(const Request& request)
    : session([&request] { return describeSessionFile(request); })
    , log(endOfLog)
{
}

bool writeBundle(const QString& fileName, const Report& report, BundledFiles* files)
{
    const QByteArray session = files ? answerOf(&files->session) : notRead;
    const QByteArray log = files ? answerOf(&files->log) : notRead;
    const QByteArray archive =
        archived("report.txt", report.toText()) + archived("report.json", report.toJson()) +
        archived("settings.txt",
                 report.toText({QStringLiteral("settings"), QStringLiteral("variables")})) +
        archived("versions.txt",
                 report.toText({QStringLiteral("version"), QStringLiteral("system"),
                                QStringLiteral("libraries"), QStringLiteral("mpi")})) +
        archived("session.txt", session) + archived("log.txt", log) +
        QByteArray(2 * blockSize, '\0');
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered,
                   QFile::ReadOwner | QFile::WriteOwner)) {
        perror(qPrintable(fileName));
        return false;
    }
    const bool isWritten = file.write(archive) == archive.size();
    file.close();
    if (!isWritten || file.error() != QFile::NoError) {
        perror(qPrintable(fileName));
        file.remove();
        return false;
    }
    return true;
}
