#include "mpirun-info/report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr int labelWidth = 34;
constexpr QChar lineSeparator(QChar::LineSeparator);

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

// Values come from the environment and from files: what would move a terminal's
// cursor must not reach it.
QString row(const QString& label, const QString& text)
{
    QString result = text;
    for (QChar& c : result) {
        if (c.category() == QChar::Other_Control) {
            c = QLatin1Char('?');
        }
    }
    result.replace(lineSeparator, QLatin1Char('\n') + QString(labelWidth + 2, QLatin1Char(' ')));
    return QStringLiteral("  ") + (label + QStringLiteral(": ")).leftJustified(labelWidth) +
           result + QLatin1Char('\n');
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

QJsonValue orNull(const QString& text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QString secondsText(double seconds)
{
    return QString::number(seconds, 'f', 3) + QStringLiteral(" s");
}

void Report::beginSection(const char* key)
{
    mSections.append({QString::fromLatin1(key), {}});
}

void Report::add(const char* key, const QJsonValue& value, const QString& text)
{
    const bool isKnown = !value.isUndefined();
    mSections.last().facts.append({QString::fromLatin1(key), isKnown ? value : QJsonValue(),
                                   !isKnown        ? QStringLiteral("not known")
                                   : text.isNull() ? textOf(value)
                                                   : text});
}

void Report::addLines(const char* key, const QJsonValue& value, const QStringList& lines)
{
    add(key, value, lines.isEmpty() ? QStringLiteral("none") : lines.join(lineSeparator));
}

void Report::addPath(const char* key, const QString& path, const QString& state)
{
    add(key, QJsonObject{{QStringLiteral("path"), path}, {QStringLiteral("state"), state}},
        QStringLiteral("%1 (%2)").arg(path, state));
}

void Report::find(Finding finding, const QString& cause)
{
    mFound.append({finding, cause});
}

QJsonValue Report::packed() const
{
    QJsonArray sections;
    for (const Section& section : mSections) {
        QJsonArray facts;
        for (const Fact& fact : section.facts) {
            facts.append(QJsonArray{fact.key, fact.value, fact.text});
        }
        sections.append(QJsonArray{section.key, facts});
    }
    QJsonArray found;
    for (const Found& entry : mFound) {
        found.append(QJsonArray{static_cast<int>(entry.finding), entry.cause});
    }
    return QJsonArray{sections, found};
}

void Report::addPacked(const QJsonValue& packed)
{
    const QJsonArray sections = packed[0].toArray();
    for (const auto& section : sections) {
        QList<Fact> facts;
        const QJsonArray rows = section[1].toArray();
        for (const auto& fact : rows) {
            facts.append({fact[0].toString(), fact[1], fact[2].toString()});
        }
        mSections.append({section[0].toString(), facts});
    }
    const QJsonArray found = packed[1].toArray();
    for (const auto& entry : found) {
        find(static_cast<Finding>(entry[0].toInt()), entry[1].toString());
    }
}

bool Report::has(Severity severity) const
{
    return std::any_of(mFound.begin(), mFound.end(), [&](const Found& entry) {
        return ::textOf(entry.finding).severity == severity;
    });
}

QByteArray Report::toJson() const
{
    QJsonObject root{{QStringLiteral("schema"), reportSchema}};
    for (const Section& section : mSections) {
        QJsonObject object;
        for (const Fact& fact : section.facts) {
            object.insert(fact.key, fact.value);
        }
        root.insert(section.key, object);
    }
    QJsonArray findings;
    for (const Found& entry : mFound) {
        const FindingText& text = ::textOf(entry.finding);
        findings.append(
            QJsonObject{{QStringLiteral("severity"), QLatin1String(nameOf(text.severity))},
                        {QStringLiteral("code"), QLatin1String(text.code)},
                        {QStringLiteral("cause"), entry.cause},
                        {QStringLiteral("remedy"), QLatin1String(text.remedy)}});
    }
    root.insert(QStringLiteral("findings"), findings);
    return QJsonDocument(root).toJson();
}

QByteArray Report::toText(const QStringList& keys) const
{
    QString text;
    for (const Section& section : mSections) {
        if (keys.isEmpty() || keys.contains(section.key)) {
            text += labelOf(section.key) + QLatin1Char('\n');
            for (const Fact& fact : section.facts) {
                text += row(labelOf(fact.key), fact.text);
            }
            text += QLatin1Char('\n');
        }
    }
    if (!keys.isEmpty()) {
        return text.toLocal8Bit();
    }
    text += mFound.isEmpty() ? QStringLiteral("findings: none\n") : QStringLiteral("findings\n");
    for (const Found& entry : mFound) {
        const FindingText& finding = ::textOf(entry.finding);
        text += row(QLatin1String(nameOf(finding.severity)), QLatin1String(finding.code));
        text += row(QStringLiteral("  cause"), entry.cause);
        text += row(QStringLiteral("  remedy"), QLatin1String(finding.remedy));
    }
    return text.toLocal8Bit();
}
