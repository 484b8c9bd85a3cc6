#pragma once

#include <QByteArray>

#include <csignal>
#include <sys/types.h>

// How the launcher treats signals, see signal(7):
//
// - A signal that ends it (SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP,
//   SIGQUIT, SIGILL, SIGTRAP, SIGSYS, SIGSTKFLT) removes the marker file and is sent to
//   the helper; then the launcher ends by the same signal.
// - A signal that stops it (SIGTSTP, SIGTTIN, SIGTTOU) is sent to the helper; then the
//   launcher stops.
// - SIGUSR1, SIGUSR2, SIGCONT, SIGWINCH, SIGURG, SIGALRM, SIGVTALRM, SIGPROF, SIGXCPU,
//   SIGPWR, SIGIO and the real-time signals are sent to the helper, those of sigqueue(3)
//   with their value. If no helper runs, they wait for the next one.
//
// A signal that the terminal sent to the whole process group is not sent to a helper in
// that group, which has received it from the terminal.

/// The signals of the third group. May be called before main.
sigset_t passedSignals();

/// Installs the handlers for the signals of the second and third group, ignored ones
/// included: the helper may have set a handler of its own. An ignored stop signal does
/// not stop the launcher. Unblocks the signals of the third group; the helper gets them
/// even if they were blocked at the start. Call it once, on the main thread, before any
/// other function of this file.
void handlePassedSignals();

/// Installs the handlers for the signals that end the launcher, ignored ones included.
/// An ignored SIGHUP stays ignored, so that launcher and helper survive the hang-up
/// under nohup(1).
void handleEndingSignals();

/// Blocks all handled signals on the calling thread until releaseSignals().
void holdSignals();
/// Unblocks the handled signals. The handlers of pending ones run before it returns.
void releaseSignals();

/// Ignores the handled signals that the helper is to ignore; the exec resets the others.
/// Call it in the child between fork and exec, while the handled signals are blocked. Until
/// the exec, a signal that ends a process by default ends the child, and the others have no
/// effect. Makes only async-signal-safe calls.
void prepareSignalsForExec();

/// Sets the child process that signals are sent to; 0 for none.
void setSignalledHelper(pid_t helper);
/// Sets the path of the marker file that a signal that ends the launcher removes. Copies
/// the path. Call it once.
void setMarker(const QByteArray& fileName);

/// Waits for the orphans that have ended and whose parent this process has become. Leaves
/// the helper to its QProcess. Never blocks. Does nothing unless this process is the first
/// of its PID namespace or a child subreaper (PR_SET_CHILD_SUBREAPER in prctl(2)).
void reapOrphans();

/// Ends the launcher if it has received a signal that ends it. Call it when the helper has
/// ended. The first process of a PID namespace and a child subreaper end only then: the
/// kernel kills all other processes when the first one ends, and the helper could not
/// clean up, see pid_namespaces(7).
void endIfSignalled();
