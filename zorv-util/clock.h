// The clock that log records are stamped with.

#pragma once

#include <ctime>

/// As clock_gettime(2): 0, or -1 with errno set.
int sc_clock_gettime(int clockId, timespec* result);
