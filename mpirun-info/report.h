// The report, as text and as JSON.

#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <initializer_list>
#include <type_traits>
#include <utility>

/// The version of the JSON form. It increases when a field is removed or changes its
/// meaning.
constexpr int reportSchema = 1;

enum class Finding {
#define FINDING(name, code, severity, meaning, remedy) name,
#include "mpirun-info/findings.def"
#undef FINDING
};

/// The list of all findings: a text for people, or a JSON array.
QByteArray allFindings(bool json);

using Members = std::initializer_list<std::pair<const char*, QJsonValue>>;
QJsonObject objectOf(Members members);
/// Adds members to an object.
void extend(QJsonObject* object, Members members);
/// The text, or null if it is empty.
QJsonValue orNull(const QString& text);

/// A text with numbers and other texts in place of %1, %2 and so on.
template <typename... Values> QString filled(const char* form, const Values&... values)
{
    const auto textOf = [](const auto& value) {
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
            return QString::number(value);
        } else {
            return QString(value);
        }
    };
    return QString::fromUtf8(form).arg(textOf(values)...);
}

/// Facts in sections, and findings. The text form shows the facts in the order in which they
/// were added. Do not add a secret: nothing is removed later.
class Report
{
public:
    /// Starts the section of the facts that are added next.
    void beginSection(const char* section);
    /// Adds a fact. An undefined value becomes null.
    void add(const char* key, const QJsonValue& value);
    /// Adds a finding. The cause gives the details; with a form, see filled().
    void find(Finding finding, const QString& cause);
    template <typename... Values>
    void find(Finding finding, const char* form, const Values&... values)
    {
        find(finding, filled(form, values...));
    }

    /// The content, for addPacked() in another process.
    QJsonValue packed() const { return QJsonArray{mFacts, mFound}; }
    void addPacked(const QJsonValue& packed);

    /// Whether there is a finding of a severity: "error", "warning" or "unknown".
    bool has(const char* severity) const;
    QByteArray toJson() const;
    /// The given sections; or all sections and the findings.
    QByteArray toText(const QStringList& sections = {}) const;

private:
    QString mSection;
    QJsonArray mFacts; // of [section, key, value]
    QJsonArray mFound; // as in the JSON form
};
