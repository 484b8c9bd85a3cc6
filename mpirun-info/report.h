// The report, as text and as JSON.

#pragma once

#include "mpirun-info/findings.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <initializer_list>
#include <utility>

/// The version of the JSON form. It increases when a field is removed or changes its
/// meaning.
constexpr int reportSchema = 1;

QJsonObject objectOf(std::initializer_list<std::pair<const char*, QJsonValue>> members);
/// The text, or null if it is empty.
QJsonValue orNull(const QString& text);

/// Facts in sections, and findings. The text form shows the facts in the order in which they
/// were added. Do not add a secret: nothing is removed later.
class Report
{
public:
    /// Starts the section of the facts that are added next.
    void beginSection(const char* section);
    /// Adds a fact. An undefined value becomes null.
    void add(const char* key, const QJsonValue& value);
    /// Adds a finding. `cause` gives the details.
    void find(Finding finding, const QString& cause);

    /// The content, for addPacked() in another process.
    QJsonValue packed() const { return QJsonArray{mFacts, mFound}; }
    void addPacked(const QJsonValue& packed);

    bool has(Severity severity) const;
    QByteArray toJson() const;
    /// The given sections; or all sections and the findings.
    QByteArray toText(const QStringList& sections = {}) const;

private:
    QString mSection;
    QJsonArray mFacts; // of [section, key, value]
    QJsonArray mFound; // of [finding, cause]
};
