// Signals to and of this process.

#pragma once

#include <sys/types.h>

/// Ignores SIGPIPE, once for the process. 0, or what sigaction(2) returned.
int ignoreSigPipe();

/// As kill(2), but the setting DEBUG_SC_KILL may name signals that are not to
/// be sent, as "ignore{15}" for signal 15; such a call succeeds. While the
/// setting is there, every signal but the probe 0 is logged as a debug message.
int sc_kill(pid_t pid, int signo);
