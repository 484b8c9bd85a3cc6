#include "common/compatibility_simple/system/pathexpansion.h"

#include "common/compatibility_simple/lookups/lookups.h"

#include <QDir>
#include <QRegularExpression>

#include <cstring>
#include <optional>
#include <unistd.h>

namespace {

// Values that refer to each other can double the text with each variable. A longer text is
// no path.
constexpr qsizetype longestText = 16777216;

// The name of a variable is taken as a regular expression. Nearly all names are plain and
// need only a text search.
bool isLiteralPattern(const QString& name)
{
    const QLatin1String special("\\^$.[]|()?*+{}");
    for (const QChar c : name) {
        if (special.contains(c)) {
            return false;
        }
    }
    return true;
}

bool isWordAt(const QString& text, qsizetype position)
{
    if (position >= text.size()) {
        return false;
    }
    char32_t c = text.at(position).unicode();
    if (QChar::isHighSurrogate(c) && position + 1 < text.size()) {
        c = QChar::surrogateToUcs4(text.at(position), text.at(position + 1));
    } else if (QChar::isLowSurrogate(c) && position > 0) {
        c = QChar::surrogateToUcs4(text.at(position - 1), text.at(position));
    }
    return c == U'_' || QChar::isLetterOrNumber(c);
}

// The length of the reference to `name` that begins with the dollar sign at `position`; 0
// for none.
qsizetype referenceLength(const QString& text, qsizetype position, const QString& name)
{
    const QStringView rest = QStringView(text).mid(position + 1);
    if (rest.startsWith(name)) {
        const qsizetype end = position + 1 + name.size();
        if (isWordAt(text, end - 1) != isWordAt(text, end)) {
            return end - position;
        }
    }
    const bool braced = rest.startsWith(QLatin1Char('{')) && rest.mid(1).startsWith(name) &&
                        rest.mid(1 + name.size()).startsWith(QLatin1Char('}'));
    return braced ? name.size() + 3 : 0;
}

struct Range
{
    qsizetype start;
    qsizetype length;
};

// Replaces every reference that `next` finds by the value. Returns nothing when the result
// would be too long. QString::replace() would take a backslash in the value for a capture.
template <typename Next>
std::optional<QString> replaced(const QString& text, const QString& value, Next next)
{
    QString result;
    qsizetype taken = 0;
    while (const std::optional<Range> reference = next()) {
        result += QStringView(text).mid(taken, reference->start - taken);
        result += value;
        taken = reference->start + reference->length;
        if (result.size() > longestText) {
            return std::nullopt;
        }
    }
    result += QStringView(text).mid(taken);
    return result.size() > longestText ? std::nullopt : std::optional<QString>(result);
}

std::optional<QString> replacedLiterally(const QString& text, const QString& name,
                                         const QString& value)
{
    qsizetype position = 0;
    return replaced(text, value, [&]() -> std::optional<Range> {
        for (;;) {
            const qsizetype start = text.indexOf(QLatin1Char('$'), position);
            if (start == -1) {
                return std::nullopt;
            }
            const qsizetype length = referenceLength(text, start, name);
            position = start + qMax<qsizetype>(length, 1);
            if (length > 0) {
                return Range{start, length};
            }
        }
    });
}

std::optional<QString> replacedByPattern(const QString& text, const QString& name,
                                         const QString& value)
{
    const QRegularExpression pattern(QStringLiteral("(\\$%1\\b|\\$\\{%2\\})").arg(name, name),
                                     QRegularExpression::UseUnicodePropertiesOption);
    if (!pattern.isValid() || !text.isValidUtf16()) {
        return text;
    }
    // Otherwise each match checks the whole text again.
    QRegularExpressionMatchIterator matches =
        pattern.globalMatch(text, 0, QRegularExpression::NormalMatch,
                            QRegularExpression::DontCheckSubjectStringMatchOption);
    return replaced(text, value, [&]() -> std::optional<Range> {
        if (!matches.hasNext()) {
            return std::nullopt;
        }
        const QRegularExpressionMatch match = matches.next();
        return Range{match.capturedStart(), match.capturedLength()};
    });
}

} // namespace

bool containsEnvVarOrTilde(const QString& text)
{
    return text.contains(QLatin1Char('%')) || text.contains(QLatin1Char('$')) ||
           text.startsWith(QLatin1Char('~'));
}

QString tildeExpansion(const QString& text)
{
    if (!text.startsWith(QLatin1Char('~'))) {
        return text;
    }
    qsizetype end = 1;
    while (end < text.size() && text.at(end) != QLatin1Char('/') &&
           text.at(end) != QLatin1Char(' ')) {
        ++end;
    }
    if (end == 1) {
        return QDir::homePath() + text.mid(1);
    }
    const passwd* user = Lookups::userOfName(text.mid(1, end - 1).toLocal8Bit());
    if (!user || !user->pw_dir || !*user->pw_dir) {
        return text;
    }
    return QString::fromLocal8Bit(user->pw_dir) + text.mid(end);
}

QString expandVars(const QString& text)
{
    QString result = tildeExpansion(text);
    // environ is null after clearenv(3).
    if (environ && result.contains(QLatin1Char('$'))) {
        for (char** entry = environ; *entry; ++entry) {
            const char* equals = strchr(*entry, '=');
            if (!equals) {
                continue;
            }
            const QString name = QString::fromLocal8Bit(*entry, equals - *entry);
            const QString value = QString::fromLocal8Bit(equals + 1);
            const std::optional<QString> expanded = isLiteralPattern(name)
                                                        ? replacedLiterally(result, name, value)
                                                        : replacedByPattern(result, name, value);
            if (!expanded) {
                break;
            }
            result = *expanded;
        }
    }
    return result.trimmed();
}
