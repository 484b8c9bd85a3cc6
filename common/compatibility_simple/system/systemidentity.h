// What machine this is: operating system, processor, Cray, Blue Gene.

#pragma once

#include <QString>

enum Endianness { ENDIAN_UNKNOWN, ENDIAN_BIG, ENDIAN_LITTLE, ENDIAN_HETEROGENEOUS };

/// One line on the operating system, for logs and reports: what lsb_release says,
/// else what the distribution's file in /etc says, else the kernel's name;
/// elsewhere than on Linux the kernel's name, release and machine. Found out
/// once in a process.
QString sc_uname();
/// The processor architecture as the kernel reports it, see uname(2).
QString sc_arch();
/// "knl" on a Xeon Phi, "bgq" on a Blue Gene/Q, null on all others.
QString sc_subArch();

bool sc_isCray();

// sc_isFakeBluegene(), sc_isBluegeneQNode() and sc_isBluegeneQ() are each
// answered once in a process, whatever the environment does later. A Blue Gene/Q
// may be pretended by setting FAKE_BLUEGENE to "q" or "bgq".

/// The setting FAKE_BLUEGENE, as a text and as a switch.
QString sc_fakeBluegene();
bool sc_isFakeBluegene();
/// Whether this is a compute node of a Blue Gene/Q.
bool sc_isBluegeneQNode();
bool sc_isBluegeneNode();
/// Whether this is a compute or a front-end node of a Blue Gene/Q.
bool sc_isBluegeneQ();
/// Whether the session has Blue Gene nodes, told by whoever knows, or this is one.
void sc_setHasBluegeneNodes(bool hasBluegeneNodes);
bool sc_hasBluegeneNodes();
bool sc_isBluegene();

/// The root of the installation for another architecture, or `relPath` in it;
/// null when there is none. It is found by this installation's file
/// bin/zorv-debugger.ARCH, a link to the other's helper.
QString sc_findArch(const QString& arch, const QString& relPath);

Endianness endiannessFromArch(const QString& arch);
/// The byte order that this program was built for.
Endianness sc_localEndianness();
/// Whether this program was built for 64-bit POWER with the ELFv2 ABI.
bool sc_isPpc64Elf2();

/// What users know the options as.
QString sc_optionsName();
