#pragma once

#include <QString>

/// A byte order. endiannessFromArch() and sc_localEndianness() return only ENDIAN_BIG and
/// ENDIAN_LITTLE.
enum Endianness { ENDIAN_UNKNOWN, ENDIAN_BIG, ENDIAN_LITTLE, ENDIAN_HETEROGENEOUS };

/// A one-line description of the operating system for logs and reports: the answer of
/// lsb_release, or else the distribution's file in /etc, or else the kernel's name. On
/// other systems than Linux, the kernel's name, release and machine. Cached at the first
/// call.
QString sc_uname();
/// The processor architecture as uname(2) reports it, such as "x86_64". Cached at the first
/// call.
QString sc_arch();
/// "knl" on a Xeon Phi, "bgq" on a Blue Gene/Q, null on all other machines.
QString sc_subArch();

/// Whether one of the paths /proc/cray_xt/nid, /sys/cray and /etc/opt/cray exists.
bool sc_isCray();

/// The setting FAKE_BLUEGENE; null when it is not set. The values "q" and "bgq" make
/// sc_isBluegeneQNode() true.
QString sc_fakeBluegene();
/// The setting FAKE_BLUEGENE as a switch. Cached at the first call.
bool sc_isFakeBluegene();
/// Whether this host is a compute node of a Blue Gene/Q: faked, or by the variable
/// BG_NODE_TYPE or the device /dev/bgpers. Cached at the first call.
bool sc_isBluegeneQNode();
/// Whether this host is a compute node of a Blue Gene. The same as sc_isBluegeneQNode(),
/// as the suite supports no other model.
bool sc_isBluegeneNode();
/// Whether this host is a compute or front-end node of a Blue Gene/Q: a compute node, or by
/// the variable BGQDRV, an installed runjob or the switch FORCE_BGQ_SUPPORT. Cached at the
/// first call.
bool sc_isBluegeneQ();
/// Records whether the session has Blue Gene nodes. False until then.
void sc_setHasBluegeneNodes(bool hasBluegeneNodes);
/// Whether the session has Blue Gene nodes: recorded, or this host belongs to a Blue
/// Gene/Q.
bool sc_hasBluegeneNodes();
/// Whether this host or the session belongs to a Blue Gene. Addresses then come before
/// names, see hostNameAndAddresses().
bool sc_isBluegene();

/// The root directory of the installation for another architecture, or the path `relPath`
/// in it unless that is null. This installation's file bin/zorv-debugger.ARCH, a link to
/// the other installation's helper, tells the directory. Null when it is missing.
QString sc_findArch(const QString& arch, const QString& relPath);

/// The byte order of an architecture: big for "ppc" and "ppc64", little for all others.
Endianness endiannessFromArch(const QString& arch);
/// The byte order that this program was built for.
Endianness sc_localEndianness();
/// Whether this program was built for 64-bit POWER with the ELFv2 ABI.
bool sc_isPpc64Elf2();

/// The translated title of the options in the user interface.
QString sc_optionsName();
