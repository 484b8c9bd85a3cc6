#include "common/compatibility_simple/network/routability.h"

#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/addresses_p.h"
#include "common/compatibility_simple/network/interfaces_p.h"
#include "common/env/zorvenv.h"

#include <algorithm>

namespace {

// In bits. A shorter common prefix counts as none.
constexpr int shortestPrefix = 4;

struct HostAddressAndPrefixLength
{
    QHostAddress address;
    int prefixLength;
    int pass;
};

bool compareHostAddressAndPrefix(const HostAddressAndPrefixLength& a,
                                 const HostAddressAndPrefixLength& b)
{
    return a.pass != b.pass ? a.pass < b.pass : a.prefixLength > b.prefixLength;
}

// The length in bits of the longest common prefix of the candidate and an entry.
int bestPrefix(const QHostAddress& candidate, const QList<QNetworkAddressEntry>& entries)
{
    int best = 0;
    for (const QNetworkAddressEntry& entry : entries) {
        int prefix = entry.prefixLength();
        while (prefix >= qMax(best, shortestPrefix) && !candidate.isInSubnet(entry.ip(), prefix)) {
            --prefix;
        }
        if (prefix >= shortestPrefix) {
            best = qMax(best, prefix);
        }
    }
    return best;
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
