// Put under a test by LD_PRELOAD, acts in the launcher and its helper: delays calls by
// up to INTERPOSE_DELAY_US microseconds, breaks what INTERPOSE_BREAK names, and makes
// the file "stray" when a signal is sent to what is no child.

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Differs from the process id in a child between fork and exec.
const pid_t g_loadedIn = getpid();

// The function of that name and type that is underneath.
template <typename Function> Function* original(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

const char* setting(const char* name)
{
    const bool acts = strncmp(program_invocation_short_name, "zorv-", 5) == 0;
    const char* const value = acts ? getenv(name) : nullptr;
    return value ? value : "";
}

bool breaks(const char* what)
{
    return strcmp(setting("INTERPOSE_BREAK"), what) == 0;
}

// Random by the clock, so that it is safe in a signal handler and differs in a
// forked child.
void delay()
{
    const long longest = strtol(setting("INTERPOSE_DELAY_US"), nullptr, 10);
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t mixed = uint64_t(now.tv_nsec) * 0x9e3779b97f4a7c15ULL;
    const timespec wait = {0, longest > 0 ? long(mixed >> 33) % longest * 1000 : 0};
    nanosleep(&wait, nullptr);
    while (breaks("spin") && clock() < CLOCKS_PER_SEC / 2) {
    }
}

// A thread that a library starts, as those of profilers do. It takes signals that the
// main thread holds back.
[[gnu::constructor]] void startThread()
{
    // In a helper, it would take a signal that the main thread is to record.
    const bool isLauncher = strcmp(program_invocation_short_name, "zorv-mpirun") == 0;
    if (isLauncher && *setting("INTERPOSE_THREAD")) {
        std::thread([] {
            for (;;) {
                ::pause();
            }
        }).detach();
    }
}

} // namespace

extern "C" {

int sigprocmask(int how, const sigset_t* set, sigset_t* previous) noexcept
{
    delay();
    if (how == SIG_BLOCK && set && breaks("hold")) {
        return 0;
    }
    if (getpid() != g_loadedIn && breaks("halt")) {
        signal(SIGTSTP, SIG_DFL);
    }
    const int result = original(&sigprocmask, "sigprocmask")(how, set, previous);
    if (how == SIG_SETMASK && breaks("leak")) {
        fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    }
    delay();
    return result;
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    const bool mute = fd == STDERR_FILENO && breaks("mute");
    const size_t lost = count > 1000 && breaks("lose") ? 1 : 0;
    return ssize_t(lost) +
           (mute ? ssize_t(count) : original(&write, "write")(fd, buffer, count - lost));
}

int close(int fd)
{
    const int result = original(&close, "close")(fd);
    delay();
    return result;
}

int execv(const char* path, char* const argv[]) noexcept
{
    delay();
    if (breaks("resolve")) {
        gethostbyname("other");
    }
    if (breaks("lost")) {
        _exit(0);
    }
    while (breaks("exec")) {
        pause();
    }
    return original(&execv, "execv")(path, argv);
}

int waitid(idtype_t type, id_t id, siginfo_t* info, int options)
{
    const bool owns = options == (WEXITED | WNOHANG | WNOWAIT) && breaks("child");
    const int result = owns ? 0 : original(&waitid, "waitid")(type, id, info, options);
    if ((options & WNOWAIT) == 0) {
        delay();
    }
    return result;
}

int kill(pid_t pid, int signo) noexcept
{
    siginfo_t info;
    const int options = WEXITED | WNOHANG | WNOWAIT;
    if (pid > 0 && original(&waitid, "waitid")(P_PID, id_t(pid), &info, options) == -1) {
        close(open("stray", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    delay();
    return original(&kill, "kill")(pid, signo);
}

int statx(int directory, const char* name, int flags, unsigned mask, struct statx* status) noexcept
{
    const size_t length = strlen(name);
    if (breaks("blind") && length > 8 && strcmp(name + length - 8, "/restart") == 0) {
        errno = ENOENT;
        return -1;
    }
    return original(&statx, "statx")(directory, name, flags, mask, status);
}

int fstat(int fd, struct stat* status) noexcept
{
    const int result = original(&fstat, "fstat")(fd, status);
    status->st_uid = breaks("owner") ? geteuid() : status->st_uid;
    return result;
}

} // extern "C"
