// Short forms for texts in tests.

#pragma once

#include <QString>
#include <QStringList>

inline QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

/// The words of a text.
inline QStringList list(const char* words)
{
    return text(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}
