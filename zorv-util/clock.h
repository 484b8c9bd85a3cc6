#pragma once

#include <ctime>

/// Reads a clock as clock_gettime(2) does. Returns 0, or -1 with errno set.
int sc_clock_gettime(int clockId, timespec* result);
