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

std::optional<int> BackendUserData::numberFrom(const QString& setting)
{
    bool parses = false;
    const int number = setting.toInt(&parses);
    return parses ? std::optional<int>(number) : std::nullopt;
}

unsigned int BackendUserData::portOfSession(int session)
{
    return static_cast<quint32>(session) + portOfSessionZero;
}

bool BackendUserData::load(const BackendOptions& options)
{
    // The installation's own session comes first, so that all else overrides it.
    mSource = Source::GlobalFile;
    UserData::load(getGlobalFile(), QString());

    // Which session file is to be read: what the environment says, then what the
    // options say, then the usual place for the host and session known so far.
    mSource = Source::Environment;
    setSessionFileName(envPath("SESSION_FILE"));
    const QString hostEnv = envString("HOST");
    const std::optional<int> sessionEnv = numberFrom(envString("SESSION"));
    if (!hostEnv.isEmpty()) {
        setHosts(hostEnv);
    }
    if (sessionEnv) {
        setSession(*sessionEnv);
    }
    mSource = Source::Option;
    if (!options.frontendHostNamesAndAddresses().isEmpty()) {
        setHosts(options.frontendHostNamesAndAddresses());
    }
    if (!options.sessionFileName().isEmpty()) {
        setSessionFileName(options.sessionFileName());
    }
    if (options.session() != 0) {
        setSession(options.session());
    }
    mSource = options.isSharedDirectoryOption() ? Source::Option : Source::Environment;
    if (!options.getSharedDirectory().isEmpty()) {
        setSharedDirectoryFrom(options.getSharedDirectory());
    }
    mSource = Source::Derived;
    if (mSessionFileName.isEmpty()) {
        setSessionFileName(getSessionFile(mSession, false));
    }

    // The environment, again where options had their say above.
    mSource = Source::Environment;
    const std::optional<int> portEnv = numberFrom(envString("PORT"));
    const QString cookieEnv = envString("SESSION_COOKIE");
    const QString tarballEnv = envPath("TARBALL");
    if (!hostEnv.isEmpty()) {
        setHosts(hostEnv);
    }
    if (sessionEnv) {
        setSession(*sessionEnv);
    }
    if (!cookieEnv.isEmpty()) {
        setCookie(cookieEnv);
    }
    if (portEnv) {
        setExplicitPort(*portEnv);
    }
    if (!tarballEnv.isEmpty()) {
        setTarball(tarballEnv);
    }
    mUseSessionCookies = true;
    if (envFlag("NO_SESSION_COOKIE")) {
        doNotUseCookies();
    }

    mSource = Source::SessionFile;
    UserData::load(mSessionFileName, QString());

    mSource = Source::Option;
    if (!options.frontendHostNamesAndAddresses().isNull()) {
        setHosts(options.frontendHostNamesAndAddresses());
    }
    if (options.port() != 0) {
        setExplicitPort(options.port());
    }
    if (!options.sessionCookie().isNull()) {
        setCookie(options.sessionCookie());
    }
    if (options.session() != 0) {
        setSession(options.session());
    }
    if (options.isNoSessionCookie()) {
        doNotUseCookies();
    }
    if (!options.tarballFileName().isNull()) {
        setTarball(options.tarballFileName());
    }

    mSource = Source::Derived;
    completePortAndSession();
    if (mSharedDirectory.isEmpty() &&
        QFileInfo(mSessionFileName).fileName() == QLatin1String("session")) {
        setSharedDirectory(mSessionFileName);
        took(SharedDirectory);
    }
    return isValid();
}

void BackendUserData::setHosts(const QString& commaSeparated)
{
    hostNamesAndAddresses = commaSeparated.split(QLatin1Char(','));
    took(Hosts);
}

void BackendUserData::setExplicitPort(int number)
{
    port = static_cast<quint32>(number);
    mExplicitPort = true;
    took(Port);
}

void BackendUserData::setSession(int number)
{
    mSession = number;
    took(Session);
}

void BackendUserData::setCookie(const QString& cookie)
{
    mSessionCookie = cookie;
    took(Cookie);
}

void BackendUserData::doNotUseCookies()
{
    mUseSessionCookies = false;
    took(CookieUse);
}

void BackendUserData::setTarball(const QString& fileName)
{
    mTarballFileName = fileName;
    took(Tarball);
}

void BackendUserData::setSessionFileName(const QString& fileName)
{
    mSessionFileName = fileName;
    took(SessionFileName);
}

void BackendUserData::setSharedDirectoryFrom(const QString& directory)
{
    const QString expanded = expandVars(directory);
    const QString canonical = QFileInfo(expanded).canonicalFilePath();
    setSharedDirectory(canonical.isEmpty() ? expanded : canonical);
    took(SharedDirectory);
}

void BackendUserData::completePortAndSession()
{
    if (mSession == -1) {
        if (port > portOfSessionZero && port <= portOfSessionZero + highestNumberedSession) {
            setSession(static_cast<int>(port) - portOfSessionZero);
        }
    } else if (port == 0) {
        port = portOfSession(mSession);
        took(Port);
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
