// The session that the launcher would find, and the sources of its fields.

#include "mpirun-info/report.h"
#include "mpirun-info/request.h"
#include "mpirun-info/restartfiles.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "common/env/zorvenv.h"

#include <QFileInfo>

namespace {

using FileState = UserData::FileState;
using Source = UserData::Source;

// Makes the path of the installation's session file accessible.
struct ReportedSession : BackendUserData
{
    using BackendUserData::getGlobalFile;
};

struct Field
{
    UserData::Field field;
    const char* key;
    const char* setting;
};
constexpr Field fields[] = {
    {UserData::Hosts, "hosts", "HOST"},
    {UserData::Port, "port", "PORT"},
    {UserData::Session, "session", "SESSION"},
    {UserData::Cookie, "cookiePresent", "SESSION_COOKIE"},
    {UserData::CookieUse, "cookieUsed", "NO_SESSION_COOKIE"},
    {UserData::SharedDirectory, "sharedDirectory", "SHARED_DIRECTORY"},
    {UserData::Tarball, "tarball", "TARBALL"},
    {UserData::SessionFileName, "sessionFile", "SESSION_FILE"},
};

// In the order of UserData::Source.
constexpr const char* sourceNames[] = {"default",      "global file", "environment",
                                       "session file", "option",      "derived"};
// In the order of UserData::FileState.
constexpr const char* stateNames[] = {
    "not tried",
    "read",
    "missing",
    "unreadable",
    "not a regular file",
    "too large",
    "not well-formed",
    "no session element",
    "port is not a number",
    "session is not a number",
};

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

// Leaves out the cookie, and the tarball's default name, which holds the cookie's hash.
QJsonValue valueOf(const BackendUserData& session, UserData::Field field)
{
    QString text;
    switch (field) {
    case UserData::Hosts:
        return QJsonArray::fromStringList(session.getHostNamesAndAddresses());
    case UserData::Port:
        return session.getPort() == 0 ? QJsonValue() : QJsonValue(numberGivenAsPort(session));
    case UserData::Session:
        return session.getSession() == -1 ? QJsonValue() : QJsonValue(session.getSession());
    case UserData::Cookie:
        return !session.sessionCookie().isEmpty();
    case UserData::CookieUse:
        return session.getUseSessionCookies();
    case UserData::SharedDirectory:
        text = session.getSharedDirectory();
        break;
    case UserData::Tarball:
        text =
            session.source(field) == Source::Default ? QString() : session.tarballFileName(false);
        break;
    case UserData::SessionFileName:
        text = session.sessionFileName();
        break;
    case UserData::FieldCount:
        break;
    }
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

void describeField(Report* report, const BackendUserData& session, const Field& field)
{
    const QJsonValue value = valueOf(session, field.field);
    report->add(field.key,
                objectOf({{"value", value}, {"source", nameOf(session.source(field.field))}}));
}

// Reports a setting that has no effect.
void warnOfUnusedSetting(Report* report, const BackendUserData& session, const Field& field)
{
    const QString variable = winningVariable(field.setting);
    const char* const value = ZorvEnv::uncachedValue(field.setting);
    const Source source = session.source(field.field);
    if (!value || *value == '\0' || source == Source::Environment) {
        return;
    }
    const bool isNumber = field.field == UserData::Port || field.field == UserData::Session;
    if (isNumber && !BackendUserData::numberFrom(QString::fromLocal8Bit(value))) {
        report->find(Finding::SettingNotANumber, "%1 is not used: '%2' is not a number", variable,
                     QString::fromLocal8Bit(value));
    } else if (field.field != UserData::CookieUse) {
        report->find(Finding::SettingOverridden, "%1 is not used: the value comes from the %2",
                     variable, nameOf(source));
    }
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
                     "the port is %1 (%2), but the front end of session %3 (%4) "
                     "listens at %5",
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
    for (const Field& field : fields) {
        describeField(report, session, field);
        warnOfUnusedSetting(report, session, field);
    }
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
