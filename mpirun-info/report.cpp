#include "mpirun-info/report.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>
#include <iterator>

namespace {

// The severities, by the names that findings.def uses.
constexpr const char* Error = "error";
constexpr const char* Warning = "warning";
constexpr const char* Unknown = "unknown";

struct FindingText
{
    const char* code;
    const char* severity;
    const char* meaning;
    const char* remedy;
};
constexpr FindingText findingTexts[] = {
#define FINDING(name, code, severity, meaning, remedy) {code, severity, meaning, remedy},
#include "mpirun-info/findings.def"
#undef FINDING
};

constexpr int labelWidth = 34;
// More members of an object, or elements of a list, than these are shown in lines.
constexpr qsizetype mostInLine = 3;
// The member that identifies an object comes first, without a label.
constexpr const char* subjects[] = {"value", "path", "lookedUp", "name"};
const QString none = QStringLiteral("none");
const QString comma = QStringLiteral(", ");

// "releaseTag" becomes "release tag"; the names of settings do not change.
QString labelOf(QString key)
{
    static const QRegularExpression capital(QStringLiteral("([A-Z])"));
    return key.front().isLower() ? key.replace(capital, QStringLiteral(" \\1")).toLower() : key;
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
    if (subject.isNull()) {
        return members;
    }
    if (members.size() > mostInLine) {
        return QStringList(subject) + members;
    }
    return {members.isEmpty() ? subject : filled("%1 (%2)", subject, members.join(comma))};
}

QStringList linesOf(const QJsonValue& value)
{
    if (value.isObject()) {
        return linesOf(value.toObject());
    }
    if (!value.isArray()) {
        return {textOf(value)};
    }
    const QJsonArray array = value.toArray();
    QStringList lines;
    for (const auto& element : array) {
        lines += textOf(element);
    }
    const bool isShort = !array.first().isObject() && lines.size() <= mostInLine;
    return isShort ? QStringList(lines.join(comma)) : lines;
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

QByteArray allFindings(bool json)
{
    QByteArray text;
    QJsonArray array;
    for (const FindingText& row : findingTexts) {
        text += QByteArray(row.code) + " (" + row.severity + ")\n    " + row.meaning + "\n    " +
                row.remedy + '\n';
        array.append(objectOf({{"code", QLatin1String(row.code)},
                               {"severity", QLatin1String(row.severity)},
                               {"meaning", QLatin1String(row.meaning)},
                               {"remedy", QLatin1String(row.remedy)}}));
    }
    return json ? QJsonDocument(array).toJson() : text;
}

QJsonObject objectOf(Members members)
{
    QJsonObject object;
    extend(&object, members);
    return object;
}

void extend(QJsonObject* object, Members members)
{
    for (const auto& [key, value] : members) {
        object->insert(QLatin1String(key), value);
    }
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
    const FindingText& row = findingTexts[static_cast<int>(finding)];
    mFound.append(objectOf({{"severity", QLatin1String(row.severity)},
                            {"code", QLatin1String(row.code)},
                            {"cause", cause},
                            {"remedy", QLatin1String(row.remedy)}}));
}

void Report::addPacked(const QJsonValue& packed)
{
    const QJsonArray facts = packed[0].toArray();
    const QJsonArray found = packed[1].toArray();
    std::copy(facts.begin(), facts.end(), std::back_inserter(mFacts));
    std::copy(found.begin(), found.end(), std::back_inserter(mFound));
}

bool Report::has(const char* severity) const
{
    return std::any_of(mFound.begin(), mFound.end(), [&](const QJsonValue& found) {
        return found[QLatin1String("severity")].toString() == QLatin1String(severity);
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
    root.insert(QStringLiteral("findings"), mFound);
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
            section = fact[0].toString();
            text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + labelOf(section) +
                    QLatin1Char('\n');
        }
        text += row(labelOf(fact[1].toString()), linesOf(fact[2]));
    }
    if (sections.isEmpty()) {
        text += mFound.isEmpty() ? QStringLiteral("\nfindings: none\n")
                                 : QStringLiteral("\nfindings\n");
        for (const auto& found : mFound) {
            const auto textAt = [&](const char* key) {
                return found[QLatin1String(key)].toString();
            };
            text += row(textAt("severity"), {textAt("code")});
            text += row(QStringLiteral("  cause"), {textAt("cause")});
            text += row(QStringLiteral("  remedy"), {textAt("remedy")});
        }
    }
    return text.toLocal8Bit();
}
