// Name look-ups, with the canonical name that QHostInfo's own do not give.

#pragma once

#include <QHostAddress>
#include <QHostInfo>
#include <QString>

/// Looks a host name up, or the name of an address, in the calling thread; how
/// long that may take is the system's business, see resolv.conf(5).
///
/// For a name: hostName() is its canonical form, addresses() are all its
/// addresses, IPv4 and IPv6 whether or not this host has IPv6, in the resolver's
/// order. For the text of an address: hostName() is the name that a reverse
/// look-up finds, or the text itself, addresses() is that address. A look-up
/// that fails gives the text as hostName() and no addresses.
QHostInfo lookUpHost(const QString& nameOrAddress);

/// The address that a text is, null for all other texts. The text of an IPv4
/// address has four decimal numbers: the older forms that inet_aton(3) takes
/// ("10", "127.1", "010.0.0.1") are left to the resolver, as host names that
/// consist of digits are.
QHostAddress parseAddress(const QString& text);
