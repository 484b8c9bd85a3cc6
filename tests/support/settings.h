// The settings of a test, whatever the environment of the one who runs it.

#pragma once

#include "common/env/zorvenv.h"

#include <QByteArray>

#include <initializer_list>

/// Gives a variable a value, or none for null.
inline void setSetting(const char* name, const QByteArray& value)
{
    value.isNull() ? qunsetenv(name) : qputenv(name, value);
    discardEnvCache();
}

/// Unsets variables of these names, with each of the suite's prefixes and
/// without one.
inline void clearSettings(std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        for (const char* prefix : {"ZORV_", "PELK_", "TALVORA_", ""}) {
            setSetting(QByteArray(prefix) + name, QByteArray());
        }
    }
}
