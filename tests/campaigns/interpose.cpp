// Put under a test by LD_PRELOAD; acts in the launcher and in the helper. A signal
// that the launcher sends to a process that is no child of it makes the file "stray".
// The variable INTERPOSE_DELAY_US delays the calls below by up to that many
// microseconds; INTERPOSE_BREAK breaks one thing:
//
//   hold     signals are not held during a start
//   pid      signals are not passed on
//   child    a helper that has been waited for counts as the launcher's own
//   raise    the launcher outlives its signals
//   marker   files are not removed
//   exec     helpers stop before their exec
//   hang     the launcher stops before it waits for its helper
//   spin     the launcher is busy all the time
//   leak     each start leaves a descriptor behind
//   lose     long writes lose their last byte
//   mute     messages are not written
//   owner    files of others count as the user's own
//   resolve  the launcher asks the name server

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

template <typename Function> Function* original(const char* name)
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
    const long longest = atol(setting("INTERPOSE_DELAY_US"));
    if (longest > 0) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const uint64_t mixed = uint64_t(now.tv_nsec) * 0x9e3779b97f4a7c15ULL;
        const timespec wait = {0, long(mixed >> 33) % longest * 1000};
        nanosleep(&wait, nullptr);
    }
}

__attribute__((constructor)) void breakFromTheStart()
{
    if (breaks("resolve")) {
        gethostbyname("other");
    } else if (breaks("spin")) {
        std::thread([] {
            while (breaks("spin")) {
            }
        }).detach();
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
    const bool releases = how == SIG_SETMASK && set;
    if (releases && breaks("leak")) {
        fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    }
    while (releases && breaks("hang")) {
        pause();
    }
    delay();
    return result;
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    static auto* const call = original<ssize_t(int, const void*, size_t)>("write");
    if (fd == STDERR_FILENO && breaks("mute")) {
        return ssize_t(count);
    }
    if (count > 1000 && breaks("lose")) {
        call(fd, buffer, count - 1);
        return ssize_t(count);
    }
    return call(fd, buffer, count);
}

int close(int fd)
{
    static auto* const call = original<int(int)>("close");
    const int result = call(fd);
    delay();
    return result;
}

int execv(const char* path, char* const argv[]) noexcept
{
    static auto* const call = original<int(const char*, char* const[])>("execv");
    delay();
    while (breaks("exec")) {
        pause();
    }
    return call(path, argv);
}

int waitid(idtype_t type, id_t id, siginfo_t* info, int options)
{
    static auto* const call = original<int(idtype_t, id_t, siginfo_t*, int)>("waitid");
    const int result = call(type, id, info, options);
    return (options & WNOWAIT) != 0 && breaks("child") ? 0 : result;
}

int kill(pid_t pid, int signo) noexcept
{
    static auto* const call = original<int(pid_t, int)>("kill");
    static auto* const wait = original<int(idtype_t, id_t, siginfo_t*, int)>("waitid");
    siginfo_t info;
    if (wait(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) == -1) {
        close(open("stray", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    delay();
    return breaks("pid") ? 0 : call(pid, signo);
}

int raise(int signo) noexcept
{
    static auto* const call = original<int(int)>("raise");
    return breaks("raise") ? 0 : call(signo);
}

int unlink(const char* name) noexcept
{
    static auto* const call = original<int(const char*)>("unlink");
    return breaks("marker") ? 0 : call(name);
}

int fstat(int fd, struct stat* status) noexcept
{
    static auto* const call = original<int(int, struct stat*)>("fstat");
    const int result = call(fd, status);
    status->st_uid = breaks("owner") ? geteuid() : status->st_uid;
    return result;
}

} // extern "C"
