// Which addresses and names are loopback, and which belong to the same host.
//
// A "host name or address" is a text: a host name, or an address in text form. Looking a
// name up blocks the calling thread. A look-up that fails gives no addresses. No function
// caches a result.
//
// The addresses 127.42.42.x are special to the suite: each stands for a separate host, and
// none counts as loopback.

#pragma once

#include <QHostAddress>
#include <QHostInfo>
#include <QList>
#include <QString>
#include <QStringList>

/// The special address 127.42.42.(index + 1); null for an index above 254.
QHostAddress specialLoopbackAddress(int index);
/// Whether an address begins with "127.42.42.".
bool isSpecialLoopbackAddress(const QHostAddress& address);
bool isSpecialLoopbackAddress(const QString& address);

/// Whether an address is in 127.0.0.0/8, is ::1, or is one of the former as an
/// IPv4-mapped IPv6 address (RFC 4291, section 2.5.5.2). False for special addresses.
bool isLoopback(const QHostAddress& address);
/// Whether a text is "localhost" or begins like a loopback address. Otherwise looks it up,
/// and the first address decides; false when there is none.
bool isLoopback(const QString& hostName);
/// As isLoopback() for a host name, without a new look-up.
bool isLoopback(const QHostInfo& hostInfo);

/// Whether two addresses are equal or both loopback.
bool isSameHost(const QHostAddress& address1, const QHostAddress& address2);
/// @name Comparison of lists
/// Whether two lists have an entry in common that is not loopback. Compares texts as they
/// are; looks them up only to find out whether they are loopback.
/// @{
bool isSameHost(const QList<QHostAddress>& addresses1, const QList<QHostAddress>& addresses2);
bool isSameHost(const QList<QHostAddress>& hostNamesAndAddresses1,
                const QStringList& hostNamesAndAddresses2);
bool isSameHost(const QStringList& hostNamesAndAddresses1,
                const QStringList& hostNamesAndAddresses2);
/// @}
/// Whether two names are equal, are both loopback, or have an address in common that is not
/// loopback. Looks both names up unless they are equal.
bool isSameHost(const QString& hostName1, const QString& hostName2);

/// Parses an address, or looks a name up. Empty when the look-up fails.
QList<QHostAddress> resolveHostNameOrAddress(const QString& hostNameOrAddress);
/// `list1`, followed by the entries of `list2` that are not in `list1`, in their order.
QList<QHostAddress> mergeAddressLists(const QList<QHostAddress>& list1,
                                      const QList<QHostAddress>& list2);
/// The addresses of all names and addresses of one host, each once, in the order of the
/// list. Empty when all look-ups fail.
QList<QHostAddress> resolveHostNamesAndAddresses(const QStringList& hostNamesAndAddresses);

/// The addresses of a host, IPv4 before IPv6, without loopback addresses. Empty when the
/// look-up fails.
QList<QHostAddress> hostAddresses(const QString& hostName);
/// The name, its canonical name if that differs and is not loopback (which may need a
/// second look-up), and the texts of its hostAddresses(). On a Blue Gene, or with the
/// switch FORCE_IP_HOSTNAME, the addresses come first.
QStringList hostNameAndAddresses(const QString& hostName);
