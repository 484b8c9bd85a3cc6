// The sources of look-ups. Each offers the functions of lookups.h.

#pragma once

#include "common/compatibility_simple/lookups/lookups.h"

/// The C library. Missing in the portable build.
namespace Lookups::CLibrary {
Host hostOfName(const QByteArray& name);
QByteArray nameOfAddress(const QByteArray& address);
passwd* userOfName(const QByteArray& name);
passwd* userOfId(uid_t uid);
hostent* hostentOfName(const QByteArray& name);
} // namespace Lookups::CLibrary

/// The machine's getent(1), which asks the C library of the machine, or EtcFiles where
/// there is no getent. Its answers differ from those of the C library:
///
/// - On a host with IPv6 alone, a getent older than that of glibc 2.37 leaves out the
///   IPv4 addresses of a name that also has IPv6 addresses.
/// - A user name that consists of digits is looked up in /etc/passwd only: getent takes
///   it for a user id.
/// - hostentOfName() gives the addresses in the order of getaddrinfo(3), and no aliases.
/// - After a getent has not answered within 15 s or has written more than 1 MiB, one line
///   is printed, and all later look-ups find nothing. With Qt before 6.6, the time begins
///   when the kernel has loaded getent: the caller is blocked in vfork(2) until then.
namespace Lookups::Getent {
Host hostOfName(const QByteArray& name);
QByteArray nameOfAddress(const QByteArray& address);
passwd* userOfName(const QByteArray& name);
passwd* userOfId(uid_t uid);
hostent* hostentOfName(const QByteArray& name);
} // namespace Lookups::Getent

/// The files /etc/hosts and /etc/passwd. A host has the addresses of all its lines, in
/// their order, as with "multi on" in host.conf(5).
namespace Lookups::EtcFiles {
Host hostOfName(const QByteArray& name);
QByteArray nameOfAddress(const QByteArray& address);
/// The first line of passwd(5) whose field number `field`, counted from 0, is `text`;
/// null when there is none.
QByteArray userLine(int field, const QByteArray& text);
} // namespace Lookups::EtcFiles
