#pragma once

#include <QString>
#include <QStringList>

/// Splits a command line into arguments by simplified shell rules. Blanks and line feeds
/// separate arguments; line feeds do not with the switch ALLOW_NEWLINE_IN_ARGS. All
/// characters in single quotes are literal; in double quotes, a backslash makes the next
/// character literal. A backslash outside of quotes is dropped without effect. An unclosed
/// quote extends to the end. An empty pair of quotes is an empty argument.
QStringList parseArgs(const QString& text);

/// Splits a string at each separator, keeping empty parts. Returns a vector with a null
/// entry at its end, which the caller releases with m_strfreev(); null for a null string.
char** m_strsplit(const char* string, const char* separator);
/// A copy of a string, which the caller releases with free(); null for null.
char* m_strdup(const char* string);
/// Releases a vector and its entries. Does nothing for null.
void m_strfreev(char** vector);
