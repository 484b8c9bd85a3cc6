// What the program has found out, for people and for scripts.

#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

/// A simple value, or a list of them, as people read it: "none" for nothing.
QString textOf(const QJsonValue& value);

/// Facts in sections, and what is wrong with them. Keys and the codes of
/// problems are for scripts and stay what they are; the order of the facts is
/// the text's.
class Report
{
public:
    /// What is added from here on belongs to this section.
    void beginSection(const char* key);
    /// Adds a fact. `text` is how people read it; when it is null, as textOf().
    void add(const char* key, const QJsonValue& value, const QString& text = QString());
    /// Adds a path and what is there.
    void addPath(const char* key, const QString& path, const char* state);
    /// Something may not be as it was meant.
    void addWarning(const char* code, const QString& text);
    /// The launcher would fail.
    void addError(const char* code, const QString& text);

    /// Never prints `secret`, in no fact and no problem, also of those added
    /// before. Does nothing for an empty text.
    void hide(const QString& secret);

    bool hasErrors() const { return mHasErrors; }
    QByteArray toJson() const;
    QByteArray toText() const;

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
    struct Problem
    {
        QString severity;
        QString code;
        QString text;
    };

    QString visible(QString text) const;
    QJsonValue visible(const QJsonValue& value) const;
    QString line(const QString& label, const QString& text) const;

    QList<Section> mSections;
    QList<Problem> mProblems;
    QStringList mSecrets;
    bool mHasErrors = false;
};
