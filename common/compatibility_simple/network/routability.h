// Which of a host's addresses to try first.

#pragma once

#include <QHostAddress>
#include <QList>
#include <QStringList>

/// Orders a host's addresses by how likely each is to be reachable from here:
/// by the number of leading bits, at least 4, that it shares with an address
/// of an interface of this host, within that interface's network prefix.
///
/// The result has four blocks: by ethernet interfaces' IPv4 and IPv6 addresses,
/// then by other interfaces'. Each block holds every address that is not loopback,
/// closest first; addresses that are equally close keep their order. The setting
/// NETWORK_INTERFACES restricts the interfaces. Makes no look-up and asks the
/// kernel for its interfaces once.
QList<QHostAddress> sortAddressesByPotentialRoutability(const QList<QHostAddress>& addresses);

/// The same for a host's names and addresses, looked up in the calling thread:
/// the addresses of the first entry, the canonical one, as they are, and after
/// them those of the other entries in order of routability.
QList<QHostAddress>
sortHostNamesAndAddressesByPotentialRoutability(const QStringList& hostNamesAndAddresses);
