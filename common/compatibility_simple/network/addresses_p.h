// Internal helpers of the network functions.

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
/// resolveHostNamesAndAddresses() for a list without a canonical entry at its front.
QList<QHostAddress> resolveHostNamesAndAddresses0(const QStringList& hostNamesAndAddresses);

} // namespace NetworkInternals
