// How a process that belongs to a session finds out which one it is.

#include "backend/backenduserdata.h"

#include "backend/backendoptions.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/env/zorvenv.h"

#include <QFileInfo>

namespace {

constexpr int portOfSessionZero = 4241;
constexpr int highestNumberedSession = 21;

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
    // What comes later overrides what came before.
    mSource = Source::GlobalFile;
    UserData::load(getGlobalFile(), QString());
    chooseSessionFile(options);
    takeEnvironment();
    mSource = Source::SessionFile;
    UserData::load(mSessionFileName, QString());
    takeOptions(options);
    complete();
    return isValid();
}

void BackendUserData::chooseSessionFile(const BackendOptions& options)
{
    mSource = Source::Environment;
    setSessionFileName(envPath("SESSION_FILE"));
    takeHostAndSessionOfEnvironment();
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
}

void BackendUserData::takeHostAndSessionOfEnvironment()
{
    mSource = Source::Environment;
    const QString hostEnv = envString("HOST");
    const std::optional<int> sessionEnv = numberFrom(envString("SESSION"));
    if (!hostEnv.isEmpty()) {
        setHosts(hostEnv);
    }
    if (sessionEnv) {
        setSession(*sessionEnv);
    }
}

void BackendUserData::takeEnvironment()
{
    takeHostAndSessionOfEnvironment();
    const std::optional<int> portEnv = numberFrom(envString("PORT"));
    const QString cookieEnv = envString("SESSION_COOKIE");
    const QString tarballEnv = envPath("TARBALL");
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
}

void BackendUserData::takeOptions(const BackendOptions& options)
{
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

void BackendUserData::complete()
{
    mSource = Source::Derived;
    if (mSession == -1) {
        if (port > portOfSessionZero && port <= portOfSessionZero + highestNumberedSession) {
            setSession(static_cast<int>(port) - portOfSessionZero);
        }
    } else if (port == 0) {
        port = portOfSession(mSession);
        took(Port);
    }
    if (mSharedDirectory.isEmpty() &&
        QFileInfo(mSessionFileName).fileName() == QLatin1String("session")) {
        setSharedDirectory(mSessionFileName);
        took(SharedDirectory);
    }
}
