// Put under the launcher with LD_PRELOAD: makes the windows between its system
// calls wider by random delays, watches whom it signals, and breaks it on
// purpose. What it does, the variables say:
//
//   INTERPOSE_DELAY_US=N  each call below is delayed by up to N microseconds
//   INTERPOSE_STRAY=FILE  a signal to a process that is no child is noted there
//   INTERPOSE_BREAK=hold  signals are not held during a start
//   INTERPOSE_BREAK=pid   signals are not passed on
//   INTERPOSE_BREAK=hang  the launcher stops before it waits for its helper
//   INTERPOSE_BREAK=leak  each start leaves a descriptor behind
//   INTERPOSE_BREAK=lose  long writes lose their last byte

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

template <typename Function> Function* original(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool breaks(const char* what)
{
    const char* const value = getenv("INTERPOSE_BREAK");
    return value && strcmp(value, what) == 0;
}

// Random by the clock, so that it is safe in a signal handler and differs in a
// forked child.
void delay()
{
    static const long longest =
        getenv("INTERPOSE_DELAY_US") ? atol(getenv("INTERPOSE_DELAY_US")) : 0;
    if (longest > 0) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const uint64_t mixed = uint64_t(now.tv_nsec) * 0x9e3779b97f4a7c15ULL;
        const long duration = long(mixed >> 33) % longest;
        const timespec wait = {duration / 1000000, duration % 1000000 * 1000};
        nanosleep(&wait, nullptr);
    }
}

} // namespace

extern "C" {

int sigprocmask(int how, const sigset_t* set, sigset_t* previous) noexcept
{
    static auto* const call = original<int(int, const sigset_t*, sigset_t*)>("sigprocmask");
    delay();
    if (how == SIG_BLOCK && breaks("hold")) {
        return 0;
    }
    const int result = call(how, set, previous);
    if (how == SIG_SETMASK && set && breaks("leak")) {
        fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    }
    while (how == SIG_SETMASK && set && breaks("hang")) {
        pause();
    }
    delay();
    return result;
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    static auto* const call = original<ssize_t(int, const void*, size_t)>("write");
    if (count > 1000 && breaks("lose")) {
        call(fd, buffer, count - 1);
        return ssize_t(count);
    }
    return call(fd, buffer, count);
}

int execv(const char* path, char* const argv[]) noexcept
{
    static auto* const call = original<int(const char*, char* const[])>("execv");
    delay();
    return call(path, argv);
}

int kill(pid_t pid, int signo) noexcept
{
    static auto* const call = original<int(pid_t, int)>("kill");
    siginfo_t info;
    const char* const stray = getenv("INTERPOSE_STRAY");
    if (stray && waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) == -1) {
        close(open(stray, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    delay();
    return breaks("pid") ? 0 : call(pid, signo);
}

} // extern "C"
