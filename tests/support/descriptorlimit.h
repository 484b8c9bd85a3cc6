// The limit on open descriptors.

#pragma once

#include <sys/resource.h>

/// Raises the process's soft limit so that the descriptor `fd` may be used.
/// False when the hard limit is too low or a call fails.
inline bool allowDescriptor(int fd)
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1) {
        return false;
    }
    const rlim_t needed = static_cast<rlim_t>(fd) + 1;
    if (limit.rlim_cur >= needed) {
        return true;
    }
    limit.rlim_cur = needed;
    return needed <= limit.rlim_max && setrlimit(RLIMIT_NOFILE, &limit) == 0;
}
