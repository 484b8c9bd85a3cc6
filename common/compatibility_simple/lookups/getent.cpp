#include "common/compatibility_simple/lookups/backends_p.h"
#include "common/compatibility_simple/lookups/boundedcommand.h"

#include <QtGlobal>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace {

// Two name servers that do not answer take ten seconds, see resolv.conf(5).
constexpr int limitMs = 15000;
// A host with a thousand addresses has an answer of 120 kB.
constexpr qsizetype mostBytes = 1 << 20;

// The variables that a look-up follows, see hostname(7) and resolv.conf(5), and those
// of the encoding. What else the user sets for programs of their own is kept from it.
const char* const variables[] = {"HOSTALIASES", "LANG",        "LC_ALL",
                                 "LC_CTYPE",    "LOCALDOMAIN", "RES_OPTIONS"};

QByteArrayList environmentOfGetent()
{
    QByteArrayList result;
    for (const char* variable : variables) {
        if (const char* value = getenv(variable)) {
            result += QByteArray(variable) + '=' + value;
        }
    }
    return result;
}

// Each entry of `database` of getent for the key, as a line; `options` come first. Ends
// with NotStarted where there is no getent, with Killed when there was no answer.
Answer ask(const QByteArrayList& options, const char* database, const QByteArray& key)
{
    static bool hangs = false;
    // It would be an option, and is no name.
    if (hangs || key.isEmpty() || key.startsWith('-')) {
        return {Answer::Killed, 0, QByteArray()};
    }
    Answer answer =
        runBounded({"/usr/bin/getent", "/bin/getent"}, options + QByteArrayList{database, key},
                   environmentOfGetent(), limitMs, mostBytes);
    if (answer.end == Answer::Killed) {
        hangs = true;
        answer.output.clear();
        qWarning("getent %s: no answer; no more names are looked up", database);
    }
    return answer;
}

QList<QByteArrayList> wordsOfLines(const QByteArray& text)
{
    QList<QByteArrayList> result;
    const QByteArrayList lines = text.split('\n');
    for (const QByteArray& line : lines) {
        result += line.simplified().split(' ');
    }
    return result;
}

bool isAddress(const QByteArray& text)
{
    char bytes[sizeof(in6_addr)];
    const QByteArray withoutScope = text.split('%').front();
    return inet_pton(AF_INET, text.constData(), bytes) == 1 ||
           inet_pton(AF_INET6, withoutScope.constData(), bytes) == 1;
}

// Adds what the lines of getent tell: each begins with an address, and the first has
// the canonical name in that column.
void addTo(Lookups::Host* host, const QByteArray& output, int nameColumn)
{
    const QList<QByteArrayList> lines = wordsOfLines(output);
    for (const QByteArrayList& words : lines) {
        const QByteArray& address = words.front();
        if (isAddress(address)) {
            if (host->canonicalName.isNull()) {
                host->canonicalName = words.value(nameColumn);
            }
            if (!host->addresses.contains(address)) {
                host->addresses += address;
            }
        }
    }
}

// The fields of passwd(5), filled from a line; null when it is none.
passwd* toPasswd(const QByteArray& line)
{
    static passwd user;
    static QByteArrayList fields;
    fields = line.split(':');
    if (fields.size() != 7) {
        return nullptr;
    }
    user.pw_name = fields[0].data();
    user.pw_passwd = fields[1].data();
    user.pw_uid = fields.at(2).toUInt();
    user.pw_gid = fields.at(3).toUInt();
    user.pw_gecos = fields[4].data();
    user.pw_dir = fields[5].data();
    user.pw_shell = fields[6].data();
    return &user;
}

// The user with the text in that field of passwd(5).
passwd* userWith(int field, const QByteArray& text)
{
    const Answer answer = ask({}, "passwd", text);
    const QByteArray line = answer.end == Answer::NotStarted
                                ? Lookups::EtcFiles::userLine(field, text)
                                : answer.output.split('\n').front();
    passwd* const user = toPasswd(line);
    return user && line.split(':').at(field) == text ? user : nullptr;
}

bool isNumber(const QByteArray& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

Lookups::Host Lookups::Getent::hostOfName(const QByteArray& name)
{
    // What getent(1) answers for a key that is not there. Any other failure is about
    // the option, which glibc has since 2.37.
    constexpr int notFound = 2;
    Host host;
    const Answer answer = ask({"--no-addrconfig"}, "ahosts", name);
    if (answer.end == Answer::NotStarted) {
        return EtcFiles::hostOfName(name);
    }
    addTo(&host, answer.output, 2);
    if (answer.exitStatus != 0 && answer.exitStatus != notFound) {
        // The second answer has the IPv6 addresses also where this host has none, for
        // which reason they are last in the first one's order.
        addTo(&host, ask({}, "ahosts", name).output, 2);
        addTo(&host, ask({}, "hosts", name).output, 1);
    }
    return host;
}

QByteArray Lookups::Getent::nameOfAddress(const QByteArray& address)
{
    // It would look up names, too.
    if (!isAddress(address)) {
        return QByteArray();
    }
    const Answer answer = ask({}, "hosts", address);
    if (answer.end == Answer::NotStarted) {
        return EtcFiles::nameOfAddress(address);
    }
    const QByteArrayList words = wordsOfLines(answer.output).front();
    return isAddress(words.front()) ? words.value(1) : QByteArray();
}

passwd* Lookups::Getent::userOfName(const QByteArray& name)
{
    return isNumber(name) ? toPasswd(EtcFiles::userLine(0, name)) : userWith(0, name);
}

passwd* Lookups::Getent::userOfId(uid_t uid)
{
    return userWith(2, QByteArray::number(uid));
}

hostent* Lookups::Getent::hostentOfName(const QByteArray& name)
{
    static hostent result;
    static Host host;
    static std::vector<in_addr> addresses;
    static std::vector<char*> addressPointers;
    static char* noAliases[] = {nullptr};
    host = hostOfName(name);
    addresses.clear();
    addressPointers.clear();
    for (const QByteArray& text : std::as_const(host.addresses)) {
        in_addr address;
        if (inet_pton(AF_INET, text.constData(), &address) == 1) {
            addresses.push_back(address);
        }
    }
    if (addresses.empty()) {
        h_errno = HOST_NOT_FOUND;
        return nullptr;
    }
    for (in_addr& address : addresses) {
        addressPointers.push_back(reinterpret_cast<char*>(&address));
    }
    addressPointers.push_back(nullptr);
    result = {host.canonicalName.data(), noAliases, AF_INET, sizeof(in_addr),
              addressPointers.data()};
    return &result;
}
