// The names and addresses of this host.
//
// Every call asks the resolver and the kernel again; the look-ups block the calling
// thread. The setting NETWORK_INTERFACES, names separated by commas, restricts the
// interfaces, but not the resolver's answers. Addresses of Ethernet interfaces ("eth...")
// come before those of others, IPv4 before IPv6. Loopback and link-local addresses of an
// interface are left out; a link-local address from the resolver is not.

#pragma once

#include "common/compatibility_simple/system/hostname.h"

#include <QHostAddress>
#include <QList>
#include <QString>
#include <QStringList>

/// The loopback name or address of this host: the setting LOCALHOST; if that is empty or
/// not set, "::1" with the switch LOCALHOST_IPV6 and "127.0.0.1" without.
QString sc_localhost();
/// The addresses of sc_localhost(). Looks the setting up; empty when that fails.
QList<QHostAddress> sc_localhostAddresses();

/// The names of the interfaces that NETWORK_INTERFACES selects, in the kernel's order.
QStringList localHostInterfaces();

/// The addresses of this host, best first: those of its name, then those of its
/// interfaces.
QList<QHostAddress> localHostAddresses();
/// The names and the texts of the addresses of this host, best first. Looks up the host's
/// name, its canonical name if that differs, and each IPv4 address of an interface.
QStringList localHostNamesAndAddresses();

/// Whether an address is loopback or one of localHostAddresses(). Looks this host's name up
/// unless the address is loopback.
bool isThisHost(const QHostAddress& address);
/// Whether a text is loopback or one of localHostNamesAndAddresses(). Compares texts, not
/// addresses.
bool isThisHost(const QString& hostNameOrAddress);

/// @name Adapting a host's names and addresses for use on this host
/// If the list belongs to this host or is empty, adds the loopback entry; otherwise removes
/// all loopback entries.
/// @{
QList<QHostAddress> fixLocalHost(const QList<QHostAddress>& addresses);
QStringList fixLocalHost(const QStringList& hostNamesAndAddresses);
/// @}
