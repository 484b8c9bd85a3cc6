// The stack size limit that the launcher itself runs under.

#pragma once

#include <optional>
#include <sys/resource.h>

/// Soft stack limits that the launcher keeps, in bytes, both ends included, and the one
/// under which it starts its fresh copy otherwise.
constexpr rlim_t lowestStackLimit = 8UL * 1024 * 1024;
constexpr rlim_t highestStackLimit = 64UL * 1024 * 1024;
constexpr rlim_t freshCopyStackLimit = 16UL * 1024 * 1024;

/// Whether a program stays as it is under this soft limit.
constexpr bool keepsStackLimit(rlim_t soft)
{
    return soft == RLIM_INFINITY || (soft >= lowestStackLimit && soft <= highestStackLimit);
}

/// Sees to it that the program runs under a sensible stack limit, without its
/// children noticing. When the soft RLIMIT_STACK is finite and outside 8 MiB to
/// 64 MiB, the process is replaced, once, by a fresh copy of itself started
/// under 16 MiB; the fresh copy puts the user's limit back. (The kernel lays a
/// process out by the limit at its exec, see execve(2) and getrlimit(2).)
///
/// The user's limit travels in the variable TALVORA_OLD_STACK_LIMIT, which the
/// fresh copy removes; a value that is no plain unsigned decimal number is
/// ignored. The switch IGNORE_STACK_LIMIT turns all of it off.
///
/// To be called first in main, with main's own arguments. `beforeExec` is called right
/// before the process is replaced, if it is. Returns whenever the process is not
/// replaced; failures of system calls are printed to standard error, and the program
/// carries on under the limit that it has.
void fixStackLimit(int argc, const char* const* argv, void (*beforeExec)() = nullptr);

/// The user's stack limit where the program runs under another one, because
/// fixStackLimit() could not replace the process. Arguments that fit under the user's
/// limit need not fit under this one, see execve(2).
std::optional<rlimit> userStackLimit();

/// The limit that the variable TALVORA_OLD_STACK_LIMIT holds; none when it is not set or
/// not a plain unsigned decimal number.
std::optional<rlim_t> rememberedStackLimit();
