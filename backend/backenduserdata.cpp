#include "backend/backenduserdata.h"

#include "backend/backendoptions.h"

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
    // Each source overrides those before it.
    UserData::load(getGlobalFile(), QString(), Source::GlobalFile);
    chooseSessionFile(options);
    takeEnvironment();
    UserData::load(mSessionFileName, QString(), Source::SessionFile);
    takeOptions(options);
    complete();
    return isValid();
}

void BackendUserData::chooseSessionFile(const BackendOptions& options)
{
    setSessionFileName(envPath("SESSION_FILE"), Source::Environment);
    takeHostAndSessionOfEnvironment();
    if (!options.frontendHostNamesAndAddresses().isEmpty()) {
        setHosts(options.frontendHostNamesAndAddresses(), Source::Option);
    }
    if (!options.sessionFileName().isEmpty()) {
        setSessionFileName(options.sessionFileName(), Source::Option);
    }
    if (options.session() != 0) {
        setSession(options.session(), Source::Option);
    }
    if (!options.getSharedDirectory().isEmpty()) {
        const bool isOption = options.isSharedDirectoryOption();
        setSharedDirectoryFrom(options.getSharedDirectory(),
                               isOption ? Source::Option : Source::Environment);
    }
    if (mSessionFileName.isEmpty()) {
        setSessionFileName(getSessionFile(mSession, false), Source::Derived);
    }
}

void BackendUserData::takeHostAndSessionOfEnvironment()
{
    const QString hostEnv = envString("HOST");
    const std::optional<int> sessionEnv = numberFrom(envString("SESSION"));
    if (!hostEnv.isEmpty()) {
        setHosts(hostEnv, Source::Environment);
    }
    if (sessionEnv) {
        setSession(*sessionEnv, Source::Environment);
    }
}

void BackendUserData::takeEnvironment()
{
    takeHostAndSessionOfEnvironment();
    const std::optional<int> portEnv = numberFrom(envString("PORT"));
    const QString cookieEnv = envString("SESSION_COOKIE");
    const QString tarballEnv = envPath("TARBALL");
    if (!cookieEnv.isEmpty()) {
        setCookie(cookieEnv, Source::Environment);
    }
    if (portEnv) {
        setExplicitPort(*portEnv, Source::Environment);
    }
    if (!tarballEnv.isEmpty()) {
        setTarball(tarballEnv, Source::Environment);
    }
    mUseSessionCookies = true;
    if (envFlag("NO_SESSION_COOKIE")) {
        doNotUseCookies(Source::Environment);
    }
}

void BackendUserData::takeOptions(const BackendOptions& options)
{
    if (!options.frontendHostNamesAndAddresses().isNull()) {
        setHosts(options.frontendHostNamesAndAddresses(), Source::Option);
    }
    if (options.port() != 0) {
        setExplicitPort(options.port(), Source::Option);
    }
    if (!options.sessionCookie().isNull()) {
        setCookie(options.sessionCookie(), Source::Option);
    }
    if (options.session() != 0) {
        setSession(options.session(), Source::Option);
    }
    if (options.isNoSessionCookie()) {
        doNotUseCookies(Source::Option);
    }
    if (!options.tarballFileName().isNull()) {
        setTarball(options.tarballFileName(), Source::Option);
    }
}

void BackendUserData::setHosts(const QString& commaSeparated, Source source)
{
    hostNamesAndAddresses = commaSeparated.split(QLatin1Char(','));
    setSource(Hosts, source);
}

void BackendUserData::setExplicitPort(int number, Source source)
{
    port = static_cast<quint32>(number);
    mExplicitPort = true;
    setSource(Port, source);
}

void BackendUserData::setSession(int number, Source source)
{
    mSession = number;
    setSource(Session, source);
}

void BackendUserData::setCookie(const QString& cookie, Source source)
{
    mSessionCookie = cookie;
    setSource(Cookie, source);
}

void BackendUserData::doNotUseCookies(Source source)
{
    mUseSessionCookies = false;
    setSource(CookieUse, source);
}

void BackendUserData::setTarball(const QString& fileName, Source source)
{
    mTarballFileName = fileName;
    setSource(Tarball, source);
}

void BackendUserData::setSessionFileName(const QString& fileName, Source source)
{
    mSessionFileName = fileName;
    setSource(SessionFileName, source);
}

void BackendUserData::setSharedDirectoryFrom(const QString& directory, Source source)
{
    const QString expanded = expandVars(directory);
    const QString canonical = QFileInfo(expanded).canonicalFilePath();
    setSharedDirectory(canonical.isEmpty() ? expanded : canonical);
    setSource(SharedDirectory, source);
}

void BackendUserData::complete()
{
    if (mSession == -1) {
        if (port > portOfSessionZero && port <= portOfSessionZero + highestNumberedSession) {
            setSession(static_cast<int>(port) - portOfSessionZero, Source::Derived);
        }
    } else if (port == 0) {
        port = portOfSession(mSession);
        setSource(Port, Source::Derived);
    }
    if (mSharedDirectory.isEmpty() &&
        QFileInfo(mSessionFileName).fileName() == QLatin1String("session")) {
        setSharedDirectory(mSessionFileName);
        setSource(SharedDirectory, Source::Derived);
    }
}
