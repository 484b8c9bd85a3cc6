// Writes a session record as a session file. A target of its own, as it needs the XML
// library.

#include "backend/backenduserdata.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/fileio.h"

#include <QDomDocument>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

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

// A full disk or quota may show only when the data is forced out. Some file
// systems cannot do that (EINVAL), and then there is nothing to wait for.
bool forceOut(int fd)
{
    return uninterrupted([&] { return fsync(fd); }) == 0 || errno == EINVAL;
}

// Nobody can read the file before it is complete.
bool writeNewFile(const QString& fileName, const QByteArray& content)
{
    const int fd = sc_open(QFile::encodeName(fileName).constData(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IWUSR);
    if (fd == -1) {
        return false;
    }
    // The umask may have taken the owner's write bit.
    bool ok = fchmod(fd, S_IWUSR) == 0 && writeAll(fd, content) && forceOut(fd) &&
              fchmod(fd, S_IRUSR | S_IWUSR) == 0;
    if (sc_close(fd) == -1 && errno != EINTR) {
        ok = false;
    }
    return ok;
}

} // namespace

QString BackendUserData::toXml() const
{
    QDomDocument document;
    QDomElement element = document.createElement(TAGNAME);
    if (!hostNamesAndAddresses.isEmpty()) {
        element.setAttribute(XML_HOST, hostNamesAndAddresses.join(QLatin1Char(',')));
    }
    if (port != 0) {
        element.setAttribute(XML_PORT, port);
    }
    if (!mSessionCookie.isEmpty()) {
        element.setAttribute(XML_SESSION_COOKIE, mSessionCookie);
    }
    element.setAttribute(XML_SESSION, mSession);
    document.appendChild(element);
    return document.toString(1);
}

bool BackendUserData::save(const QString& fileName)
{
    mSessionFileName = fileName.isNull() ? getSessionFile(mSession, true) : fileName;
    const QString temporary = temporaryName(mSessionFileName);
    if (writeNewFile(temporary, toXml().toUtf8()) && sc_rename(temporary, mSessionFileName) == 0) {
        return true;
    }
    // What is there now would be taken for this record.
    sc_unlink(QFile::encodeName(temporary).constData());
    sc_unlink(QFile::encodeName(mSessionFileName).constData());
    return false;
}
