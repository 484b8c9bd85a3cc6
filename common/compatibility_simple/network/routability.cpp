#include "common/compatibility_simple/network/routability.h"

#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/addresses_p.h"
#include "common/compatibility_simple/network/interfaces_p.h"
#include "common/env/zorvenv.h"

#include <QtAlgorithms>

#include <algorithm>

namespace {

// In bits. A shorter common prefix counts as none.
constexpr int shortestPrefix = 4;

struct HostAddressAndPrefixLength
{
    HostAddressAndPrefixLength(const QHostAddress& theAddress, int thePrefixLength, int thePass)
        : address(theAddress)
        , prefixLength(thePrefixLength)
        , pass(thePass)
    {
    }

    QHostAddress address;
    int prefixLength;
    int pass;
};

bool compareHostAddressAndPrefix(const HostAddressAndPrefixLength& a,
                                 const HostAddressAndPrefixLength& b)
{
    return a.pass != b.pass ? a.pass < b.pass : a.prefixLength > b.prefixLength;
}

// The length in bits of the common prefix of two addresses; 0 for different families.
int commonPrefix(const QHostAddress& a, const QHostAddress& b)
{
    if (a.protocol() != b.protocol()) {
        return 0;
    }
    if (a.protocol() == QAbstractSocket::IPv4Protocol) {
        return static_cast<int>(qCountLeadingZeroBits(a.toIPv4Address() ^ b.toIPv4Address()));
    }
    const Q_IPV6ADDR bytesA = a.toIPv6Address();
    const Q_IPV6ADDR bytesB = b.toIPv6Address();
    int length = 0;
    for (int i = 0; i < 16 && length == i * 8; ++i) {
        length += static_cast<int>(qCountLeadingZeroBits(quint8(bytesA[i] ^ bytesB[i])));
    }
    return length;
}

int bestPrefix(const QHostAddress& candidate, const QList<QNetworkAddressEntry>& entries)
{
    int best = 0;
    for (const QNetworkAddressEntry& entry : entries) {
        best = qMax(best, qMin(entry.prefixLength(), commonPrefix(candidate, entry.ip())));
    }
    return best < shortestPrefix ? 0 : best;
}

} // namespace

QList<QHostAddress> sortAddressesByPotentialRoutability(const QList<QHostAddress>& addresses)
{
    const QList<QList<QNetworkAddressEntry>> passes =
        NetworkInternals::interfaceEntries(envString("NETWORK_INTERFACES"));
    QList<HostAddressAndPrefixLength> candidates;
    for (int pass = 0; pass < NetworkInternals::interfacePassCount; ++pass) {
        for (const QHostAddress& address : addresses) {
            if (!isLoopback(address)) {
                candidates += {address, bestPrefix(address, passes.at(pass)), pass};
            }
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(), compareHostAddressAndPrefix);

    QList<QHostAddress> result;
    result.reserve(candidates.size());
    for (const HostAddressAndPrefixLength& candidate : candidates) {
        result += candidate.address;
    }
    return result;
}

QList<QHostAddress>
sortHostNamesAndAddressesByPotentialRoutability(const QStringList& hostNamesAndAddresses)
{
    if (hostNamesAndAddresses.isEmpty()) {
        return QList<QHostAddress>();
    }
    const QList<QHostAddress> others = sortAddressesByPotentialRoutability(
        NetworkInternals::resolveHostNamesAndAddresses0(hostNamesAndAddresses.mid(1)));
    return mergeAddressLists(resolveHostNameOrAddress(hostNamesAndAddresses.first()), others);
}
