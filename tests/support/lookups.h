// Records the look-ups that a test program makes; the program is linked with
// -Wl,--wrap=getaddrinfo,--wrap=getnameinfo.

#pragma once

#include <QStringList>

/// Look-ups of names and of addresses since the last resetLookups().
extern int forwardLookups;
extern int reverseLookups;
/// The names that were looked up, in order.
extern QStringList lookedUpNames;

void resetLookups();
