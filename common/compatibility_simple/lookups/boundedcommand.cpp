#include "common/compatibility_simple/lookups/boundedcommand.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/read.h"

#include <QDeadlineTimer>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// The exit status of a shell for a command that it does not find.
constexpr int notFoundStatus = 127;
// The longest wait for a killed process, which may hang in the kernel. After that, init
// waits for it.
constexpr int killedMs = 1000;

std::vector<char*> pointers(const QByteArrayList& texts)
{
    std::vector<char*> result;
    for (const QByteArray& text : texts) {
        result.push_back(const_cast<char*>(text.constData()));
    }
    result.push_back(nullptr);
    return result;
}

// Runs in the child. Makes only async-signal-safe calls, see signal-safety(7).
[[noreturn]] void execute(pid_t parent, int output, const std::vector<char*>& paths, char** argv,
                          char** envp)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The kernel sends no signal for a parent that has ended before the call.
    if (sc_getppid() == parent) {
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(null, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        // dup2() of a descriptor onto itself leaves it close-on-exec.
        for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
            fcntl(fd, F_SETFD, 0);
        }
        for (int signo = 1; signo < NSIG; ++signo) {
            signal(signo, SIG_DFL);
        }
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        for (size_t i = 0; paths[i]; ++i) {
            execve(paths[i], argv, envp);
        }
    }
    _exit(notFoundStatus);
}

// Reads to the end of the output. Returns false at the deadline, after too much output or
// on an error.
bool readAll(int fd, const QDeadlineTimer& deadline, qsizetype mostBytes, QByteArray* output)
{
    char buffer[4096];
    ssize_t count = 1;
    while (count > 0) {
        pollfd request = {fd, POLLIN, 0};
        const int ready =
            uninterrupted([&] { return poll(&request, 1, int(deadline.remainingTime())); });
        if (ready != 1 || output->size() > mostBytes) {
            return false;
        }
        count = uninterrupted([&] { return read(fd, buffer, sizeof buffer); });
        output->append(buffer, qMax<ssize_t>(count, 0));
    }
    return count == 0;
}

// Waits for the end of a child. Polls, because old kernels have no wait with a time limit.
// Returns false at the deadline.
bool waitUntil(const QDeadlineTimer& deadline, pid_t pid, int* status)
{
    while (sc_waitpid(pid, status, WNOHANG) == 0) {
        if (deadline.hasExpired()) {
            return false;
        }
        usleep(200);
    }
    return true;
}

} // namespace

Answer runBounded(const QByteArrayList& paths, const QByteArrayList& arguments,
                  const QByteArrayList& environment, int limitMs, qsizetype mostBytes)
{
    Answer answer;
    const std::vector<char*> pathPointers = pointers(paths);
    std::vector<char*> argv = pointers(paths.mid(0, 1) + arguments);
    std::vector<char*> envp = pointers(environment);
    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) == -1) {
        return answer;
    }
    const QDeadlineTimer deadline(limitMs);
    const pid_t parent = sc_getpid();
    const pid_t pid = sc_fork();
    if (pid == 0) {
        execute(parent, pipe[1], pathPointers, argv.data(), envp.data());
    }
    sc_close(pipe[1]);
    if (pid != -1) {
        // Stays 0 if the caller ignores SIGCHLD, see waitpid(2).
        int status = 0;
        if (readAll(pipe[0], deadline, mostBytes, &answer.output) &&
            waitUntil(deadline, pid, &status)) {
            answer.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            answer.end =
                answer.exitStatus == notFoundStatus ? Answer::NotStarted : Answer::ByItself;
        } else {
            kill(pid, SIGKILL);
            waitUntil(QDeadlineTimer(killedMs), pid, &status);
            answer.end = Answer::Killed;
        }
    }
    sc_close(pipe[0]);
    return answer;
}
