// How a process that belongs to a session finds out which one it is.

#include "backend/backenduserdata.h"

#include "backend/backendoptions.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/pathexpansion.h"
#include "common/compatibility_simple/processhelpers.h"
#include "common/env/zorvenv.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int portOfSessionZero = 4241;
constexpr int highestNumberedSession = 21;

bool writeAll(int fd, const QByteArray& bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count =
            sc_write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (count >= 0) {
            written += count;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// A full disk or quota may show only when the data is forced out. Some file
// systems cannot do that (EINVAL), and then there is nothing to wait for.
bool forceOut(int fd)
{
    int result;
    do {
        result = fsync(fd);
    } while (result == -1 && errno == EINTR);
    return result == 0 || errno == EINVAL;
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

bool BackendUserData::load(const BackendOptions& options)
{
    // The installation's own session comes first, so that all else overrides it.
    UserData::load(getGlobalFile(), QString());

    // Which session file is to be read: what the environment says, then what the
    // options say, then the usual place for the host and session known so far.
    mSessionFileName = envPath("SESSION_FILE");
    const QString sessionEnv = envString("SESSION");
    const QString hostEnv = envString("HOST");
    if (!hostEnv.isEmpty()) {
        setHosts(hostEnv);
    }
    setSession(sessionEnv);
    if (!options.frontendHostNamesAndAddresses().isEmpty()) {
        setHosts(options.frontendHostNamesAndAddresses());
    }
    if (!options.sessionFileName().isEmpty()) {
        mSessionFileName = options.sessionFileName();
    }
    if (!options.getSharedDirectory().isEmpty()) {
        setSharedDirectoryFrom(options.getSharedDirectory());
    }
    if (options.session() != 0) {
        mSession = options.session();
    }
    if (mSessionFileName.isEmpty()) {
        mSessionFileName = getSessionFile(mSession, false);
    }

    // The environment, again where options had their say above.
    const QString portEnv = envString("PORT");
    const QString cookieEnv = envString("SESSION_COOKIE");
    if (!hostEnv.isEmpty()) {
        setHosts(hostEnv);
    }
    setSession(sessionEnv);
    if (!cookieEnv.isEmpty()) {
        mSessionCookie = cookieEnv;
    }
    bool portParses = false;
    const int portNumber = portEnv.toInt(&portParses);
    if (portParses) {
        port = static_cast<quint32>(portNumber);
        mExplicitPort = true;
    }
    const QString tarballEnv = envPath("TARBALL");
    if (!tarballEnv.isEmpty()) {
        mTarballFileName = tarballEnv;
    }
    mUseSessionCookies = !envFlag("NO_SESSION_COOKIE");

    // The session file.
    UserData::load(mSessionFileName, QString());

    // The options.
    if (!options.frontendHostNamesAndAddresses().isNull()) {
        setHosts(options.frontendHostNamesAndAddresses());
    }
    if (options.port() != 0) {
        port = static_cast<quint32>(options.port());
        mExplicitPort = true;
    }
    if (!options.sessionCookie().isNull()) {
        mSessionCookie = options.sessionCookie();
    }
    if (options.session() != 0) {
        mSession = options.session();
    }
    if (options.isNoSessionCookie()) {
        mUseSessionCookies = false;
    }
    if (!options.tarballFileName().isNull()) {
        mTarballFileName = options.tarballFileName();
    }

    // What follows from the rest.
    completePortAndSession();
    if (mSharedDirectory.isEmpty() &&
        QFileInfo(mSessionFileName).fileName() == QLatin1String("session")) {
        mSharedDirectory = mSessionFileName;
    }
    return isValid();
}

void BackendUserData::setHosts(const QString& commaSeparated)
{
    hostNamesAndAddresses = commaSeparated.split(QLatin1Char(','));
}

void BackendUserData::setSession(const QString& number)
{
    bool parses = false;
    const int session = number.toInt(&parses);
    if (parses) {
        mSession = session;
    }
}

void BackendUserData::setSharedDirectoryFrom(const QString& directory)
{
    const QString expanded = expandVars(directory);
    const QString canonical = QFileInfo(expanded).canonicalFilePath();
    mSharedDirectory = canonical.isEmpty() ? expanded : canonical;
}

void BackendUserData::completePortAndSession()
{
    if (mSession == -1) {
        if (port > portOfSessionZero && port <= portOfSessionZero + highestNumberedSession) {
            mSession = static_cast<int>(port) - portOfSessionZero;
        }
    } else if (port == 0) {
        port = static_cast<quint32>(mSession) + portOfSessionZero;
    }
}

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
