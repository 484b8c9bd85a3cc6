// Which addresses and names are loopback, and which denote the same host.
//
// A "host name or address" is a text: a name, or the text of an address. Names
// are looked up in the calling thread, which waits. A look-up that fails counts
// as one without addresses. No result is remembered between calls.
//
// The addresses 127.42.42.x are the suite's own: each stands for a host of its
// own, is the same host as nothing else, and never counts as loopback.

#pragma once

#include <QHostAddress>
#include <QHostInfo>
#include <QList>
#include <QString>
#include <QStringList>

/// The suite's loopback address 127.42.42.(index + 1); null from index 255 on.
QHostAddress specialLoopbackAddress(int index);
bool isSpecialLoopbackAddress(const QHostAddress& address);
bool isSpecialLoopbackAddress(const QString& address);

/// Whether an address is in 127.0.0.0/8, is ::1, or is one of the former mapped
/// into IPv6 (RFC 4291, 2.5.5.2).
bool isLoopback(const QHostAddress& address);
/// Whether a text is "localhost" or begins as a loopback address does; else it
/// is looked up, and the first address decides.
bool isLoopback(const QString& hostName);
/// The same for what a look-up gave.
bool isLoopback(const QHostInfo& hostInfo);

/// Two addresses are of one host when they are equal or both are loopback.
bool isSameHost(const QHostAddress& address1, const QHostAddress& address2);
// Two lists are of one host when they have an entry in common that is not
// loopback. Texts are compared as they stand and looked up only to tell whether
// they are loopback.
bool isSameHost(const QList<QHostAddress>& addresses1, const QList<QHostAddress>& addresses2);
bool isSameHost(const QList<QHostAddress>& hostNamesAndAddresses1,
                const QStringList& hostNamesAndAddresses2);
bool isSameHost(const QStringList& hostNamesAndAddresses1,
                const QStringList& hostNamesAndAddresses2);
/// Two names are of one host when they are equal, are both loopback, or have an
/// address in common that is not loopback.
bool isSameHost(const QString& hostName1, const QString& hostName2);

/// The addresses of a name, looked up, or the address that the text is.
QList<QHostAddress> resolveHostNameOrAddress(const QString& hostNameOrAddress);
/// `list1`, and after it what `list1` does not hold of `list2`.
QList<QHostAddress> mergeAddressLists(const QList<QHostAddress>& list1,
                                      const QList<QHostAddress>& list2);
/// The addresses of one host's names and addresses, those of the first entry,
/// the canonical one, before the others. Empty for an empty list.
QList<QHostAddress> resolveHostNamesAndAddresses(const QStringList& hostNamesAndAddresses);

/// A host's addresses that are not loopback, IPv4 before IPv6.
QList<QHostAddress> hostAddresses(const QString& hostName);
/// The name, its canonical form where that differs and is not loopback (which may take
/// a look-up of its own), and the texts of its hostAddresses(). The switch
/// FORCE_IP_HOSTNAME, or a Blue Gene, puts the addresses first.
QStringList hostNameAndAddresses(const QString& hostName);
