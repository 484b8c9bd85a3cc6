#pragma once

#include <sys/types.h>

/// Ignores SIGPIPE in this process. The second and later calls do nothing. Returns 0, or
/// the result of a failed sigaction(2).
int ignoreSigPipe();

/// Sends a signal as kill(2) does. If the setting DEBUG_SC_KILL is not empty, logs each
/// signal except 0 as a debug message, and does not send those that the setting names, as
/// "ignore{15}" names SIGTERM; such a call returns 0.
int sc_kill(pid_t pid, int signo);
