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

// Replaces every reference to the variable by the value. Returns nothing when the result would
// be too long. QString::replace() would take a backslash in the value for a capture.
std::optional<QString> replaced(const QString& text, const QString& name, const QString& value)
{
    // Nearly all names are plain, and nearly none is in the text.
    const bool isPlain = QRegularExpression::escape(name) == name;
    if (isPlain && !text.contains(name)) {
        return text;
    }
    const QRegularExpression pattern(QStringLiteral("(\\$%1\\b|\\$\\{%2\\})").arg(name, name),
                                     QRegularExpression::UseUnicodePropertiesOption);
    if (!pattern.isValid() || !text.isValidUtf16()) {
        return text;
    }
    // Otherwise each match checks the whole text again.
    QRegularExpressionMatchIterator matches =
        pattern.globalMatch(text, 0, QRegularExpression::NormalMatch,
                            QRegularExpression::DontCheckSubjectStringMatchOption);
    QString result;
    qsizetype taken = 0;
    while (matches.hasNext() && result.size() <= longestText) {
        const QRegularExpressionMatch match = matches.next();
        result += QStringView(text).mid(taken, match.capturedStart() - taken);
        result += value;
        taken = match.capturedEnd();
    }
    result += QStringView(text).mid(taken);
    return result.size() > longestText ? std::nullopt : std::make_optional(result);
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
    qsizetype end = text.indexOf(QRegularExpression(QStringLiteral("[/ ]")));
    if (end == -1) {
        end = text.size();
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
            const std::optional<QString> expanded = replaced(result, name, value);
            if (!expanded) {
                break;
            }
            result = *expanded;
        }
    }
    return result.trimmed();
}
