// The settings of the suite, read from the environment.
//
// A setting X is looked up as ZORV_X, then PELK_X, then TALVORA_X. The first variable that
// is set counts, even when its value is empty. The four look-ups are macros, because each
// place that uses one has its own cache:
//
//     QString directory = envString("SHARED_DIRECTORY");
//     QString file = envPath("SESSION_FILE");
//     QString temporary = envPath("BG_TMPDIR", QStringLiteral("/tmp"));
//     bool manual = envFlag("MANUAL_LAUNCH");
//     bool debug = envIsSet("MULTIPLEXER_DEBUG", ZorvEnv::uncachedValue("DEBUG") != nullptr);
//
// After its first use, a place does not read the environment again until discardEnvCache()
// or disableEnvCaching() is called. Use all of this from one thread.

#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <optional>

/// Whether look-ups use their caches.
extern bool g_cacheEnv;
/// The generation of the caches; an entry of another generation is stale.
extern int g_cacheSerial;

/// Makes every look-up read the environment, until enableEnvCaching().
void disableEnvCaching();
/// Lets look-ups use their caches again, as they do by default. Discards nothing.
void enableEnvCaching();
/// Makes the next look-up in each place read the environment.
void discardEnvCache();

namespace ZorvEnv {

/// The number of prefixes: ZORV_, PELK_, TALVORA_, in this order.
constexpr int PrefixCount = 3;

/// The name of the variable for the setting `bareName` with prefix number `prefix`, from 0
/// to PrefixCount - 1.
QByteArray variableName(int prefix, const char* bareName);

/// The value of variableName(), or null when it is not set. The environment owns the value,
/// see getenv(3).
const char* read(int prefix, const char* bareName);

/// The value of the first of the three variables that is set, or null. Never cached: for
/// names that are known only at run time. The environment owns the value, see getenv(3).
const char* uncachedValue(const char* bareName);

/// The value of a switch: false for "no", "off", "disable", "disabled" and "0" in any
/// letter case and for null (not set), true for every other value.
bool readsOn(const char* value);

/// The cache of one place that looks a setting up.
template <typename Value> class Site
{
public:
    /// `convert` of the setting's value, which is null when no variable is set. Reads the
    /// environment only if the cache is stale.
    template <typename Convert> Value lookup(const char* bareName, Convert convert)
    {
        if (!g_cacheEnv || mSerial != g_cacheSerial) {
            mAnswer = convert(uncachedValue(bareName));
            mSerial = g_cacheSerial;
        }
        return mAnswer;
    }

private:
    // -1 is never current.
    int mSerial = -1;
    Value mAnswer{};
};

} // namespace ZorvEnv

// `answer` is an expression with envValue, the setting's value or null.
#define ZORV_ENV_SITE(Value, X, answer)                                                            \
    ([&]() -> Value {                                                                              \
        static ZorvEnv::Site<Value> envSite;                                                       \
        return envSite.lookup(X, [&](const char* envValue) -> Value { return answer; });           \
    }())
// Ignores all arguments after the second. Does not cache the default, which may differ from call
// to call.
#define ZORV_ENV_PATH(X, fallback, ...)                                                            \
    ZORV_ENV_SITE(std::optional<QString>, X,                                                       \
                  envValue ? std::make_optional(QFile::decodeName(envValue)) : std::nullopt)       \
        .value_or(fallback)

/// The setting X as a text, decoded from the locale's encoding; null when it is not set.
#define envString(X) ZORV_ENV_SITE(QString, X, QString::fromLocal8Bit(envValue))
/// The setting X as a path, decoded with QFile::decodeName(). When it is not set, null for
/// envPath(X) and `default` for envPath(X, default).
#define envPath(...) ZORV_ENV_PATH(__VA_ARGS__, QString(), )
/// The setting X as a switch, see readsOn(); false when it is not set.
#define envFlag(X) ZORV_ENV_SITE(bool, X, ZorvEnv::readsOn(envValue))
/// True when the setting X is set, whatever its value; otherwise the value of `fallback`,
/// which is evaluated only when it is needed.
#define envIsSet(X, fallback) ZORV_ENV_SITE(bool, X, envValue || (fallback))
