#pragma once

#include <QHostAddress>
#include <QList>
#include <QStringList>

/// Sorts the addresses of a host by how likely this host can reach them: by the length of
/// the common prefix with an address of an interface, at least 4 bits and at most the
/// interface's network prefix.
///
/// The result has four parts, one for each class of interface addresses: Ethernet IPv4,
/// Ethernet IPv6, other IPv4, other IPv6. Each part has all addresses that are not
/// loopback, closest first; equally close addresses keep their order. The setting
/// NETWORK_INTERFACES restricts the interfaces. Makes no look-up.
QList<QHostAddress> sortAddressesByPotentialRoutability(const QList<QHostAddress>& addresses);

/// The addresses of the first entry, the canonical one, followed by the sorted addresses of
/// the other entries. Looks the names up in the calling thread. Empty for an empty list.
QList<QHostAddress>
sortHostNamesAndAddressesByPotentialRoutability(const QStringList& hostNamesAndAddresses);
