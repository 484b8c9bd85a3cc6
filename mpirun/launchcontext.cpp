// What the launcher was started with and its helper must find unchanged.

#include "mpirun/launchcontext.h"

#include "common/compatibility_simple/process/signals.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

void openMissingStandardStreams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // open() gives the lowest free number, which is fd: those below are open.
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF && open("/dev/null", O_RDWR) == -1) {
            perror("/dev/null");
        }
    }
}

// Calls the function for each signal whose disposition the launcher changes, or Qt
// in it. All others an exec leaves as they are.
template <typename Function> void forChangedSignals(const Function& function)
{
    for (int signo : handledSignals) {
        function(signo);
    }
    for (int signo : {SIGCHLD, SIGPIPE}) {
        function(signo);
    }
}

} // namespace

LaunchContext::LaunchContext(int argc, const char* const* argv)
    : mArguments(argv, argv + argc)
    , mHelperArguments({nullptr, "--zorvmpirun"})
{
    if (argc > 1) {
        mHelperArguments.insert(mHelperArguments.end(), argv + 1, argv + argc);
    }
    mHelperArguments.push_back(nullptr);
    sigprocmask(SIG_SETMASK, nullptr, &mSignalMask);
    mOwnSignalMask = mSignalMask;
    sigdelset(&mOwnSignalMask, SIGCHLD);
    sigemptyset(&mIgnoredSignals);
    forChangedSignals([this](int signo) {
        struct sigaction action;
        if (sigaction(signo, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            sigaddset(&mIgnoredSignals, signo);
        }
    });
}

void LaunchContext::prepareProcess() const
{
    openMissingStandardStreams();
    signal(SIGCHLD, SIG_DFL);
    ignoreSigPipe();
    releaseSignals();
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

void LaunchContext::holdSignals() const
{
    sigset_t signals;
    sigemptyset(&signals);
    for (int signo : handledSignals) {
        sigaddset(&signals, signo);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
}

void LaunchContext::releaseSignals() const
{
    sigprocmask(SIG_SETMASK, &mOwnSignalMask, nullptr);
}

void LaunchContext::execHelper() const
{
    // Dispositions first: a signal that waits must find its default action,
    // not the launcher's handler, when the mask lets it in.
    restoreDispositions();
    sigprocmask(SIG_SETMASK, &mSignalMask, nullptr);
    execv(mHelperArguments.front(), const_cast<char* const*>(mHelperArguments.data()));
}

void LaunchContext::restoreDispositions() const
{
    forChangedSignals([this](int signo) {
        signal(signo, sigismember(&mIgnoredSignals, signo) == 1 ? SIG_IGN : SIG_DFL);
    });
}
