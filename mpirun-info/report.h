// What the program has found out, for people and for scripts.

#pragma once

#include "mpirun-info/findings.h"

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

/// The number of the JSON form; a field that goes or changes its meaning raises it.
constexpr int reportSchema = 1;

/// A simple value, or a list of them, as people read it: "none" for nothing.
QString textOf(const QJsonValue& value);
/// The text, or null in its place when it is empty.
QJsonValue orNull(const QString& text);
/// A number of seconds for people.
QString secondsText(double seconds);

/// Facts in sections, and what is wrong with them. The order of the facts is the
/// text's. A secret has no place in it: nothing is taken out again.
class Report
{
public:
    /// What is added from here on belongs to this section.
    void beginSection(const char* key);
    /// Adds a fact. `text` is how people read it; when it is null, as textOf(). An
    /// undefined value is one that could not be found out.
    void add(const char* key, const QJsonValue& value, const QString& text = QString());
    /// Adds a fact that people read in lines; "none" when there are none.
    void addLines(const char* key, const QJsonValue& value, const QStringList& lines);
    /// Adds a path and what is there.
    void addPath(const char* key, const QString& path, const QString& state);
    /// Something is wrong; `cause` says what exactly.
    void find(Finding finding, const QString& cause);

    /// All of it, to be taken to another process and added to a report there.
    QJsonValue packed() const;
    void addPacked(const QJsonValue& packed);

    bool has(Severity severity) const;
    QByteArray toJson() const;
    /// The sections of these names, or all of them and the findings.
    QByteArray toText(const QStringList& keys = {}) const;

private:
    struct Fact
    {
        QString key;
        QJsonValue value;
        QString text;
    };
    struct Section
    {
        QString key;
        QList<Fact> facts;
    };
    struct Found
    {
        Finding finding;
        QString cause;
    };

    QList<Section> mSections;
    QList<Found> mFound;
};
