// The settings of a test, whatever the environment of the one who runs it.

#pragma once

#include "common/env/zorvenv.h"

#include <QByteArray>

#include <initializer_list>

/// Unsets variables of these names, with each of the suite's prefixes and
/// without one.
inline void clearSettings(std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        for (const char* prefix : {"ZORV_", "PELK_", "TALVORA_", ""}) {
            qunsetenv(QByteArray(prefix) + name);
        }
    }
    discardEnvCache();
}
