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
    for (const QString& word : list(words)) {
        addresses += QHostAddress(word);
    }
    return addresses;
}

/// The addresses as the words of a text.
inline QString words(const QList<QHostAddress>& addresses)
{
    QStringList texts;
    for (const QHostAddress& address : addresses) {
        texts += address.toString();
    }
    return texts.join(QLatin1Char(' '));
}
