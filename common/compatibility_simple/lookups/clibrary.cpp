#include "common/compatibility_simple/lookups/backends_p.h"

#include <arpa/inet.h>

namespace {

// The text of an address; null for one of another family than IPv4 and IPv6.
QByteArray textOf(const sockaddr* address)
{
    char text[INET6_ADDRSTRLEN];
    if (address->sa_family == AF_INET) {
        const auto* const v4 = reinterpret_cast<const sockaddr_in*>(address);
        return inet_ntop(AF_INET, &v4->sin_addr, text, sizeof text);
    }
    if (address->sa_family != AF_INET6) {
        return QByteArray();
    }
    const auto* const v6 = reinterpret_cast<const sockaddr_in6*>(address);
    QByteArray result = inet_ntop(AF_INET6, &v6->sin6_addr, text, sizeof text);
    if (v6->sin6_scope_id != 0) {
        result += '%' + QByteArray::number(v6->sin6_scope_id);
    }
    return result;
}

} // namespace

Lookups::Host Lookups::CLibrary::hostOfName(const QByteArray& name)
{
    Host host;
    addrinfo hints = {};
    hints.ai_flags = AI_CANONNAME | AI_IDN;
    // Otherwise getaddrinfo(3) lists each address once for each socket type.
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* results = nullptr;
    // glibc finds a line of hosts(5) without a name under the empty name.
    if (name.isEmpty() || getaddrinfo(name.constData(), nullptr, &hints, &results) != 0) {
        return host;
    }
    host.canonicalName = results->ai_canonname;
    for (const addrinfo* result = results; result; result = result->ai_next) {
        const QByteArray address = textOf(result->ai_addr);
        if (!address.isNull() && !host.addresses.contains(address)) {
            host.addresses += address;
        }
    }
    freeaddrinfo(results);
    return host;
}

QByteArray Lookups::CLibrary::nameOfAddress(const QByteArray& address)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* result = nullptr;
    if (getaddrinfo(address.constData(), nullptr, &hints, &result) != 0) {
        return QByteArray();
    }
    char name[NI_MAXHOST];
    const bool found = getnameinfo(result->ai_addr, result->ai_addrlen, name, sizeof name, nullptr,
                                   0, NI_NAMEREQD) == 0;
    freeaddrinfo(result);
    return found && *name ? QByteArray(name) : QByteArray();
}

passwd* Lookups::CLibrary::userOfName(const QByteArray& name)
{
    return getpwnam(name.constData());
}

passwd* Lookups::CLibrary::userOfId(uid_t uid)
{
    return getpwuid(uid);
}

hostent* Lookups::CLibrary::hostentOfName(const QByteArray& name)
{
    return gethostbyname(name.constData());
}
