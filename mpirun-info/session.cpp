// The session that the launcher would find, and the sources of its fields.

#include "mpirun-info/restartfiles.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"

#include <QFileInfo>

namespace {

using FileState = UserData::FileState;
using Source = UserData::Source;

// Makes the path of the installation's session file accessible.
struct ReportedSession : BackendUserData
{
    using BackendUserData::getGlobalFile;
};

// In the order of UserData::Source.
constexpr const char* sourceNames[] = {"default",      "global file", "environment",
                                       "session file", "option",      "derived"};
// In the order of UserData::FileState.
constexpr const char* stateNames[] = {"not tried",
                                      "read",
                                      "missing",
                                      "unreadable",
                                      "not a regular file",
                                      "too large",
                                      "not well-formed",
                                      "no session element",
                                      "port is not a number",
                                      "session is not a number"};

QString nameOf(Source source)
{
    return QString::fromLatin1(sourceNames[static_cast<int>(source)]);
}

QString nameOf(FileState state)
{
    return QString::fromLatin1(stateNames[static_cast<int>(state)]);
}

// The port, or the negative number that was given as one.
qint64 numberGivenAsPort(const BackendUserData& session)
{
    const auto port = static_cast<qint32>(session.getPort());
    return session.source(UserData::Port) == Source::SessionFile ? qint64(session.getPort()) : port;
}

// Reports a setting that has no effect.
void warnOfUnusedSetting(Report* report, const char* setting, UserData::Field field, Source source)
{
    const QString variable = winningVariable(setting);
    const QString value = qEnvironmentVariable(qPrintable(variable));
    if (value.isEmpty() || source == Source::Environment) {
        return;
    }
    const bool isNumber = field == UserData::Port || field == UserData::Session;
    if (isNumber && !BackendUserData::numberFrom(value)) {
        report->find(Finding::SettingNotANumber, "%1 is not used: '%2' is not a number", variable,
                     value);
    } else if (field != UserData::CookieUse) {
        report->find(Finding::SettingOverridden, "%1 is not used: the value comes from the %2",
                     variable, nameOf(source));
    }
}

// Leaves out the cookie, and the tarball's default name, which holds the cookie's hash.
void describeFields(Report* report, const BackendUserData& session)
{
    const auto describe = [&](const char* key, const char* setting, UserData::Field field,
                              const QJsonValue& value) {
        const Source source = session.source(field);
        report->add(key, objectOf({{"value", value}, {"source", nameOf(source)}}));
        warnOfUnusedSetting(report, setting, field, source);
    };
    const bool hasPort = session.getPort() != 0;
    const bool hasSession = session.getSession() != -1;
    const bool hasTarball = session.source(UserData::Tarball) != Source::Default;
    describe("hosts", "HOST", UserData::Hosts,
             QJsonArray::fromStringList(session.getHostNamesAndAddresses()));
    describe("port", "PORT", UserData::Port,
             hasPort ? QJsonValue(numberGivenAsPort(session)) : QJsonValue());
    describe("session", "SESSION", UserData::Session,
             hasSession ? QJsonValue(session.getSession()) : QJsonValue());
    describe("cookiePresent", "SESSION_COOKIE", UserData::Cookie,
             !session.sessionCookie().isEmpty());
    describe("cookieUsed", "NO_SESSION_COOKIE", UserData::CookieUse,
             session.getUseSessionCookies());
    describe("sharedDirectory", "SHARED_DIRECTORY", UserData::SharedDirectory,
             orNull(session.getSharedDirectory()));
    describe("tarball", "TARBALL", UserData::Tarball,
             hasTarball ? orNull(session.tarballFileName(false)) : QJsonValue());
    describe("sessionFile", "SESSION_FILE", UserData::SessionFileName,
             orNull(session.sessionFileName()));
}

// Reads one session file alone, to see its state.
void describeFile(Report* report, const char* key, const QString& fileName, bool expected)
{
    UserData file;
    static_cast<void>(file.load(fileName));
    const QFileInfo info(fileName);
    const bool isDeadLink = file.fileState() == FileState::Missing && info.isSymLink();
    const QString state = isDeadLink ? QStringLiteral("dead link") : nameOf(file.fileState());
    const QString target = info.symLinkTarget();
    report->add(key, objectOf({{"path", fileName}, {"state", state}, {"linksTo", orNull(target)}}));
    const bool isFine = file.fileState() == FileState::Read ||
                        (file.fileState() == FileState::Missing && !isDeadLink && !expected);
    if (!isFine) {
        report->find(Finding::SessionFileUnusable, "%1 (%2)%3", fileName, state,
                     target.isEmpty() ? target : QStringLiteral(", a link to ") + target);
    }
}

void describeValidity(Report* report, const BackendUserData& session)
{
    QString reason;
    if (!session.hasHost()) {
        reason = QStringLiteral("no source names a front end host");
    } else if (!session.hasUsablePort()) {
        reason = filled("%1 is not a port (%2)", numberGivenAsPort(session),
                        nameOf(session.source(UserData::Port)));
    }
    report->add("valid", session.isValid());
    report->add("invalidBecause", session.isValid() ? QJsonValue() : QJsonValue(reason));
    if (!session.isValid()) {
        report->find(Finding::SessionInvalid, reason);
        return;
    }
    if (session.getPort() == 0) {
        report->find(Finding::PortUnknown, QStringLiteral("no source names a port or a session"));
    } else if (session.getSession() > 0 &&
               session.getPort() != BackendUserData::portOfSession(session.getSession())) {
        report->find(Finding::PortOfAnotherSession,
                     "the port is %1 (%2), but the front end of session %3 (%4) listens at %5",
                     session.getPort(), nameOf(session.source(UserData::Port)),
                     session.getSession(), nameOf(session.source(UserData::Session)),
                     BackendUserData::portOfSession(session.getSession()));
    }
}

} // namespace

void describeSession(Report* report, const Request& request)
{
    ReportedSession session;
    static_cast<void>(findSession(request, &session));
    describeFields(report, session);
    report->add("explicitPort", session.isExplicitPort());
    describeValidity(report, session);
    report->add("sessionDirectory", session.getSessionDirectory(false));
    describeFile(report, "globalFileRead", session.getGlobalFile(), false);
    // Without a file at the usual place, other sources may give everything.
    describeFile(report, "sessionFileRead", session.sessionFileName(),
                 session.source(UserData::SessionFileName) != Source::Derived ||
                     !session.isValid());
    describeRestartFiles(report, session);
}
