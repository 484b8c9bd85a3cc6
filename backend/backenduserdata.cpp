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
    // Each source overrides those before it. The options also tell which session file to read;
    // only then, empty host names count as none.
    const QString hosts = options.frontendHostNamesAndAddresses();
    UserData::load(getGlobalFile(), QString(), Source::GlobalFile);
    takeEnvironment();
    takeOptions(options);
    if (!hosts.isEmpty()) {
        setHosts(hosts, Source::Option);
    }
    chooseSessionFile(options);
    UserData::load(mSessionFileName, QString(), Source::SessionFile);
    takeOptions(options);
    if (!hosts.isNull()) {
        setHosts(hosts, Source::Option);
    }
    complete();
    return isValid();
}

void BackendUserData::takeEnvironment()
{
    constexpr Source source = Source::Environment;
    const QString hosts = envString("HOST");
    const std::optional<int> session = numberFrom(envString("SESSION"));
    const std::optional<int> portNumber = numberFrom(envString("PORT"));
    const QString cookie = envString("SESSION_COOKIE");
    const QString tarball = envPath("TARBALL");
    if (!hosts.isEmpty()) {
        setHosts(hosts, source);
    }
    if (session) {
        set(&mSession, *session, Session, source);
    }
    if (portNumber) {
        setExplicitPort(*portNumber, source);
    }
    if (!cookie.isEmpty()) {
        set(&mSessionCookie, cookie, Cookie, source);
    }
    if (!tarball.isEmpty()) {
        set(&mTarballFileName, tarball, Tarball, source);
    }
    mUseSessionCookies = true;
    if (envFlag("NO_SESSION_COOKIE")) {
        set(&mUseSessionCookies, false, CookieUse, source);
    }
    set(&mSessionFileName, envPath("SESSION_FILE"), SessionFileName, source);
}

void BackendUserData::takeOptions(const BackendOptions& options)
{
    constexpr Source source = Source::Option;
    if (options.session() != 0) {
        set(&mSession, options.session(), Session, source);
    }
    if (options.port() != 0) {
        setExplicitPort(options.port(), source);
    }
    if (!options.sessionCookie().isNull()) {
        set(&mSessionCookie, options.sessionCookie(), Cookie, source);
    }
    if (!options.tarballFileName().isNull()) {
        set(&mTarballFileName, options.tarballFileName(), Tarball, source);
    }
    if (options.isNoSessionCookie()) {
        set(&mUseSessionCookies, false, CookieUse, source);
    }
    if (!options.sessionFileName().isEmpty()) {
        set(&mSessionFileName, options.sessionFileName(), SessionFileName, source);
    }
}

void BackendUserData::chooseSessionFile(const BackendOptions& options)
{
    if (!options.getSharedDirectory().isEmpty()) {
        const QString expanded = expandVars(options.getSharedDirectory());
        const QString canonical = QFileInfo(expanded).canonicalFilePath();
        set(&mSharedDirectory, canonical.isEmpty() ? expanded : canonical, SharedDirectory,
            options.isSharedDirectoryOption() ? Source::Option : Source::Environment);
    }
    if (mSessionFileName.isEmpty()) {
        set(&mSessionFileName, getSessionFile(mSession, false), SessionFileName, Source::Derived);
    }
}

void BackendUserData::setHosts(const QString& commaSeparated, Source source)
{
    set(&hostNamesAndAddresses, commaSeparated.split(QLatin1Char(',')), Hosts, source);
}

void BackendUserData::setExplicitPort(int number, Source source)
{
    set(&port, static_cast<quint32>(number), Port, source);
    mExplicitPort = true;
}

void BackendUserData::complete()
{
    if (mSession == -1) {
        if (port > portOfSessionZero && port <= portOfSessionZero + highestNumberedSession) {
            set(&mSession, static_cast<int>(port) - portOfSessionZero, Session, Source::Derived);
        }
    } else if (port == 0) {
        set(&port, portOfSession(mSession), Port, Source::Derived);
    }
    if (mSharedDirectory.isEmpty() &&
        QFileInfo(mSessionFileName).fileName() == QLatin1String("session")) {
        set(&mSharedDirectory, mSessionFileName, SharedDirectory, Source::Derived);
    }
}
