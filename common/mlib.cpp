#include "common/mlib.h"

#include "common/env/zorvenv.h"

#include <QByteArray>

#include <cstdlib>
#include <cstring>

QStringList parseArgs(const QString& text)
{
    const bool newlineSeparates = !envFlag("ALLOW_NEWLINE_IN_ARGS");
    QStringList arguments;
    // Null between arguments; empty after an empty pair of quotes.
    QString argument;
    QChar openQuote;
    for (auto it = text.begin(); it != text.end(); ++it) {
        const bool isBackslash = *it == QLatin1Char('\\');
        if (!openQuote.isNull()) {
            if (*it == openQuote) {
                openQuote = QChar();
            } else if (!isBackslash || openQuote == QLatin1Char('\'')) {
                argument += *it;
            } else if (it + 1 != text.end()) {
                argument += *++it;
            }
        } else if (*it == QLatin1Char('\'') || *it == QLatin1Char('"')) {
            openQuote = *it;
            argument += QLatin1String("");
        } else if (*it == QLatin1Char(' ') || (*it == QLatin1Char('\n') && newlineSeparates)) {
            if (!argument.isNull()) {
                arguments += argument;
            }
            argument = QString();
        } else if (!isBackslash) {
            argument += *it;
        }
    }
    return argument.isNull() ? arguments : arguments << argument;
}

char** m_strsplit(const char* string, const char* separator)
{
    if (!string) {
        return nullptr;
    }
    const QStringList parts =
        *string ? QString::fromLocal8Bit(string).split(QString::fromLocal8Bit(separator))
                : QStringList(QString());
    auto** vector =
        static_cast<char**>(calloc(static_cast<size_t>(parts.size()) + 1, sizeof(char*)));
    Q_CHECK_PTR(vector);
    for (qsizetype i = 0; i < parts.size(); ++i) {
        vector[i] = m_strdup(parts.at(i).toLocal8Bit().constData());
    }
    return vector;
}

char* m_strdup(const char* string)
{
    return string ? strdup(string) : nullptr;
}

void m_strfreev(char** vector)
{
    if (!vector) {
        return;
    }
    for (char** entry = vector; *entry; ++entry) {
        free(*entry);
    }
    free(vector);
}
