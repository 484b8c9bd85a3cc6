// The addresses of this host's interfaces, in the order of preference.

#pragma once

#include <QList>
#include <QNetworkAddressEntry>
#include <QNetworkInterface>
#include <QString>

namespace NetworkInternals {

/// Ethernet IPv4, ethernet IPv6, other IPv4, other IPv6.
constexpr int interfacePassCount = 4;

/// The interfaces that `filter` lets through, asked of the kernel once, in its
/// order. `filter` holds names with commas between them and lets everything
/// through when it is empty.
QList<QNetworkInterface> filteredInterfaces(const QString& filter);

/// The address entries of the same: element N has those of pass N, without
/// loopback addresses.
QList<QList<QNetworkAddressEntry>> interfaceEntries(const QString& filter);

} // namespace NetworkInternals
