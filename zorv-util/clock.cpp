// The clock that log records are stamped with.

#include "zorv-util/clock.h"

int sc_clock_gettime(int clockId, timespec* result)
{
    return clock_gettime(clockId, result);
}
