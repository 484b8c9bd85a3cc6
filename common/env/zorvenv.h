// The suite's settings, read from the environment under three names.
//
// A setting X is looked up as ZORV_X, then PELK_X, then TALVORA_X; the first
// variable that is set wins, also when its value is empty. The four operations
// are macros because every place that uses one owns its cache:
//
//     QString directory = envString("SHARED_DIRECTORY");
//     QString file = envPath("SESSION_FILE");
//     QString temporary = envPath("BG_TMPDIR", QStringLiteral("/tmp"));
//     bool manual = envFlag("MANUAL_LAUNCH");
//     bool debug = envIsSet("MULTIPLEXER_DEBUG", ZorvEnv::uncachedValue("DEBUG") != nullptr);
//
// After its first use a site answers without reading the environment, until
// discardEnvCache() or disableEnvCaching() is called. Nothing here is
// synchronised: lookups and controls belong to one thread.

#pragma once

#include <QByteArray>
#include <QString>

#include <utility>

/// True while lookup sites may answer from their caches.
extern bool g_cacheEnv;
/// The cache generation; an entry stamped with another one is stale.
extern int g_cacheSerial;

/// Makes every lookup read the environment afresh.
void disableEnvCaching();
/// Lets lookups answer from their caches again (the default).
void enableEnvCaching();
/// Makes every cached answer stale, once.
void discardEnvCache();

namespace ZorvEnv {

/// Number of prefixes that a setting is looked up under.
constexpr int PrefixCount = 3;

/// The name of the variable that is read as `bareName` under `prefix`.
QByteArray variableName(int prefix, const char* bareName);

/// The value of `prefix` + `bareName`, or null when it is not set; `prefix`
/// is an index into the order of precedence.
const char* read(int prefix, const char* bareName);

/// The value of the first of the three variables that is set, or null.
/// Never cached: for names that are known only at run time.
const char* uncachedValue(const char* bareName);

/// The rule for switches: false for "no", "off", "disable", "disabled" and
/// "0" in any letter case and for null (not set), true for all else.
bool readsOn(const char* value);

/// What one lookup site remembers. A Kind gives `Value`, `static Value
/// convert(const char* value)`, called for a variable that is set, and
/// `RemembersAbsent`: whether the answer for one that is not is remembered too.
template <typename Kind> class Site
{
public:
    using Value = typename Kind::Value;

    /// The setting's value, or what `absent()` returns when no variable is
    /// set.
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
        // A generation that never is current: the first use reads.
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

struct TextKind
{
    using Value = QString;
    static constexpr bool RemembersAbsent = true;
    static QString convert(const char* value);
};

struct PathKind
{
    using Value = QString;
    // The default is the caller's of the moment.
    static constexpr bool RemembersAbsent = false;
    static QString convert(const char* value);
};

struct SwitchKind
{
    using Value = bool;
    static constexpr bool RemembersAbsent = true;
    static bool convert(const char* value) { return readsOn(value); }
};

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
// Takes the first two of its arguments.
#define ZORV_ENV_PATH(X, fallback, ...) ZORV_ENV_SITE(PathKind, X, fallback)

/// A text setting, decoded from the local 8-bit encoding; null when not set.
#define envString(X) ZORV_ENV_SITE(TextKind, X, QString())
/// A path setting, decoded as a file name: envPath(X), null when not set, or
/// envPath(X, default).
#define envPath(...) ZORV_ENV_PATH(__VA_ARGS__, QString(), )
/// A switch setting; off when not set.
#define envFlag(X) ZORV_ENV_SITE(SwitchKind, X, false)
/// Whether the setting is there at all, whatever its value; when it is not,
/// `fallback`, evaluated at that moment.
#define envIsSet(X, fallback) ZORV_ENV_SITE(PresenceKind, X, fallback)
