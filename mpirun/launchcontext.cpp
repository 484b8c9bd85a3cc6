// What the launcher was started with and its helper must find unchanged.

#include "mpirun/launchcontext.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int firstExtraDescriptor = STDERR_FILENO + 1;

void openMissingStandardStreams()
{
    for (int fd = STDIN_FILENO; fd < firstExtraDescriptor; ++fd) {
        // open() gives the lowest free number, which is fd: those below are open.
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF && open("/dev/null", O_RDWR) == -1) {
            perror("/dev/null");
        }
    }
}

// For kernels before 5.11, which do not know CLOSE_RANGE_CLOEXEC.
void setCloseOnExecOneByOne()
{
    DIR* directory = opendir("/proc/self/fd");
    if (!directory) {
        perror("/proc/self/fd");
        return;
    }
    while (const dirent* entry = readdir(directory)) {
        const int fd = atoi(entry->d_name);
        if (fd >= firstExtraDescriptor) {
            fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
    closedir(directory);
}

void setCloseOnExec()
{
    if (syscall(SYS_close_range, firstExtraDescriptor, ~0U, CLOSE_RANGE_CLOEXEC) == -1) {
        setCloseOnExecOneByOne();
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
    : mArguments({nullptr, "--zorvmpirun"})
{
    if (argc > 1) {
        mArguments.insert(mArguments.end(), argv + 1, argv + argc);
    }
    mArguments.push_back(nullptr);
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
    setCloseOnExec();
    signal(SIGCHLD, SIG_DFL);
    releaseSignals();
}

void LaunchContext::setHelper(const QByteArray& path)
{
    mHelper = path;
    mArguments.front() = mHelper.constData();
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
    execv(mArguments.front(), const_cast<char* const*>(mArguments.data()));
}

void LaunchContext::restoreDispositions() const
{
    forChangedSignals([this](int signo) {
        signal(signo, sigismember(&mIgnoredSignals, signo) == 1 ? SIG_IGN : SIG_DFL);
    });
}
