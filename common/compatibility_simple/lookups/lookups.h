#pragma once

#include <QByteArray>
#include <QByteArrayList>

#include <netdb.h>
#include <pwd.h>

/// Look-ups of hosts and users. They ask the C library, or the machine's getent(1) in the
/// portable build: a static C library would load the machine's modules (nsswitch.conf(5)),
/// which belong to another version of it. No other code asks either of them.
///
/// Names and texts are bytes in the locale's encoding. All look-ups block.
namespace Lookups {

/// The result of hostOfName().
struct Host
{
    /// Null when the name is unknown.
    QByteArray canonicalName;
    /// IPv4 and IPv6 addresses, whether or not this host has IPv6, each once, in the
    /// resolver's order and in the form of inet_ntop(3). An address with a scope has the
    /// number of the interface after a percent sign (RFC 4007, section 11).
    QByteArrayList addresses;
};

/// The addresses of a host name. None when the name is unknown or the look-up fails.
Host hostOfName(const QByteArray& name);

/// The name of an address in a form that inet_pton(3) accepts, that is, without a scope.
/// Null when the address has no name.
QByteArray nameOfAddress(const QByteArray& address);

/// The user of that name; null when there is none. The next look-up of a user overwrites
/// the result, see getpwnam(3).
passwd* userOfName(const QByteArray& name);

} // namespace Lookups

/// The user of that id, as getpwuid(3) returns it; null when there is none. The next
/// look-up of a user overwrites the result.
passwd* sc_getpwuid(uid_t uid);
/// The IPv4 addresses of a name, as gethostbyname(3) returns them; null, with h_errno set,
/// when there are none, and for a null name. The next call overwrites the result.
hostent* sc_gethostbyname(const char* name);
