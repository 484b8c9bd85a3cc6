// What the campaigns share.

#pragma once

#include <string>

/// A random number from 0 to `count` - 1.
long pick(long count);

/// Prints and counts what was wrong with the trial that runs.
void wrong(const char* kind, const std::string& what);

/// One trial of the mode "sessionfiles".
void trySessionFile(long number);
