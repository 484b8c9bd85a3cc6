// The addresses of this host's interfaces, in the order of preference.

#pragma once

#include <QList>
#include <QNetworkAddressEntry>
#include <QNetworkInterface>
#include <QString>

namespace NetworkInternals {

/// The classes of addresses, best first: Ethernet IPv4, Ethernet IPv6, other IPv4, other
/// IPv6. An interface whose name begins with "eth" is Ethernet.
constexpr int interfacePassCount = 4;

/// The interfaces that are named in `filter`, separated by commas, or all when it is
/// empty; in the kernel's order.
QList<QNetworkInterface> filteredInterfaces(const QString& filter);

/// The addresses of filteredInterfaces() without loopback, one list for each class.
QList<QList<QNetworkAddressEntry>> interfaceEntries(const QString& filter);

} // namespace NetworkInternals
