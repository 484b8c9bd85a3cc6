#include "common/compatibility_simple/network/resolver.h"

#include "common/compatibility_simple/lookups/lookups.h"

#include <arpa/inet.h>

namespace {

QHostInfo lookUpName(const QString& name)
{
    const Lookups::Host host = Lookups::hostOfName(name.toLocal8Bit());
    QList<QHostAddress> addresses;
    for (const QByteArray& text : host.addresses) {
        addresses += QHostAddress(QString::fromLatin1(text));
    }
    QHostInfo info;
    info.setHostName(host.canonicalName.isNull() ? name
                                                 : QString::fromLocal8Bit(host.canonicalName));
    info.setAddresses(addresses);
    return info;
}

QHostInfo lookUpAddress(const QString& text, const QHostAddress& address)
{
    QHostAddress withoutScope(address);
    withoutScope.setScopeId(QString());
    const QByteArray name = Lookups::nameOfAddress(withoutScope.toString().toLatin1());
    QHostInfo info;
    info.setHostName(name.isNull() ? text : QString::fromLocal8Bit(name));
    info.setAddresses({address});
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
