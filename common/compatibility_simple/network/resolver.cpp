// Name look-ups, with the canonical name that QHostInfo's own do not give.

#include "common/compatibility_simple/network/resolver.h"

#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace {

QHostAddress toHostAddress(const sockaddr* socketAddress)
{
    QHostAddress address(socketAddress);
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        const auto scope = reinterpret_cast<const sockaddr_in6*>(socketAddress)->sin6_scope_id;
        if (scope != 0) {
            address.setScopeId(QString::number(scope));
        }
    }
    return address;
}

QList<QHostAddress> addressesOf(const addrinfo* results)
{
    QList<QHostAddress> addresses;
    for (const addrinfo* result = results; result; result = result->ai_next) {
        const QHostAddress address = toHostAddress(result->ai_addr);
        if (!address.isNull() && !addresses.contains(address)) {
            addresses += address;
        }
    }
    return addresses;
}

QHostInfo lookUpName(const QString& name)
{
    QHostInfo info;
    info.setHostName(name);
    addrinfo hints = {};
    hints.ai_flags = AI_CANONNAME | AI_IDN;
    // One entry for each address, not one for each kind of socket.
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* results = nullptr;
    if (getaddrinfo(name.toLocal8Bit().constData(), nullptr, &hints, &results) == 0) {
        info.setAddresses(addressesOf(results));
        if (results->ai_canonname) {
            info.setHostName(QString::fromLocal8Bit(results->ai_canonname));
        }
        freeaddrinfo(results);
    }
    return info;
}

socklen_t toSocketAddress(const QHostAddress& address, sockaddr_storage* storage)
{
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        auto* const v4 = reinterpret_cast<sockaddr_in*>(storage);
        v4->sin_family = AF_INET;
        v4->sin_addr.s_addr = htonl(address.toIPv4Address());
        return sizeof *v4;
    }
    auto* const v6 = reinterpret_cast<sockaddr_in6*>(storage);
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    v6->sin6_family = AF_INET6;
    memcpy(&v6->sin6_addr, &bytes, sizeof bytes);
    return sizeof *v6;
}

QHostInfo lookUpAddress(const QString& text, const QHostAddress& address)
{
    QHostInfo info;
    info.setHostName(text);
    info.setAddresses({address});
    sockaddr_storage storage = {};
    const socklen_t length = toSocketAddress(address, &storage);
    char name[NI_MAXHOST];
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, name, sizeof name, nullptr,
                    0, NI_NAMEREQD) == 0 &&
        *name) {
        info.setHostName(QString::fromLocal8Bit(name));
    }
    return info;
}

} // namespace

QHostInfo lookUpHost(const QString& nameOrAddress)
{
    const QHostAddress address = parseAddress(nameOrAddress);
    return address.isNull() ? lookUpName(nameOrAddress) : lookUpAddress(nameOrAddress, address);
}

QHostAddress parseAddress(const QString& text)
{
    QHostAddress address(text);
    in_addr unused;
    if (address.protocol() == QAbstractSocket::IPv4Protocol &&
        inet_pton(AF_INET, text.trimmed().toLatin1().constData(), &unused) != 1) {
        address.clear();
    }
    return address;
}
