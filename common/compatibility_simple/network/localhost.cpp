#include "common/compatibility_simple/network/localhost.h"

#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/addresses_p.h"
#include "common/compatibility_simple/network/interfaces_p.h"
#include "common/compatibility_simple/network/resolver.h"
#include "common/env/zorvenv.h"

namespace {

QList<QHostAddress> interfaceAddresses(const QString& filter)
{
    QList<QHostAddress> addresses;
    const QList<QList<QNetworkAddressEntry>> passes = NetworkInternals::interfaceEntries(filter);
    for (const QList<QNetworkAddressEntry>& entries : passes) {
        for (const QNetworkAddressEntry& entry : entries) {
            if (!NetworkInternals::isLinkLocal(entry.ip())) {
                addresses += entry.ip();
            }
        }
    }
    return addresses;
}

template <typename List> void appendNew(List* list, const typename List::value_type& entry)
{
    if (!list->contains(entry)) {
        list->append(entry);
    }
}

QList<QHostAddress> localHostAddresses(const QString& hostName)
{
    const QString filter = envString("NETWORK_INTERFACES");
    QList<QHostAddress> result = hostAddresses(hostName);
    const QList<QHostAddress> addresses = interfaceAddresses(filter);
    for (const QHostAddress& address : addresses) {
        appendNew(&result, address);
    }
    return result;
}

template <typename List> List withoutLoopback(const List& list)
{
    List result;
    for (const auto& entry : list) {
        if (!isLoopback(entry)) {
            result += entry;
        }
    }
    return result;
}

} // namespace

QString sc_localhost()
{
    QString setting = envString("LOCALHOST");
    if (!setting.isEmpty()) {
        return setting;
    }
    return envFlag("LOCALHOST_IPV6") ? QStringLiteral("::1") : QStringLiteral("127.0.0.1");
}

QList<QHostAddress> sc_localhostAddresses()
{
    const QString setting = envString("LOCALHOST");
    if (!setting.isEmpty()) {
        return lookUpHost(setting).addresses();
    }
    return {QHostAddress(envFlag("LOCALHOST_IPV6") ? QHostAddress::LocalHostIPv6
                                                   : QHostAddress::LocalHost)};
}

QStringList localHostInterfaces()
{
    QStringList names;
    const QList<QNetworkInterface> interfaces =
        NetworkInternals::filteredInterfaces(envString("NETWORK_INTERFACES"));
    for (const QNetworkInterface& interface : interfaces) {
        names += interface.name();
    }
    return names;
}

QList<QHostAddress> localHostAddresses()
{
    return localHostAddresses(sc_hostname());
}

QStringList localHostNamesAndAddresses()
{
    const QString filter = envString("NETWORK_INTERFACES");
    QStringList result = hostNameAndAddresses(sc_hostname());
    const QList<QHostAddress> addresses = interfaceAddresses(filter);
    for (const QHostAddress& address : addresses) {
        const QString text = address.toString();
        appendNew(&result, text);
        if (address.protocol() == QAbstractSocket::IPv4Protocol) {
            appendNew(&result, lookUpHost(text).hostName());
        }
    }
    return result;
}

bool isThisHost(const QHostAddress& address)
{
    return isLoopback(address) || isSameHost(QList<QHostAddress>{address}, localHostAddresses());
}

bool isThisHost(const QString& hostNameOrAddress)
{
    return isLoopback(hostNameOrAddress) ||
           isSameHost(QStringList{hostNameOrAddress}, localHostNamesAndAddresses());
}

QList<QHostAddress> fixLocalHost(const QList<QHostAddress>& addresses)
{
    if (!addresses.isEmpty() && !isSameHost(addresses, localHostAddresses())) {
        return withoutLoopback(addresses);
    }
    return mergeAddressLists(addresses, sc_localhostAddresses());
}

QStringList fixLocalHost(const QStringList& hostNamesAndAddresses)
{
    if (!hostNamesAndAddresses.isEmpty() &&
        !isSameHost(hostNamesAndAddresses, localHostNamesAndAddresses())) {
        return withoutLoopback(hostNamesAndAddresses);
    }
    QStringList result = hostNamesAndAddresses;
    appendNew(&result, sc_localhost());
    return result;
}
