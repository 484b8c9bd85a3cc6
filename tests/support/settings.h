// The settings of a test, whatever the environment of the one who runs it.

#pragma once

#include "common/env/zorvenv.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QRegularExpression>

/// Gives a variable a value, or none for null.
inline void setSetting(const char* name, const QByteArray& value)
{
    value.isNull() ? qunsetenv(name) : qputenv(name, value);
    discardEnvCache();
}

/// Unsets all of the suite's settings.
inline void clearSettings()
{
    static const QRegularExpression ours(QStringLiteral("^(ZORV|PELK|TALVORA)_"));
    for (const QString& name : QProcessEnvironment::systemEnvironment().keys().filter(ours)) {
        qunsetenv(name.toLatin1().constData());
    }
    discardEnvCache();
}
