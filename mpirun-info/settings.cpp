// The settings of the suite, and variables that resemble them.

#include "mpirun-info/sections.h"

#include "common/env/zorvenv.h"

#include <QProcessEnvironment>

#include <algorithm>
#include <utility>

namespace {

enum class Kind { Text, Path, Switch, Presence, Secret };

constexpr std::pair<const char*, Kind> settings[] = {
#define SETTING(name, kind, ...) {name, Kind::kind},
#include "common/env/settings.def"
};

// The variables without the prefixes of the suite.
constexpr const char* plainVariables[] = {
#define VARIABLE(name, text) name,
#include "common/env/settings.def"
};

QJsonValue valueOf(Kind kind, const char* value)
{
    switch (kind) {
    case Kind::Path:
        return QFile::decodeName(value);
    case Kind::Switch:
        return ZorvEnv::readsOn(value);
    case Kind::Presence:
        return true;
    case Kind::Secret:
        return *value != '\0';
    case Kind::Text:
        break;
    }
    return QString::fromLocal8Bit(value);
}

// The variables that may give a setting. The first one that is set counts.
QStringList variablesOf(const char* bareName)
{
    QStringList variables;
    for (int prefix = 0; prefix < ZorvEnv::PrefixCount; ++prefix) {
        variables += QString::fromLatin1(ZorvEnv::variableName(prefix, bareName));
    }
    return variables;
}

QStringList setVariablesOf(const char* bareName)
{
    QStringList variables = variablesOf(bareName);
    variables.removeIf(
        [](const QString& name) { return !qEnvironmentVariableIsSet(qPrintable(name)); });
    return variables;
}

void describeSetting(Report* report, const char* name, Kind kind)
{
    QStringList hidden = setVariablesOf(name);
    const QString winner = hidden.isEmpty() ? QString() : hidden.takeFirst();
    const char* const value = ZorvEnv::uncachedValue(name);
    for (const QString& variable : std::as_const(hidden)) {
        if (qgetenv(qPrintable(variable)) != value) {
            report->find(Finding::SettingsConflict, "%1 is not used because %2 has another value",
                         variable, winner);
        }
    }
    report->add(name, objectOf({{"variable", orNull(winner)},
                                {"value", value ? valueOf(kind, value) : QJsonValue()},
                                {"hidden", QJsonArray::fromStringList(hidden)}}));
}

// Every name under which a variable is read.
QStringList namesOfSettings()
{
    QStringList names;
    for (const char* name : plainVariables) {
        names += QString::fromLatin1(name);
    }
    for (const auto& [name, kind] : settings) {
        names += variablesOf(name);
    }
    return names;
}

// Variables of other programs of the suite, and misspelt settings.
void describeUnreadVariables(Report* report)
{
    const QStringList known = namesOfSettings();
    // Without the underscores that end them.
    const QStringList prefixes = variablesOf("").replaceInStrings(QStringLiteral("_"), QString());
    QStringList unread;
    const QStringList names = QProcessEnvironment::systemEnvironment().keys();
    for (const QString& name : names) {
        const bool isOfSuite =
            std::any_of(prefixes.begin(), prefixes.end(), [&](const QString& prefix) {
                return name.startsWith(prefix, Qt::CaseInsensitive);
            });
        const QString start = name.section(QLatin1Char('_'), 0, 0);
        if (known.contains(name) || (!isOfSuite && nearestSpelling(start, prefixes, 1).isNull())) {
            continue;
        }
        if (isOfSuite) {
            unread += name;
        }
        const QString nearest = nearestSpelling(name, known);
        if (!nearest.isNull()) {
            report->find(Finding::SettingMisspelt, "nothing reads %1; did you mean %2?", name,
                         nearest);
        }
    }
    unread.sort();
    report->add("otherSuiteVariables", QJsonArray::fromStringList(unread));
}

} // namespace

QString winningVariable(const char* bareName)
{
    return setVariablesOf(bareName).value(0);
}

void describeSettings(Report* report, const Request&)
{
    for (const auto& [name, kind] : settings) {
        describeSetting(report, name, kind);
    }
    report->beginSection("variables");
    for (const char* name : plainVariables) {
        report->add(name, qEnvironmentVariableIsSet(name) ? QJsonValue(qEnvironmentVariable(name))
                                                          : QJsonValue());
    }
    describeUnreadVariables(report);
}
