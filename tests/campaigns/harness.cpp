// What the campaigns share.

#include "tests/campaigns/harness.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

int endTimeoutMs = 20000;

namespace {

[[noreturn]] void fail(const char* what)
{
    perror(what);
    exit(2);
}

sigset_t childSignal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    return set;
}

// Before anything is started: descendants come to us, their ends can be waited
// for with a timeout, and those that crash leave no core files.
void becomeSubreaper()
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const sigset_t set = childSignal();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

long milliseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

void collect(const fs::path& task, std::vector<pid_t>* pids)
{
    std::ifstream file(task / "children");
    pid_t pid;
    while (file >> pid) {
        pids->push_back(pid);
        std::error_code error;
        for (const auto& entry :
             fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
            collect(entry.path(), pids);
        }
    }
}

bool isZombie(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t end = line.rfind(") ");
    return end == std::string::npos || line[end + 2] == 'Z' || line[end + 2] == 'X';
}

void interpose(const Tree& tree, std::vector<std::string>* environment)
{
    const char* const library = getenv("INTERPOSE");
    if (!library) {
        return;
    }
    environment->push_back(std::string("LD_PRELOAD=") + library);
    environment->push_back("INTERPOSE_STRAY=" + tree.path("stray"));
    for (const char* name : {"INTERPOSE_DELAY_US", "INTERPOSE_BREAK"}) {
        if (const char* value = getenv(name)) {
            environment->push_back(std::string(name) + "=" + value);
        }
    }
}

std::vector<char*> pointers(std::vector<std::string>& strings)
{
    std::vector<char*> result;
    for (std::string& string : strings) {
        result.push_back(string.data());
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

Request parseRequest(int argc, char** argv)
{
    Request request;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--count" && i + 1 < argc) {
            request.count = atol(argv[++i]);
        } else if (argument == "--seed" && i + 1 < argc) {
            request.seed = static_cast<unsigned>(atol(argv[++i]));
        } else if (argument == "--timeout" && i + 1 < argc) {
            endTimeoutMs = atoi(argv[++i]);
        } else if (argument == "--stop-at-first") {
            request.stopAtFirst = true;
        } else if (request.mode.empty() && argument[0] != '-') {
            request.mode = argument;
        } else {
            fprintf(stderr,
                    "usage: %s MODE [--count N] [--seed N] [--timeout MS] [--stop-at-first]\n",
                    argv[0]);
            exit(2);
        }
    }
    becomeSubreaper();
    return request;
}

Tree::Tree()
    : mRoot((fs::temp_directory_path() / "campaign-XXXXXX").string())
{
    if (!mkdtemp(mRoot.data())) {
        fail(mRoot.c_str());
    }
    for (const char* directory : {"bin", "lib", "libexec", "session"}) {
        fs::create_directory(path(directory));
    }
    fs::copy_file(ZORV_MPIRUN, path("bin/zorv-mpirun"));
    fs::copy_file(TESTCHILD, path("bin/zorv-debugger"));
}

Tree::~Tree()
{
    std::error_code error;
    fs::remove_all(mRoot, error);
}

bool Tree::exists(const std::string& relative) const
{
    return access(path(relative).c_str(), F_OK) == 0;
}

void Tree::touch(const std::string& relative) const
{
    const int fd = open(path(relative).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd == -1) {
        fail(path(relative).c_str());
    }
    close(fd);
}

void Tree::remove(const std::string& relative) const
{
    ::remove(path(relative).c_str());
}

long Tree::size(const std::string& relative) const
{
    struct stat status;
    return stat(path(relative).c_str(), &status) == 0 ? status.st_size : 0;
}

pid_t launch(const Tree& tree, const LaunchPlan& plan)
{
    std::vector<std::string> arguments = plan.before;
    for (const char* argument : {"", "-np", "2", "program"}) {
        arguments.push_back(*argument ? argument : tree.path("bin/zorv-mpirun"));
    }
    std::vector<std::string> environment = {"PATH=/usr/bin:/bin", "HOME=" + tree.path(""),
                                            "TESTCHILD=" + plan.helperActions};
    if (plan.withSession) {
        environment.push_back("ZORV_HOST=alpha");
        environment.push_back("ZORV_SESSION_PATH=" + tree.path("session"));
    }
    for (const auto& [name, value] : plan.variables) {
        environment.push_back(name + "=" + value);
    }
    interpose(tree, &environment);
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(environment);
    const pid_t pid = fork();
    if (pid == -1) {
        fail("fork");
    }
    if (pid == 0) {
        if (plan.ownProcessGroup) {
            setpgid(0, 0);
        }
        if (plan.output != -1) {
            dup2(plan.output, STDOUT_FILENO);
            dup2(plan.output, STDERR_FILENO);
        }
        const sigset_t set = childSignal();
        sigprocmask(SIG_UNBLOCK, &set, nullptr);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    if (plan.ownProcessGroup) {
        setpgid(pid, pid);
    }
    return pid;
}

bool waitForEnd(pid_t pid, std::vector<End>* ends, int timeoutMs)
{
    const sigset_t set = childSignal();
    const long deadline = milliseconds() + (timeoutMs == 0 ? endTimeoutMs : timeoutMs);
    for (;;) {
        End end;
        while ((end.pid = waitpid(-1, &end.status, WNOHANG)) > 0) {
            ends->push_back(end);
            if (end.pid == pid) {
                return true;
            }
        }
        if (end.pid == -1 && errno == ECHILD) {
            return pid == -1;
        }
        const long left = deadline - milliseconds();
        if (left <= 0) {
            return false;
        }
        const timespec wait = {left / 1000, left % 1000 * 1000000};
        sigtimedwait(&set, nullptr, &wait);
    }
}

bool waitUntil(const std::function<bool()>& condition)
{
    const long deadline = milliseconds() + endTimeoutMs;
    while (!condition()) {
        if (milliseconds() > deadline) {
            return false;
        }
        usleep(1000);
    }
    return true;
}

std::vector<pid_t> living()
{
    std::vector<pid_t> pids;
    collect("/proc/self/task/" + std::to_string(getpid()), &pids);
    std::vector<pid_t> result;
    for (pid_t pid : pids) {
        if (!isZombie(pid)) {
            result.push_back(pid);
        }
    }
    return result;
}

void killLiving()
{
    std::vector<End> ends;
    do {
        for (pid_t pid : living()) {
            kill(pid, SIGKILL);
        }
    } while (!waitForEnd(-1, &ends, 100));
}

void Tally::wrong(const std::string& kind, const std::string& what)
{
    constexpr long printed = 5;
    if (++mCounts[kind] <= printed) {
        fprintf(stderr, "%s: %s\n", kind.c_str(), what.c_str());
    }
}

int Tally::finish() const
{
    printf("%s: %ld tried, seed %u:", mRequest.mode.c_str(), mRequest.count, mRequest.seed);
    for (const auto& [kind, count] : mCounts) {
        printf(" %ld %s", count, kind.c_str());
    }
    puts(mCounts.empty() ? " nothing wrong" : "");
    return mCounts.empty() ? 0 : 1;
}

std::string describe(int status)
{
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "exit " + std::to_string(WEXITSTATUS(status));
}

void sleepRandomly(std::mt19937& random, long longestMicroseconds)
{
    const long duration = std::uniform_int_distribution<long>(0, longestMicroseconds)(random);
    const timespec wait = {duration / 1000000, duration % 1000000 * 1000};
    nanosleep(&wait, nullptr);
}
