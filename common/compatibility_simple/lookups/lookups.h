// Look-ups of hosts and users. These are the only places that ask the C library's
// resolver and user database, or, in the portable build, the machine's getent(1): a
// static C library would load the machine's modules for them (nsswitch.conf(5)), which
// are made for another version of it.
//
// Names and texts are bytes in the local encoding. All look-ups block.

#pragma once

#include <QByteArray>
#include <QByteArrayList>

#include <netdb.h>
#include <pwd.h>

namespace Lookups {

/// What is known about a host name.
struct Host
{
    /// Null when the name is unknown.
    QByteArray canonicalName;
    /// In the resolver's order, each address once, IPv4 and IPv6 whether or not this
    /// host has IPv6; as inet_ntop(3) writes them, with the number of the interface
    /// after a percent sign for an address that has a scope (RFC 4007, 11).
    QByteArrayList addresses;
};

/// The host of that name. An unknown name, and a look-up that fails, gives no addresses.
Host hostOfName(const QByteArray& name);

/// The name of an address that inet_pton(3) reads, which knows no scopes. Null when there
/// is none.
QByteArray nameOfAddress(const QByteArray& address);

/// The user of that name; null when there is none. The next look-up of a user
/// overwrites it, see getpwnam(3).
passwd* userOfName(const QByteArray& name);

} // namespace Lookups

/// getpwuid(3).
passwd* sc_getpwuid(uid_t uid);
/// gethostbyname(3). Null for a null name.
hostent* sc_gethostbyname(const char* name);
