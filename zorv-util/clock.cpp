#include "zorv-util/clock.h"

int sc_clock_gettime(int clockId, timespec* result)
{
    return clock_gettime(clockId, result);
}
