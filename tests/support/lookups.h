// Counts the look-ups that a test program makes; the program is linked with
// -Wl,--wrap=getaddrinfo,--wrap=getnameinfo.

#pragma once

/// Look-ups of names and of addresses since the program began.
extern int forwardLookups;
extern int reverseLookups;
