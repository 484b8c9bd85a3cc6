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
#include <QString>

#include <utility>

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

/// The cache of one place that looks a setting up. A Kind has the type `Value`, the function
/// `static Value convert(const char* value)` for a variable that is set, and the constant
/// `RemembersAbsent`, which says whether the default for one that is not set is cached, too.
template <typename Kind> class Site
{
public:
    using Value = typename Kind::Value;

    /// The value of the setting, or the result of `absent()` when no variable is set. Reads
    /// the environment only if the cache is stale.
    template <typename Absent> Value lookup(const char* bareName, Absent absent)
    {
        for (int prefix = 0; prefix < PrefixCount - 1; ++prefix) {
            if (isSet(prefix, bareName)) {
                return answer(prefix, bareName, absent);
            }
        }
        return answer(PrefixCount - 1, bareName, absent);
    }

private:
    template <typename T> struct Entry
    {
        // -1 is never current.
        int serial = -1;
        T content{};

        bool isCurrent() const { return g_cacheEnv && serial == g_cacheSerial; }
        void store(T newContent)
        {
            content = std::move(newContent);
            serial = g_cacheSerial;
        }
    };

    bool isSet(int prefix, const char* bareName)
    {
        Entry<bool>& entry = mSet[prefix];
        if (!entry.isCurrent()) {
            entry.store(read(prefix, bareName) != nullptr);
        }
        return entry.content;
    }

    template <typename Absent> Value answer(int prefix, const char* bareName, Absent absent)
    {
        Entry<Value>& entry = mAnswers[prefix];
        if (!entry.isCurrent()) {
            const char* value = read(prefix, bareName);
            mFound[prefix] = value != nullptr;
            entry.store(value ? Kind::convert(value) : absent());
        } else if (!Kind::RemembersAbsent && !mFound[prefix]) {
            entry.content = absent();
        }
        return entry.content;
    }

    Entry<bool> mSet[PrefixCount - 1];
    Entry<Value> mAnswers[PrefixCount];
    bool mFound[PrefixCount] = {};
};

/// The kind of envString().
struct TextKind
{
    using Value = QString;
    static constexpr bool RemembersAbsent = true;
    static QString convert(const char* value);
};

/// The kind of envPath().
struct PathKind
{
    using Value = QString;
    // The caller's default may differ from call to call.
    static constexpr bool RemembersAbsent = false;
    static QString convert(const char* value);
};

/// The kind of envFlag().
struct SwitchKind
{
    using Value = bool;
    static constexpr bool RemembersAbsent = true;
    static bool convert(const char* value) { return readsOn(value); }
};

/// The kind of envIsSet().
struct PresenceKind
{
    using Value = bool;
    static constexpr bool RemembersAbsent = true;
    static bool convert(const char*) { return true; }
};

} // namespace ZorvEnv

#define ZORV_ENV_SITE(Kind, X, absent)                                                             \
    ([&]() -> ZorvEnv::Kind::Value {                                                               \
        static ZorvEnv::Site<ZorvEnv::Kind> envSite;                                               \
        return envSite.lookup(X, [&]() -> ZorvEnv::Kind::Value { return absent; });                \
    }())
// Ignores all arguments after the second.
#define ZORV_ENV_PATH(X, fallback, ...) ZORV_ENV_SITE(PathKind, X, fallback)

/// The setting X as a text, decoded from the locale's encoding; null when it is not set.
#define envString(X) ZORV_ENV_SITE(TextKind, X, QString())
/// The setting X as a path, decoded with QFile::decodeName(). When it is not set, null for
/// envPath(X) and `default` for envPath(X, default).
#define envPath(...) ZORV_ENV_PATH(__VA_ARGS__, QString(), )
/// The setting X as a switch, see readsOn(); false when it is not set.
#define envFlag(X) ZORV_ENV_SITE(SwitchKind, X, false)
/// True when the setting X is set, whatever its value; otherwise the value of `fallback`,
/// which is evaluated only when it is needed.
#define envIsSet(X, fallback) ZORV_ENV_SITE(PresenceKind, X, fallback)
