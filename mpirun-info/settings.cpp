// Every setting of the suite, and the variable that gives it.

#include "mpirun-info/settings.h"

#include "mpirun-info/report.h"

#include "common/env/zorvenv.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcessEnvironment>

#include <algorithm>
#include <cstring>

namespace {

enum class Kind { Text, Path, Switch, Presence, Secret };

struct Setting
{
    const char* name;
    Kind kind;
};

constexpr Setting settings[] = {
    {"ALLOW_NEWLINE_IN_ARGS", Kind::Switch},
    {"BG_TMPDIR", Kind::Path},
    {"DEBUG", Kind::Presence},
    {"DEBUG_SC_KILL", Kind::Text},
    {"DEBUGGER_MULTIPLEXER_CLIENT_LOG", Kind::Path},
    {"DEBUGGER_MULTIPLEXER_DEBUG", Kind::Presence},
    {"DEBUGGER_MULTIPLEXER_LOG", Kind::Path},
    {"DEBUGGER_MULTIPLEXER_VERBOSE", Kind::Presence},
    {"FAKE_BLUEGENE", Kind::Text},
    {"FORCE_BGQ_SUPPORT", Kind::Switch},
    {"FORCE_IP_HOSTNAME", Kind::Switch},
    {"HOST", Kind::Text},
    {"IGNORE_STACK_LIMIT", Kind::Switch},
    {"LOCALHOST", Kind::Text},
    {"LOCALHOST_IPV6", Kind::Switch},
    {"LOGS", Kind::Path},
    {"MANUAL_LAUNCH", Kind::Switch},
    {"MPIRUN_LOG", Kind::Path},
    {"NETWORK_INTERFACES", Kind::Text},
    {"NO_SESSION_COOKIE", Kind::Switch},
    {"PORT", Kind::Text},
    {"RELEASE_VERSION", Kind::Text},
    {"SESSION", Kind::Text},
    {"SESSION_COOKIE", Kind::Secret},
    {"SESSION_FILE", Kind::Path},
    {"SESSION_PATH", Kind::Path},
    {"SHARED_DIRECTORY", Kind::Text},
    {"TARBALL", Kind::Path},
    {"VERSION", Kind::Text},
};

// Those that are read by this one name.
constexpr const char* plainVariables[] = {
    "BGQDRV",  "BG_NODE_TYPE", "HOME", "HOSTNAME",
    "LOGNAME", "TMPDIR",       "USER", "TALVORA_OLD_STACK_LIMIT"};

QJsonValue valueOf(Kind kind, const char* value)
{
    switch (kind) {
    case Kind::Path:
        return ZorvEnv::PathKind::convert(value);
    case Kind::Switch:
        return ZorvEnv::readsOn(value);
    case Kind::Presence:
        return true;
    case Kind::Secret:
        return *value != '\0';
    case Kind::Text:
        break;
    }
    return ZorvEnv::TextKind::convert(value);
}

QString textOf(Kind kind, const char* value)
{
    QString text = QString::fromLocal8Bit(value);
    switch (kind) {
    case Kind::Secret:
        return text.isEmpty() ? text : QStringLiteral("(hidden)");
    case Kind::Switch:
        return QStringLiteral("%1 (%2)").arg(text, ZorvEnv::readsOn(value) ? QStringLiteral("on")
                                                                           : QStringLiteral("off"));
    case Kind::Presence:
    case Kind::Path:
    case Kind::Text:
        break;
    }
    return text;
}

void describeSetting(Report* report, const Setting& setting)
{
    QString winner;
    const char* winning = nullptr;
    QJsonArray hidden;
    for (int prefix = 0; prefix < ZorvEnv::PrefixCount; ++prefix) {
        const char* const value = ZorvEnv::read(prefix, setting.name);
        const QString variable = QString::fromLatin1(ZorvEnv::variableName(prefix, setting.name));
        if (!value) {
            continue;
        }
        if (setting.kind == Kind::Secret) {
            report->hide(QString::fromLocal8Bit(value));
        }
        if (!winning) {
            winner = variable;
            winning = value;
            continue;
        }
        hidden += variable;
        if (strcmp(value, winning) != 0) {
            report->addProblem(Report::Severity::Warning, "settings-conflict",
                               QStringLiteral("%1 is not used: %2 is set, to another value")
                                   .arg(variable, winner));
        }
    }
    report->add(
        setting.name,
        QJsonObject{
            {QStringLiteral("variable"), winning ? QJsonValue(winner) : QJsonValue()},
            {QStringLiteral("value"), winning ? valueOf(setting.kind, winning) : QJsonValue()},
            {QStringLiteral("hidden"), hidden}},
        winning ? winner + QStringLiteral(" = ") + textOf(setting.kind, winning)
                : QStringLiteral("not set"));
}

bool isRead(const QString& variable)
{
    for (const Setting& setting : settings) {
        for (int prefix = 0; prefix < ZorvEnv::PrefixCount; ++prefix) {
            if (variable == QLatin1String(ZorvEnv::variableName(prefix, setting.name))) {
                return true;
            }
        }
    }
    return std::any_of(std::begin(plainVariables), std::end(plainVariables),
                       [&](const char* plain) { return variable == QLatin1String(plain); });
}

// What another program of the suite reads, or a slip of the pen.
QJsonArray unreadVariables()
{
    QJsonArray unread;
    QStringList names = QProcessEnvironment::systemEnvironment().keys();
    names.sort();
    for (const QString& name : std::as_const(names)) {
        for (int prefix = 0; prefix < ZorvEnv::PrefixCount; ++prefix) {
            if (name.startsWith(QLatin1String(ZorvEnv::variableName(prefix, ""))) &&
                !isRead(name)) {
                unread += name;
            }
        }
    }
    return unread;
}

} // namespace

QString winningVariable(const char* bareName)
{
    for (int prefix = 0; prefix < ZorvEnv::PrefixCount; ++prefix) {
        if (ZorvEnv::read(prefix, bareName)) {
            return QString::fromLatin1(ZorvEnv::variableName(prefix, bareName));
        }
    }
    return QString();
}

void describeSettings(Report* report)
{
    report->beginSection("settings");
    for (const Setting& setting : settings) {
        describeSetting(report, setting);
    }
    report->beginSection("variables");
    for (const char* name : plainVariables) {
        const bool isSet = qEnvironmentVariableIsSet(name);
        report->add(name, isSet ? QJsonValue(qEnvironmentVariable(name)) : QJsonValue(),
                    isSet ? qEnvironmentVariable(name) : QStringLiteral("not set"));
    }
    report->add("otherSuiteVariables", unreadVariables());
}
