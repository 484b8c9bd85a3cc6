#include "mpirun/launchcontext.h"

#include "mpirun/signalhandling.h"
#include "mpirun/startmask.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/read.h"
#include "common/compatibility_simple/process/signals.h"
#include "common/compatibility_simple/process/stacklimit.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr int statusOfFailedExec = 127;

// Signals whose disposition the launcher changes without installing a handler.
constexpr int changedSignals[] = {SIGCHLD, SIGPIPE, SIGXFSZ};

void openMissingStandardStreams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // open() returns the lowest free number, which is fd: those below are open.
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF && open("/dev/null", O_RDWR) == -1) {
            perror("/dev/null");
        }
    }
}

} // namespace

LaunchContext::LaunchContext(int argc, const char* const* argv)
    : mArguments(argv, argv + argc)
    , mHelperArguments({nullptr, "--zorvmpirun"})
    , mSignalMask(signalMaskOfStart())
    , mStackLimit(userStackLimit())
{
    if (argc > 1) {
        mHelperArguments.insert(mHelperArguments.end(), argv + 1, argv + argc);
    }
    mHelperArguments.push_back(nullptr);
    prctl(PR_GET_PDEATHSIG, &mParentDeathSignal, 0, 0, 0);
    sigemptyset(&mIgnoredSignals);
    for (int signo : changedSignals) {
        struct sigaction action;
        if (sigaction(signo, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            sigaddset(&mIgnoredSignals, signo);
        }
    }
}

void LaunchContext::prepareProcess() const
{
    openMissingStandardStreams();
    signal(SIGCHLD, SIG_DFL);
    sigset_t endOfChild;
    sigemptyset(&endOfChild);
    sigaddset(&endOfChild, SIGCHLD);
    sigprocmask(SIG_UNBLOCK, &endOfChild, nullptr);
    ignoreSigPipe();
    signal(SIGXFSZ, SIG_IGN);
}

QStringList LaunchContext::arguments() const
{
    QStringList arguments;
    for (const char* argument : mArguments) {
        arguments += QString::fromLocal8Bit(argument);
    }
    return arguments;
}

void LaunchContext::setHelper(const QByteArray& path)
{
    mHelper = path;
    mHelperArguments.front() = mHelper.constData();
}

void LaunchContext::execHelper(int errorPipe) const
{
    // Dispositions first: setting the mask delivers pending signals.
    prepareSignalsForExec();
    restoreDispositions();
    restoreStackLimit();
    restoreParentDeathSignal();
    sigprocmask(SIG_SETMASK, &mSignalMask, nullptr);
    sc_execv(mHelperArguments.front(), const_cast<char* const*>(mHelperArguments.data()));
    const int error = errno;
    uninterrupted([&] { return sc_write(errorPipe, &error, sizeof error); });
    _exit(statusOfFailedExec);
}

void LaunchContext::restoreDispositions() const
{
    for (int signo : changedSignals) {
        signal(signo, sigismember(&mIgnoredSignals, signo) == 1 ? SIG_IGN : SIG_DFL);
    }
}

void LaunchContext::restoreStackLimit() const
{
    if (mStackLimit) {
        setrlimit(RLIMIT_STACK, &*mStackLimit);
    }
}

void LaunchContext::restoreParentDeathSignal() const
{
    if (mParentDeathSignal != 0) {
        prctl(PR_SET_PDEATHSIG, mParentDeathSignal, 0, 0, 0);
    }
}
