// What the network half of the compatibility layer shares among its files.

#pragma once

#include <QHostAddress>
#include <QList>
#include <QStringList>

namespace NetworkInternals {

/// The address families in the order of preference.
constexpr QAbstractSocket::NetworkLayerProtocol addressFamilies[] = {QAbstractSocket::IPv4Protocol,
                                                                     QAbstractSocket::IPv6Protocol};

/// Whether an address is in fe80::/16.
bool isLinkLocal(const QHostAddress& address);
/// The addresses of all entries in turn, each address once.
QList<QHostAddress> resolveHostNamesAndAddresses0(const QStringList& hostNamesAndAddresses);

} // namespace NetworkInternals
