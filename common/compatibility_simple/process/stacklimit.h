#pragma once

#include <optional>
#include <sys/resource.h>

/// In bytes: the lowest and the highest soft stack limit under which the launcher runs, and
/// the one under which it restarts itself otherwise.
constexpr rlim_t lowestStackLimit = 8UL * 1024 * 1024;
constexpr rlim_t highestStackLimit = 64UL * 1024 * 1024;
constexpr rlim_t freshCopyStackLimit = 16UL * 1024 * 1024;

/// Whether fixStackLimit() keeps a soft limit, in bytes: from lowestStackLimit to
/// highestStackLimit, or unlimited.
constexpr bool keepsStackLimit(rlim_t soft)
{
    return soft == RLIM_INFINITY || (soft >= lowestStackLimit && soft <= highestStackLimit);
}

/// Runs the program under a stack limit of its own, and keeps the user's limit for its
/// children. If keepsStackLimit() is false for the soft RLIMIT_STACK, executes the program
/// again, once, under freshCopyStackLimit; the new copy restores the user's limit. (The
/// kernel lays out the stack at the exec, see execve(2) and getrlimit(2).)
///
/// The variable TALVORA_OLD_STACK_LIMIT passes the user's limit to the new copy, which
/// removes the variable. A value that is not an unsigned decimal number is ignored. The
/// switch IGNORE_STACK_LIMIT turns the function off.
///
/// Call it first in main, with main's arguments. Calls `beforeExec`, unless that is null, right
/// before it executes the program again. Returns when the process is not replaced. Prints the
/// error of a failed system call to standard error and keeps the current limit.
void fixStackLimit(int argc, const char* const* argv, void (*beforeExec)() = nullptr);

/// The user's stack limits if the program runs under another one because fixStackLimit()
/// could not replace the process; otherwise none. Arguments that fit under the user's limit
/// may not fit under the other one, see execve(2).
std::optional<rlimit> userStackLimit();

/// The soft limit in bytes that the variable TALVORA_OLD_STACK_LIMIT holds; none when it is
/// not set or not an unsigned decimal number.
std::optional<rlim_t> rememberedStackLimit();
