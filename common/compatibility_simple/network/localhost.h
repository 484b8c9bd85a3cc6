// Who this host is: its names, its addresses, and its loopback form.
//
// Names and addresses are gathered afresh at every call, from the resolver and
// from the kernel's list of interfaces; the calling thread waits for the
// look-ups. The setting NETWORK_INTERFACES, names with commas between them,
// restricts the interfaces, not what the resolver answers. Ethernet interfaces
// ("eth...") come before others, IPv4 before IPv6. No list holds a loopback or
// link-local address of an interface; link-local addresses of the resolver may
// be there.

#pragma once

#include "common/compatibility_simple/system/hostname.h"

#include <QHostAddress>
#include <QList>
#include <QString>
#include <QStringList>

/// This host as its own processes reach it: the setting LOCALHOST unless that is
/// empty, else "::1" or "127.0.0.1", as the switch LOCALHOST_IPV6 says.
QString sc_localhost();
/// The same as addresses; looked up, and possibly none, for the setting.
QList<QHostAddress> sc_localhostAddresses();

/// The names of the interfaces that are looked at, in the kernel's order.
QStringList localHostInterfaces();

/// This host's addresses, best first: those of its name, then its interfaces'.
QList<QHostAddress> localHostAddresses();
/// This host's names and the texts of its addresses, best first. Makes one
/// look-up of the host's name, one of its canonical name where that differs, and one of
/// each IPv4 address of an interface.
QStringList localHostNamesAndAddresses();

/// Whether an address is loopback or one of localHostAddresses().
bool isThisHost(const QHostAddress& address);
/// Whether a text is loopback or, as it stands, one of
/// localHostNamesAndAddresses().
bool isThisHost(const QString& hostNameOrAddress);

// Makes a host's addresses or names fit for use from here: loopback is taken
// out of those of another host, and added to those of this one, which an empty
// list stands for.
QList<QHostAddress> fixLocalHost(const QList<QHostAddress>& addresses);
QStringList fixLocalHost(const QStringList& hostNamesAndAddresses);
