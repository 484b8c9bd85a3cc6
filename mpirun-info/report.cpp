#include "mpirun-info/report.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr int labelWidth = 34;
// More members of an object, or elements of a list, than these are shown in lines.
constexpr qsizetype mostInLine = 3;
// The member that identifies an object comes first, without a label.
constexpr const char* subjects[] = {"value", "path", "lookedUp", "name"};
const QString none = QStringLiteral("none");
const QString comma = QStringLiteral(", ");

// "releaseTag" becomes "release tag"; the names of settings do not change.
QString labelOf(const QString& key)
{
    static const QRegularExpression wordStart(QStringLiteral("(?<=[a-z])[A-Z]"));
    QString label = key;
    for (qsizetype i = label.indexOf(wordStart); i != -1; i = label.indexOf(wordStart, i)) {
        label.replace(i, 1, QLatin1Char(' ') + label.at(i).toLower());
    }
    return label;
}

QStringList linesOf(const QJsonValue& value);

QString textOf(const QJsonValue& value)
{
    if (value.isBool()) {
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    }
    const QString text = value.isArray() || value.isObject() ? linesOf(value).join(comma)
                                                             : value.toVariant().toString();
    return text.isEmpty() ? none : text;
}

QStringList linesOf(QJsonObject object)
{
    QString subject;
    for (const char* key : subjects) {
        if (subject.isNull() && object.contains(QLatin1String(key))) {
            subject = textOf(object.take(QLatin1String(key)));
        }
    }
    QStringList members;
    for (auto member = object.constBegin(); member != object.constEnd(); ++member) {
        const QString text = textOf(member.value());
        if (subject.isNull() || text != none) {
            members += labelOf(member.key()) + QLatin1Char(' ') + text;
        }
    }
    if (subject.isNull() || members.isEmpty()) {
        return subject.isNull() ? members : QStringList(subject);
    }
    return members.size() > mostInLine
               ? QStringList(subject) + members
               : QStringList(QStringLiteral("%1 (%2)").arg(subject, members.join(comma)));
}

QStringList linesOf(const QJsonValue& value)
{
    if (value.isObject()) {
        return linesOf(value.toObject());
    }
    QStringList lines;
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (const auto& element : array) {
            lines += textOf(element);
        }
        if (!array.first().isObject() && lines.size() <= mostInLine) {
            lines = QStringList(lines.join(comma));
        }
    } else {
        lines += textOf(value);
    }
    return lines;
}

// Values come from the environment and from files, and must not control the terminal.
QString printable(QString text)
{
    for (QChar& c : text) {
        if (c.category() == QChar::Other_Control) {
            c = QLatin1Char('?');
        }
    }
    return text.isEmpty() ? none : text;
}

QString row(QString label, const QStringList& lines)
{
    QString result;
    label += QLatin1Char(':');
    for (const QString& line : lines) {
        result += QStringLiteral("  %1%2\n").arg(label.leftJustified(labelWidth), printable(line));
        label.clear();
    }
    return result;
}

} // namespace

QJsonObject objectOf(std::initializer_list<std::pair<const char*, QJsonValue>> members)
{
    QJsonObject object;
    for (const auto& [key, value] : members) {
        object.insert(QLatin1String(key), value);
    }
    return object;
}

QJsonValue orNull(const QString& text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

void Report::beginSection(const char* section)
{
    mSection = QString::fromLatin1(section);
}

void Report::add(const char* key, const QJsonValue& value)
{
    mFacts.append(
        QJsonArray{mSection, QString::fromLatin1(key), value.isUndefined() ? QJsonValue() : value});
}

void Report::find(Finding finding, const QString& cause)
{
    mFound.append(QJsonArray{static_cast<int>(finding), cause});
}

void Report::addPacked(const QJsonValue& packed)
{
    const QJsonArray facts = packed[0].toArray();
    for (const auto& fact : facts) {
        mFacts.append(fact);
    }
    const QJsonArray found = packed[1].toArray();
    for (const auto& entry : found) {
        mFound.append(entry);
    }
}

bool Report::has(Severity severity) const
{
    return std::any_of(mFound.begin(), mFound.end(), [&](const QJsonValue& entry) {
        return findingAt(entry[0].toInt()).severity == severity;
    });
}

QByteArray Report::toJson() const
{
    QJsonObject root{{QStringLiteral("schema"), reportSchema}};
    for (const auto& fact : mFacts) {
        QJsonObject section = root.value(fact[0].toString()).toObject();
        section.insert(fact[1].toString(), fact[2]);
        root.insert(fact[0].toString(), section);
    }
    QJsonArray findings;
    for (const auto& entry : mFound) {
        const FindingText& finding = findingAt(entry[0].toInt());
        findings.append(objectOf({{"severity", QLatin1String(nameOf(finding.severity))},
                                  {"code", QLatin1String(finding.code)},
                                  {"cause", entry[1]},
                                  {"remedy", QLatin1String(finding.remedy)}}));
    }
    root.insert(QStringLiteral("findings"), findings);
    return QJsonDocument(root).toJson();
}

QByteArray Report::toText(const QStringList& sections) const
{
    QString text;
    QString section;
    for (const auto& fact : mFacts) {
        if (!sections.isEmpty() && !sections.contains(fact[0].toString())) {
            continue;
        }
        if (section != fact[0].toString()) {
            text += (section.isNull() ? QString() : QStringLiteral("\n"));
            section = fact[0].toString();
            text += labelOf(section) + QLatin1Char('\n');
        }
        text += row(labelOf(fact[1].toString()), linesOf(fact[2]));
    }
    if (sections.isEmpty()) {
        text += mFound.isEmpty() ? QStringLiteral("\nfindings: none\n")
                                 : QStringLiteral("\nfindings\n");
        for (const auto& entry : mFound) {
            const FindingText& finding = findingAt(entry[0].toInt());
            text += row(QLatin1String(nameOf(finding.severity)), {QLatin1String(finding.code)});
            text += row(QStringLiteral("  cause"), {entry[1].toString()});
            text += row(QStringLiteral("  remedy"), {QLatin1String(finding.remedy)});
        }
    }
    return text.toLocal8Bit();
}
