// The addresses of this host's interfaces, in the order of preference.

#pragma once

#include <QList>
#include <QNetworkAddressEntry>
#include <QString>

/// Ethernet IPv4, ethernet IPv6, other IPv4, other IPv6.
constexpr int interfacePassCount = 4;

/// The address entries of the interfaces that `filter` lets through, asked of
/// the kernel once: element N has those of pass N, in the kernel's order, without
/// loopback addresses. `filter` holds names with commas between them and
/// lets everything through when it is empty.
QList<QList<QNetworkAddressEntry>> interfaceEntries(const QString& filter);
