// What the program has found out, for people and for scripts.

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

/// The number of the JSON form; a field that goes or changes its meaning raises it.
constexpr int reportSchema = 1;

QJsonObject objectOf(std::initializer_list<std::pair<const char*, QJsonValue>> members);
/// The text, or null in its place when it is empty.
QJsonValue orNull(const QString& text);

/// Facts in sections, and what is wrong with them. The text form shows the facts in the
/// order in which they were added. A secret must not be added: nothing is taken out again.
class Report
{
public:
    /// Facts that are added from here on belong to this section.
    void beginSection(const char* section);
    /// Adds a fact. An undefined value, which could not be found out, becomes null.
    void add(const char* key, const QJsonValue& value);
    /// Something is wrong; `cause` says what exactly.
    void find(Finding finding, const QString& cause);

    /// All of it, to be taken to another process and added to a report there.
    QJsonValue packed() const { return QJsonArray{mFacts, mFound}; }
    void addPacked(const QJsonValue& packed);

    bool has(Severity severity) const;
    QByteArray toJson() const;
    /// The sections of these names, or all of them and the findings.
    QByteArray toText(const QStringList& sections = {}) const;

private:
    QString mSection;
    QJsonArray mFacts; // of [section, key, value]
    QJsonArray mFound; // of [finding, cause]
};
