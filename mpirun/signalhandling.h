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
//   with their value. Without a helper they wait for the next one.
//
// A signal that the terminal sent to the whole process group is not sent to a helper in
// that group: it has it already.

/// The signals of the third group.
sigset_t passedSignals();

/// Sends the signals of the second and third group on from now on, those that are ignored
/// included: the helper inherits that, and may have a handler. A stop that is ignored does
/// not stop the launcher. Unblocks those of the third: a
/// helper that has them blocked gets them all the same. Call it once, on the main
/// thread, before any other function of this file.
void handlePassedSignals();

/// Handles the signals that end the launcher from now on, those that are ignored
/// included. SIGHUP stays ignored if it is: the user of nohup(1) wants both to live on.
void handleEndingSignals();

/// Holds all handled signals back until releaseSignals().
void holdSignals();
/// Lets signals in again. Those that arrived meanwhile are handled before it returns.
void releaseSignals();

/// Gives all signals that the functions above handle the action that the helper is to
/// find, for the child between fork and exec. Until the exec, signals that stop have no
/// effect. Makes async-signal-safe calls only.
void resetSignalHandlers();

/// Names the process that signals are sent to, a child of this process; 0 for none.
void setSignalledHelper(pid_t helper);
/// Names the marker file that a signal that ends the launcher removes.
void setMarker(const QByteArray& fileName);

/// Reaps the children that other processes have left to this one, except the helper.
/// Does nothing unless this process is the first of its PID namespace or a child
/// subreaper (PR_SET_CHILD_SUBREAPER in prctl(2)).
void reapOrphans();

/// Ends the launcher if a signal to do so is waiting for the helper's end. The first
/// process of a PID namespace and a child subreaper wait for it: when the first process
/// ends, the kernel kills all others, and the helper could not clean up.
void endIfSignalled();
