#include "mpirun-info/bundle.h"

#include "mpirun-info/report.h"
#include "mpirun-info/request.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/read.h"

#include <QFile>

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qsizetype blockSize = 512;
constexpr qsizetype longestLogEnd = 65536;

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
    return QStringLiteral("file: %1\nreadable: %2\nhost: %3\nport: %4\nsession: %5\ncookie: %6\n")
        .arg(session.sessionFileName(), isRead ? QStringLiteral("yes") : QStringLiteral("no"),
             file.getHostNamesAndAddresses().join(QLatin1Char(',')))
        .arg(file.getPort())
        .arg(file.getSession())
        .arg(file.sessionCookie().isEmpty() ? QStringLiteral("none") : QStringLiteral("(hidden)"));
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
    return probe->wait() == Probe::Outcome::Answered ? probe->answer().toString().toLocal8Bit()
                                                     : QByteArray("It cannot be read.\n");
}

// False, with errno set, when not all can be written.
bool writeAll(int fd, const QByteArray& bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = uninterrupted([&] {
            return sc_write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        });
        if (count == -1) {
            return false;
        }
        written += count;
    }
    return true;
}

} // namespace

Bundle::Bundle(const Request& request)
    : mFileName(QFile::encodeName(request.bundle))
    , mSession([&request] { return describeSessionFile(request); })
    , mLog(endOfLog)
{
}

bool Bundle::write(const Report& report)
{
    const QByteArray archive =
        archived("report.txt", report.toText()) + archived("report.json", report.toJson()) +
        archived("settings.txt",
                 report.toText({QStringLiteral("settings"), QStringLiteral("variables")})) +
        archived("versions.txt",
                 report.toText({QStringLiteral("version"), QStringLiteral("system"),
                                QStringLiteral("libraries"), QStringLiteral("mpi")})) +
        archived("session.txt", answerOf(&mSession)) + archived("log.txt", answerOf(&mLog)) +
        QByteArray(2 * blockSize, '\0');
    Descriptor fd(uninterrupted([&] {
        return sc_open(mFileName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    }));
    if (!fd.isOpen()) {
        perror(mFileName.constData());
        return false;
    }
    if (!writeAll(fd.get(), archive) || !fd.close()) {
        perror(mFileName.constData());
        sc_unlink(mFileName.constData());
        return false;
    }
    return true;
}
