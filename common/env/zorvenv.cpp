#include "common/env/zorvenv.h"

#include <QVarLengthArray>

#include <cstdlib>
#include <cstring>

namespace {

constexpr const char* prefixes[ZorvEnv::PrefixCount] = {"ZORV_", "PELK_", "TALVORA_"};

} // namespace

bool g_cacheEnv = true;
int g_cacheSerial = 0;

void disableEnvCaching()
{
    g_cacheEnv = false;
}

void enableEnvCaching()
{
    g_cacheEnv = true;
}

void discardEnvCache()
{
    ++g_cacheSerial;
}

namespace ZorvEnv {

QByteArray variableName(int prefix, const char* bareName)
{
    return prefixes[prefix] + QByteArray(bareName);
}

const char* read(int prefix, const char* bareName)
{
    // Needs no allocation: a launch looks up some thirty settings under three names each.
    QVarLengthArray<char, 64> name;
    name.append(prefixes[prefix], qsizetype(strlen(prefixes[prefix])));
    name.append(bareName, qsizetype(strlen(bareName)) + 1);
    return std::getenv(name.constData());
}

const char* uncachedValue(const char* bareName)
{
    for (int prefix = 0; prefix < PrefixCount; ++prefix) {
        if (const char* value = read(prefix, bareName)) {
            return value;
        }
    }
    return nullptr;
}

bool readsOn(const char* value)
{
    if (!value) {
        return false;
    }
    for (const char* off : {"no", "off", "disable", "disabled", "0"}) {
        if (qstricmp(value, off) == 0) {
            return false;
        }
    }
    return true;
}

} // namespace ZorvEnv
