#pragma once

#include <QHostAddress>
#include <QHostInfo>
#include <QString>

/// Looks up a host name or the name of an address. Unlike QHostInfo::fromName(), gives
/// the canonical name. Blocks the calling thread; the resolver sets the time limit, see
/// resolv.conf(5).
///
/// For a name, hostName() is the canonical name, and addresses() are all IPv4 and IPv6
/// addresses in the resolver's order, whether or not this host has IPv6; if the look-up
/// fails, hostName() is the given name, and there are no addresses. For the text of an
/// address, hostName() is the name that the reverse look-up finds, or else the text, and
/// addresses() is that address.
QHostInfo lookUpHost(const QString& nameOrAddress);

/// Parses the text of an address; null for any other text. An IPv4 address consists of
/// four decimal numbers. The shorter and octal forms of inet_aton(3), such as "10",
/// "127.1" and "010.0.0.1", are not parsed: they may be host names.
QHostAddress parseAddress(const QString& text);
