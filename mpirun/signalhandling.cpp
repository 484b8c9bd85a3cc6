#include "mpirun/signalhandling.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

// The handlers make only async-signal-safe calls, see signal-safety(7), and plain system
// calls: waitid(2) and those through syscall(2).

namespace {

constexpr int endingSignals[] = {
    SIGABRT,   SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP, SIGQUIT, SIGILL, SIGTRAP, SIGSYS,
#ifdef SIGSTKFLT
    SIGSTKFLT,
#endif
};
constexpr int stoppingSignals[] = {SIGTSTP, SIGTTIN, SIGTTOU};
constexpr int passedStandardSignals[] = {SIGUSR1,   SIGUSR2, SIGCONT, SIGWINCH, SIGURG, SIGALRM,
                                         SIGVTALRM, SIGPROF, SIGXCPU, SIGPWR,   SIGIO};
constexpr int terminalSignals[] = {SIGINT,  SIGQUIT, SIGHUP,   SIGTSTP,
                                   SIGTTIN, SIGTTOU, SIGWINCH, SIGCONT};
constexpr int faultSignals[] = {SIGSEGV, SIGFPE, SIGBUS, SIGILL, SIGTRAP, SIGSYS};

// The signals that have no effect on the child before its exec. A child that stops would
// block the launcher in vfork(2); the launcher has the signal, too, and sends it to the
// helper later.
constexpr int withoutEffectInChild[] = {SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGURG, SIGWINCH};

// The process id of the helper, or 0, and the path of the marker, or null; never freed.
std::atomic<pid_t> pid = 0;
std::atomic<char*> g_restartSupportedFileName = nullptr;
static_assert(std::atomic<pid_t>::is_always_lock_free);
static_assert(std::atomic<char*>::is_always_lock_free);

// The signal that ends the launcher when the helper has ended, or 0.
std::atomic<int> g_endingSignal = 0;
// Signals from the terminal that another thread has handed over to the main thread.
std::atomic<bool> g_handedOverFromTerminal[NSIG] = {};

// Set before the handlers are installed.
pid_t g_launcher = 0;
bool g_reapsOrphans = false;
sigset_t g_ownMask;
sigset_t g_handledSignals;
sigset_t g_ignoredSignals;

// The stack of the handlers in the child between fork and exec. The child's own stack is
// too small: QProcess gives it 4 KiB, and with AVX-512 the kernel saves more than that,
// see sigaltstack(2).
constexpr std::size_t childStackSize = 65536;
char g_childStack[childStackSize];

// How long the leader of a session waits for the helper's end.
constexpr int leaderWaitMs = 10000;
constexpr int pollIntervalMs = 10;

// The signals that were pending when releaseSignals() began; empty outside of it.
sigset_t g_waitedForRelease;

// The signals that were pending for the launcher, but not for the child, right after the
// fork. The child writes it into the launcher's memory, which it shares, see vfork(2).
sigset_t g_olderThanHelper;
std::atomic<bool> g_knowsOlderSignals = false;
// Static, because the stack of the child is small.
constexpr std::size_t statusSize = 8192;
char g_status[statusSize];
char g_statusFile[64];

template <std::size_t Size> bool contains(const int (&signals)[Size], int signo)
{
    return std::find(std::begin(signals), std::end(signals), signo) != std::end(signals);
}

bool reapsOrphans()
{
    int isSubreaper = 0;
    prctl(PR_GET_CHILD_SUBREAPER, &isSubreaper, 0, 0, 0);
    return isSubreaper != 0 || getpid() == 1;
}

// Whether `pid` is a child that has not been waited for. After the wait, the number may
// belong to another process.
bool isOurChild(siginfo_t* info)
{
    info->si_pid = 0;
    return pid != 0 &&
           waitid(P_PID, static_cast<id_t>(pid.load()), info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

bool hasHelper()
{
    siginfo_t info;
    return isOurChild(&info);
}

bool helperRuns()
{
    siginfo_t info;
    return isOurChild(&info) && info.si_pid == 0;
}

bool isFromTerminal(int signo, const siginfo_t& info)
{
    // SI_KERNEL alone does not tell: timers send signals with it, too.
    const bool handedOver =
        info.si_code == SI_TKILL && info.si_pid == g_launcher && g_handedOverFromTerminal[signo];
    return (info.si_code == SI_KERNEL || handedOver) && contains(terminalSignals, signo);
}

// Whether the helper has received the same signal from the terminal.
bool helperHasIt(int signo, const siginfo_t& info)
{
    // A pending signal may be older than the helper.
    if (!isFromTerminal(signo, info) || sigismember(&g_waitedForRelease, signo) == 1) {
        return false;
    }
    // The kernel sends these two for a hang-up to the leader of the session alone.
    const bool isHangUp = signo == SIGHUP || signo == SIGCONT;
    return getpgid(pid) == getpgrp() && !(isHangUp && getsid(0) == g_launcher);
}

void sendToHelper(int signo, const siginfo_t& info)
{
    // sigqueue(3) fails when the receiver's queue is full.
    if (info.si_code != SI_QUEUE || sigqueue(pid, signo, info.si_value) == -1) {
        kill(pid, signo);
    }
}

void unblockAndRaise(int signo)
{
    sigset_t signals;
    sigset_t previous;
    sigemptyset(&signals);
    sigaddset(&signals, signo);
    raise(signo);
    sigprocmask(SIG_UNBLOCK, &signals, &previous);
    sigprocmask(SIG_SETMASK, &previous, nullptr);
}

void stopBySignal(int signo)
{
    struct sigaction handler;
    sigaction(signo, nullptr, &handler);
    signal(signo, SIG_DFL);
    unblockAndRaise(signo);
    sigaction(signo, &handler, nullptr);
}

// The kernel discards a signal with the default action that the first process of a PID
// namespace raises, see pid_namespaces(7); exit there.
void endBySignal(int signo)
{
    signal(signo, SIG_DFL);
    raise(signo);
    if (getpid() == 1) {
        _exit(128 + signo);
    }
}

// Sends the signal to the main thread. A handler may run on a thread that a preloaded
// library has started; holdSignals() does not block signals there.
void handOver(int signo, const siginfo_t& info)
{
    siginfo_t copy = info;
    if (info.si_code == SI_QUEUE &&
        syscall(SYS_rt_tgsigqueueinfo, g_launcher, g_launcher, signo, &copy) == 0) {
        return;
    }
    // A process cannot send a signal with the code SI_KERNEL.
    g_handedOverFromTerminal[signo] = info.si_code == SI_KERNEL;
    syscall(SYS_tgkill, g_launcher, g_launcher, signo);
}

// Whether the thread has caused the signal itself. Such a signal must be handled at once:
// when the handler returns, the faulting instruction runs again, and abort(3) ends the
// process.
bool isOwnFault(int signo, const siginfo_t& info)
{
    return (contains(faultSignals, signo) && info.si_code > 0) ||
           (signo == SIGABRT && info.si_code == SI_TKILL && info.si_pid == g_launcher);
}

// Ends the child between fork and exec by a signal that has reached it. The child keeps the
// launcher's handlers until the exec, which resets them: sixty system calls less than with
// the default actions.
void handleInChild(int signo)
{
    if (!contains(withoutEffectInChild, signo)) {
        signal(signo, SIG_DFL);
        // Not raise(3): the C library may take the thread id from the launcher's memory.
        kill(getpid(), signo);
    }
}

// Whether the calling handler must act on the signal. Otherwise, hands it over to the main
// thread, or handles it for the child.
bool isForThisThread(int signo, const siginfo_t& info)
{
    if (getpid() != g_launcher) {
        handleInChild(signo);
        return false;
    }
    if (!isOwnFault(signo, info) && syscall(SYS_gettid) != g_launcher) {
        handOver(signo, info);
        return false;
    }
    return true;
}

bool canWaitForHelper(int signo, const siginfo_t& info)
{
    return g_reapsOrphans && !isOwnFault(signo, info) && helperRuns();
}

bool hasTerminal()
{
    const int terminal = open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC);
    if (terminal != -1) {
        close(terminal);
    }
    return terminal != -1;
}

// Whether the helper would get SIGHUP when the launcher ends: when the leader of a session
// ends, the kernel sends SIGHUP to the foreground process group of its terminal, see
// _exit(2).
bool hangsHelperUp(int signo)
{
    if (getsid(0) != g_launcher || getpgid(pid) != getpgrp()) {
        return false;
    }
    // After a hang-up, /dev/tty cannot be opened.
    return hasTerminal() || signo == SIGHUP;
}

void waitForHelper()
{
    const timespec interval = {0, pollIntervalMs * 1000000L};
    for (int waited = 0; waited < leaderWaitMs && helperRuns(); waited += pollIntervalMs) {
        nanosleep(&interval, nullptr);
    }
}

// A stopped helper handles the signal only when it continues.
void continueIfStopped()
{
    siginfo_t info;
    info.si_pid = 0;
    if (waitid(P_PID, static_cast<id_t>(pid.load()), &info, WSTOPPED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid != 0) {
        kill(pid, SIGCONT);
    }
}

void signalHelperToEnd(int signo, const siginfo_t& info)
{
    if (!helperHasIt(signo, info)) {
        sendToHelper(signo, info);
    }
    continueIfStopped();
    if (!isOwnFault(signo, info) && !g_reapsOrphans && hangsHelperUp(signo)) {
        waitForHelper();
    }
}

void removeMarker()
{
    if (const char* marker = g_restartSupportedFileName) {
        unlink(marker);
    }
}

// Ends the launcher: removes the marker, sends the signal to the helper, and raises it.
void sighandler(int signo, siginfo_t* info, void*)
{
    const int savedErrno = errno;
    if (isForThisThread(signo, *info)) {
        const bool waits = canWaitForHelper(signo, *info);
        removeMarker();
        if (hasHelper()) {
            signalHelperToEnd(signo, *info);
        }
        if (waits) {
            int none = 0;
            g_endingSignal.compare_exchange_strong(none, signo);
        } else {
            endBySignal(signo);
        }
    }
    errno = savedErrno;
}

void stoppingHandler(int signo, siginfo_t* info, void*)
{
    const int savedErrno = errno;
    if (isForThisThread(signo, *info)) {
        if (helperRuns() && !helperHasIt(signo, *info)) {
            sendToHelper(signo, *info);
        }
        if (sigismember(&g_ignoredSignals, signo) == 0) {
            stopBySignal(signo);
        }
    }
    errno = savedErrno;
}

void passingHandler(int signo, siginfo_t* info, void* context)
{
    const int savedErrno = errno;
    if (isForThisThread(signo, *info)) {
        if (!helperRuns()) {
            // Keeps the signal pending until releaseSignals() after the next start. A
            // process may send itself a signal with any code.
            sigaddset(&static_cast<ucontext_t*>(context)->uc_sigmask, signo);
            syscall(SYS_rt_tgsigqueueinfo, g_launcher, g_launcher, signo, info);
        } else if (!helperHasIt(signo, *info)) {
            sendToHelper(signo, *info);
        }
    }
    errno = savedErrno;
}

// Makes the stack of handlers in the child large enough.
void useChildStack()
{
    stack_t stack = {};
    stack.ss_sp = g_childStack;
    stack.ss_size = childStackSize;
    sigaltstack(&stack, nullptr);
}

// Reads the signals that are pending for the launcher, from the line ShdPnd of
// /proc/PID/status, see proc(5). Returns false if that is impossible.
bool readPendingOfLauncher(sigset_t* signals)
{
    const int fd = open(g_statusFile, O_RDONLY | O_CLOEXEC);
    if (fd == -1) {
        return false;
    }
    const ssize_t size = read(fd, g_status, statusSize - 1);
    close(fd);
    g_status[size > 0 ? size : 0] = '\0';
    constexpr const char* key = "ShdPnd:\t";
    constexpr int digits = 16;
    const char* digit = strstr(g_status, key);
    if (!digit) {
        return false;
    }
    digit += strlen(key);
    sigemptyset(signals);
    for (int i = 0; i < digits; ++i, ++digit) {
        const int value = *digit <= '9' ? *digit - '0' : *digit - 'a' + 10;
        for (int bit = 0; bit < 4; ++bit) {
            if ((value >> bit & 1) != 0) {
                sigaddset(signals, (digits - 1 - i) * 4 + bit + 1);
            }
        }
    }
    return true;
}

// Called in the child. A signal from the terminal that is pending for the launcher, but not
// for the child, is older than the child.
void noteOlderSignals()
{
    sigset_t own;
    if (hasTerminal() && readPendingOfLauncher(&g_olderThanHelper) && sigpending(&own) == 0) {
        for (int signo : terminalSignals) {
            if (sigismember(&own, signo) == 1) {
                sigdelset(&g_olderThanHelper, signo);
            }
        }
        g_knowsOlderSignals = true;
    }
}

// Removes the signals that the helper has received from the terminal from the pending
// ones. Stop signals stay: the child has ignored them.
void forgetSignalsOfHelper()
{
    for (int signo : terminalSignals) {
        if (!contains(stoppingSignals, signo) && sigismember(&g_olderThanHelper, signo) == 0) {
            sigdelset(&g_waitedForRelease, signo);
        }
    }
}

void orphanHandler(int)
{
    const int savedErrno = errno;
    reapOrphans();
    errno = savedErrno;
}

// Handlers do not interrupt each other. An interrupted system call is restarted.
void install(int signo, void (*handler)(int, siginfo_t*, void*))
{
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_mask = g_handledSignals;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    struct sigaction previous;
    // It fails for the real-time signals that valgrind and emulators keep for themselves.
    if (sigaction(signo, &action, &previous) == 0 && previous.sa_handler == SIG_IGN) {
        sigaddset(&g_ignoredSignals, signo);
    }
}

bool isIgnored(int signo)
{
    struct sigaction action;
    return sigaction(signo, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void fillHandledSignals()
{
    sigemptyset(&g_handledSignals);
    for (int signo : endingSignals) {
        sigaddset(&g_handledSignals, signo);
    }
    for (int signo : stoppingSignals) {
        sigaddset(&g_handledSignals, signo);
    }
    const sigset_t passed = passedSignals();
    sigorset(&g_handledSignals, &g_handledSignals, &passed);
    if (g_reapsOrphans) {
        sigaddset(&g_handledSignals, SIGCHLD);
    }
}

} // namespace

sigset_t passedSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (int signo : passedStandardSignals) {
        sigaddset(&signals, signo);
    }
    for (int signo = SIGRTMIN; signo <= SIGRTMAX; ++signo) {
        sigaddset(&signals, signo);
    }
    return signals;
}

void handlePassedSignals()
{
    g_launcher = getpid();
    snprintf(g_statusFile, sizeof g_statusFile, "/proc/%d/status", g_launcher);
    g_reapsOrphans = reapsOrphans();
    sigprocmask(SIG_SETMASK, nullptr, &g_ownMask);
    sigemptyset(&g_waitedForRelease);
    sigemptyset(&g_ignoredSignals);
    fillHandledSignals();
    for (int signo : stoppingSignals) {
        install(signo, stoppingHandler);
    }
    const sigset_t passed = passedSignals();
    for (int signo = 1; signo <= SIGRTMAX; ++signo) {
        if (sigismember(&passed, signo) == 1) {
            install(signo, passingHandler);
            sigdelset(&g_ownMask, signo);
        }
    }
    if (g_reapsOrphans) {
        signal(SIGCHLD, orphanHandler);
    }
    releaseSignals();
}

void handleEndingSignals()
{
    for (int signo : endingSignals) {
        if (signo != SIGHUP || !isIgnored(signo)) {
            install(signo, sighandler);
            // The helper inherits the default action.
            sigdelset(&g_ignoredSignals, signo);
        }
    }
}

void holdSignals()
{
    sigprocmask(SIG_BLOCK, &g_handledSignals, nullptr);
}

void releaseSignals()
{
    sigpending(&g_waitedForRelease);
    if (g_knowsOlderSignals) {
        forgetSignalsOfHelper();
    }
    g_knowsOlderSignals = false;
    sigprocmask(SIG_SETMASK, &g_ownMask, nullptr);
    sigemptyset(&g_waitedForRelease);
}

void prepareSignalsForExec()
{
    noteOlderSignals();
    useChildStack();
    for (int signo = 1; signo <= SIGRTMAX; ++signo) {
        if (sigismember(&g_ignoredSignals, signo) == 1) {
            signal(signo, SIG_IGN);
        }
    }
}

void setSignalledHelper(pid_t helper)
{
    pid = helper;
}

void setMarker(const QByteArray& fileName)
{
    g_restartSupportedFileName = strdup(fileName.constData());
}

void reapOrphans()
{
    while (g_reapsOrphans) {
        siginfo_t info;
        info.si_pid = 0;
        // QProcess waits for the helper.
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 || info.si_pid == 0 ||
            info.si_pid == pid) {
            return;
        }
        waitid(P_PID, static_cast<id_t>(info.si_pid), &info, WEXITED | WNOHANG);
    }
}

void endIfSignalled()
{
    if (const int signo = g_endingSignal) {
        endBySignal(signo);
    }
}
