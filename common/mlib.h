// Splitting of command lines, and vectors of C strings.

#pragma once

#include <QString>
#include <QStringList>

/// Splits a command line into arguments, by rules that are like a shell's but
/// simpler. Blanks and line feeds separate (line feeds not when the switch
/// ALLOW_NEWLINE_IN_ARGS is on). Single quotes take everything literally;
/// inside double quotes a backslash makes the next character literal. A
/// backslash outside of quotes is dropped and protects nothing. An unclosed
/// quote takes the rest; a pair of quotes with nothing in it is an argument.
QStringList parseArgs(const QString& text);

// Vectors of C strings for the operating system: a null entry closes them, the
// entries and the vector are the caller's, to be released with m_strfreev().

/// The parts of a string between the separators, empty ones included; null for
/// a null string.
char** m_strsplit(const char* string, const char* separator);
/// A copy that free() releases; null for null.
char* m_strdup(const char* string);
/// Releases a vector with its entries; nothing for null.
void m_strfreev(char** vector);
