// The sources that a look-up can ask. Each offers the same functions: those of
// lookups.h, and the two that return what the C library's functions do.

#pragma once

#include "common/compatibility_simple/lookups/lookups.h"

/// The C library. Not there in the portable build.
namespace Lookups::CLibrary {
Host hostOfName(const QByteArray& name);
QByteArray nameOfAddress(const QByteArray& address);
passwd* userOfName(const QByteArray& name);
passwd* userOfId(uid_t uid);
hostent* hostentOfName(const QByteArray& name);
} // namespace Lookups::CLibrary

/// The machine's getent(1), which asks the C library of the machine; EtcFiles where
/// there is no getent. It differs from the C library in this:
///
/// - A getent older than that of glibc 2.37 leaves out the IPv4 addresses of a name
///   that has IPv6 addresses, too, on a host with IPv6 alone.
/// - A user whose name consists of digits is looked for in /etc/passwd alone, as
///   getent takes these for a user id.
/// - hostentOfName() orders the addresses as getaddrinfo(3) does, and has no aliases.
/// - A getent that does not answer within 15 s, or writes more than 1 MiB, is asked
///   nothing more, and one line says so.
namespace Lookups::Getent {
Host hostOfName(const QByteArray& name);
QByteArray nameOfAddress(const QByteArray& address);
passwd* userOfName(const QByteArray& name);
passwd* userOfId(uid_t uid);
hostent* hostentOfName(const QByteArray& name);
} // namespace Lookups::Getent

/// /etc/hosts and /etc/passwd. A host has the addresses of all its lines, in their order,
/// as with "multi on" in host.conf(5).
namespace Lookups::EtcFiles {
Host hostOfName(const QByteArray& name);
QByteArray nameOfAddress(const QByteArray& address);
/// The line of passwd(5) that has the text in that field, counted from 0; null when
/// there is none.
QByteArray userLine(int field, const QByteArray& text);
} // namespace Lookups::EtcFiles
