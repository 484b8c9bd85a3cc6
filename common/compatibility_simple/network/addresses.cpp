#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/addresses_p.h"

#include "common/compatibility_simple/network/resolver.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "common/env/zorvenv.h"

namespace {

const QString specialLoopbackPrefix = QStringLiteral("127.42.42.");

bool isLoopbackText(const QString& text)
{
    return text == QLatin1String("localhost") || text.startsWith(QLatin1String("127.")) ||
           text == QLatin1String("::1") || text.startsWith(QLatin1String("::ffff:127."));
}

bool firstIsLoopback(const QList<QHostAddress>& addresses)
{
    return !addresses.isEmpty() && isLoopback(addresses.first());
}

QList<QHostAddress> byFamilyWithoutLoopback(const QList<QHostAddress>& addresses)
{
    QList<QHostAddress> result;
    for (const auto family : NetworkInternals::addressFamilies) {
        for (const QHostAddress& address : addresses) {
            if (address.protocol() == family && !isLoopback(address)) {
                result += address;
            }
        }
    }
    return result;
}

QStringList texts(const QList<QHostAddress>& addresses)
{
    QStringList result;
    for (const QHostAddress& address : addresses) {
        result += address.toString();
    }
    return result;
}

// Tests the outer entry for loopback once, as the test may look a name up.
template <typename List> bool haveCommonEntry(const List& list1, const List& list2)
{
    for (const auto& entry1 : list1) {
        if (isLoopback(entry1)) {
            continue;
        }
        for (const auto& entry2 : list2) {
            if (!isLoopback(entry2) && entry1 == entry2) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

QHostAddress specialLoopbackAddress(int index)
{
    return QHostAddress(specialLoopbackPrefix + QString::number(qint64(index) + 1));
}

bool isSpecialLoopbackAddress(const QHostAddress& address)
{
    return isSpecialLoopbackAddress(address.toString());
}

bool isSpecialLoopbackAddress(const QString& address)
{
    return address.startsWith(specialLoopbackPrefix);
}

bool isLoopback(const QHostAddress& address)
{
    return !isSpecialLoopbackAddress(address) && address.isLoopback();
}

bool isLoopback(const QString& hostName)
{
    return !isSpecialLoopbackAddress(hostName) &&
           (isLoopbackText(hostName) || firstIsLoopback(lookUpHost(hostName).addresses()));
}

bool isLoopback(const QHostInfo& hostInfo)
{
    return !isSpecialLoopbackAddress(hostInfo.hostName()) &&
           (isLoopbackText(hostInfo.hostName()) || firstIsLoopback(hostInfo.addresses()));
}

bool NetworkInternals::isLinkLocal(const QHostAddress& address)
{
    if (address.protocol() != QAbstractSocket::IPv6Protocol) {
        return false;
    }
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    return bytes[0] == 0xFE && bytes[1] == 0x80;
}

bool isSameHost(const QHostAddress& address1, const QHostAddress& address2)
{
    return address1 == address2 || (isLoopback(address1) && isLoopback(address2));
}

bool isSameHost(const QList<QHostAddress>& addresses1, const QList<QHostAddress>& addresses2)
{
    return haveCommonEntry(addresses1, addresses2);
}

bool isSameHost(const QList<QHostAddress>& hostNamesAndAddresses1,
                const QStringList& hostNamesAndAddresses2)
{
    return haveCommonEntry(texts(hostNamesAndAddresses1), hostNamesAndAddresses2);
}

bool isSameHost(const QStringList& hostNamesAndAddresses1,
                const QStringList& hostNamesAndAddresses2)
{
    return haveCommonEntry(hostNamesAndAddresses1, hostNamesAndAddresses2);
}

bool isSameHost(const QString& hostName1, const QString& hostName2)
{
    if (hostName1 == hostName2 || (isLoopback(hostName1) && isLoopback(hostName2))) {
        return true;
    }
    const QList<QHostAddress> addresses1 = lookUpHost(hostName1).addresses();
    return isSameHost(addresses1, lookUpHost(hostName2).addresses());
}

QList<QHostAddress> resolveHostNameOrAddress(const QString& hostNameOrAddress)
{
    const QHostAddress address = parseAddress(hostNameOrAddress);
    return address.isNull() ? lookUpHost(hostNameOrAddress).addresses()
                            : QList<QHostAddress>{address};
}

QList<QHostAddress> mergeAddressLists(const QList<QHostAddress>& list1,
                                      const QList<QHostAddress>& list2)
{
    QList<QHostAddress> result = list1;
    for (const QHostAddress& address : list2) {
        if (!list1.contains(address)) {
            result += address;
        }
    }
    return result;
}

QList<QHostAddress>
NetworkInternals::resolveHostNamesAndAddresses0(const QStringList& hostNamesAndAddresses)
{
    QList<QHostAddress> result;
    for (const QString& entry : hostNamesAndAddresses) {
        result = mergeAddressLists(result, resolveHostNameOrAddress(entry));
    }
    return result;
}

QList<QHostAddress> resolveHostNamesAndAddresses(const QStringList& hostNamesAndAddresses)
{
    if (hostNamesAndAddresses.isEmpty()) {
        return QList<QHostAddress>();
    }
    const QList<QHostAddress> others =
        NetworkInternals::resolveHostNamesAndAddresses0(hostNamesAndAddresses.mid(1));
    return mergeAddressLists(resolveHostNameOrAddress(hostNamesAndAddresses.first()), others);
}

QList<QHostAddress> hostAddresses(const QString& hostName)
{
    return byFamilyWithoutLoopback(lookUpHost(hostName).addresses());
}

QStringList hostNameAndAddresses(const QString& hostName)
{
    const QHostInfo info = lookUpHost(hostName);
    const bool preferIPAddresses = sc_isBluegene() || envFlag("FORCE_IP_HOSTNAME");
    QStringList names = {hostName};
    if (info.hostName() != hostName && !isLoopback(info.hostName())) {
        names += info.hostName();
    }
    const QStringList addresses = texts(byFamilyWithoutLoopback(info.addresses()));
    return preferIPAddresses ? addresses + names : names + addresses;
}
