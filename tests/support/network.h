// Short forms for names and addresses in tests.

#pragma once

#include <QHostAddress>
#include <QList>
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

/// The addresses that the words of a text are.
inline QList<QHostAddress> addressList(const char* words)
{
    QList<QHostAddress> addresses;
    const QStringList texts = list(words);
    for (const QString& word : texts) {
        addresses += QHostAddress(word);
    }
    return addresses;
}
