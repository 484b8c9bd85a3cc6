// The limit on open descriptors.

#pragma once

#include <algorithm>
#include <sys/resource.h>

/// Raises the process's soft limit so that the descriptor `fd` may be used.
/// False when the hard limit is too low or a call fails.
inline bool allowDescriptor(int fd)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, static_cast<rlim_t>(fd) + 1);
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}
