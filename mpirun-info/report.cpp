// What the program has found out, for people and for scripts.

#include "mpirun-info/report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr int labelWidth = 34;

// "releaseTag" is "release tag" to people; names of settings stay as they are.
QString labelOf(const QString& key)
{
    static const QRegularExpression wordStart(QStringLiteral("(?<=[a-z])[A-Z]"));
    QString label = key;
    for (qsizetype i = label.indexOf(wordStart); i != -1; i = label.indexOf(wordStart, i)) {
        label.replace(i, 1, QLatin1Char(' ') + label.at(i).toLower());
    }
    return label;
}

} // namespace

QString textOf(const QJsonValue& value)
{
    if (value.isBool()) {
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    }
    if (value.isArray()) {
        const QStringList texts = value.toVariant().toStringList();
        return texts.isEmpty() ? QStringLiteral("none") : texts.join(QStringLiteral(", "));
    }
    return value.isNull() ? QStringLiteral("none") : value.toVariant().toString();
}

void Report::beginSection(const char* key)
{
    mSections.append({QString::fromLatin1(key), {}});
}

void Report::add(const char* key, const QJsonValue& value, const QString& text)
{
    mSections.last().facts.append(
        {QString::fromLatin1(key), value, text.isNull() ? textOf(value) : text});
}

void Report::addPath(const char* key, const QString& path, const char* state)
{
    add(key,
        QJsonObject{{QStringLiteral("path"), path},
                    {QStringLiteral("state"), QString::fromLatin1(state)}},
        QStringLiteral("%1 (%2)").arg(path, QLatin1String(state)));
}

void Report::addWarning(const char* code, const QString& text)
{
    mProblems.append({QStringLiteral("warning"), QString::fromLatin1(code), text});
}

void Report::addError(const char* code, const QString& text)
{
    mProblems.append({QStringLiteral("error"), QString::fromLatin1(code), text});
    mHasErrors = true;
}

void Report::hide(const QString& secret)
{
    if (!secret.isEmpty()) {
        mSecrets += secret;
    }
    // One that is part of another must leave nothing of the other to be seen.
    std::sort(mSecrets.begin(), mSecrets.end(),
              [](const QString& a, const QString& b) { return a.size() > b.size(); });
}

QString Report::visible(QString text) const
{
    for (const QString& secret : mSecrets) {
        text.replace(secret, QStringLiteral("***"));
    }
    return text;
}

QJsonValue Report::visible(const QJsonValue& value) const
{
    if (value.isString()) {
        return visible(value.toString());
    }
    if (value.isArray()) {
        QJsonArray array;
        const QJsonArray elements = value.toArray();
        for (const auto& element : elements) {
            array.append(visible(QJsonValue(element)));
        }
        return array;
    }
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            *it = visible(QJsonValue(*it));
        }
        return object;
    }
    return value;
}

QByteArray Report::toJson() const
{
    QJsonObject root;
    for (const Section& section : mSections) {
        QJsonObject object;
        for (const Fact& fact : section.facts) {
            object.insert(fact.key, visible(fact.value));
        }
        root.insert(section.key, object);
    }
    QJsonArray problems;
    for (const Problem& problem : mProblems) {
        problems.append(QJsonObject{{QStringLiteral("severity"), problem.severity},
                                    {QStringLiteral("code"), problem.code},
                                    {QStringLiteral("text"), visible(problem.text)}});
    }
    root.insert(QStringLiteral("problems"), problems);
    return QJsonDocument(root).toJson();
}

// Values come from the environment and from files: what would move a terminal's
// cursor must not reach it.
QString Report::line(const QString& label, const QString& text) const
{
    QString result = visible(text);
    for (QChar& c : result) {
        if (c.category() == QChar::Other_Control) {
            c = QLatin1Char('?');
        }
    }
    return QStringLiteral("  ") + (label + QLatin1Char(':')).leftJustified(labelWidth) + result +
           QLatin1Char('\n');
}

QByteArray Report::toText() const
{
    QString text;
    for (const Section& section : mSections) {
        text += labelOf(section.key) + QLatin1Char('\n');
        for (const Fact& fact : section.facts) {
            text += line(labelOf(fact.key), fact.text);
        }
        text += QLatin1Char('\n');
    }
    text += QStringLiteral("problems\n");
    for (const Problem& problem : mProblems) {
        text += line(problem.severity, problem.text);
    }
    if (mProblems.isEmpty()) {
        text += QStringLiteral("  none\n");
    }
    return text.toLocal8Bit();
}
