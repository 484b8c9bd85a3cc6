// The child of every process test: does what its arguments say, in order, or,
// when it is set, what the words of the variable TESTCHILD say.
//
//   --exit N             ends with the exit code N
//   --signal N           sends itself the signal N
//   --ignore N           ignores the signal N
//   --print TEXT         writes TEXT and a line end to standard output
//   --print-error TEXT   the same to standard error
//   --flood BYTES        writes that many bytes to standard output
//   --flood-error BYTES  the same to standard error
//   --close-output       closes standard output and error
//   --cat                copies standard input to standard output, to its end
//   --append FILE        appends its process id as a line to FILE
//   --wait-file FILE     waits until FILE exists
//   --restart-again DIR  asks for a restart through the session directory DIR and
//                        writes a record of 64 bytes to DIR/restarts, what its
//                        parent uses and a digest of what it has from it, until
//                        there are as many records as the variable RESTARTS says
//   --sleep              waits for a signal that ends it
//   --fork-exit          leaves a child behind that ends at once
//   --fork-sleep         leaves a child behind that holds the streams for a minute
//   --record FILE        writes its arguments to FILE, each with a NUL byte
//   --record-state FILE  writes what it has from its parent to FILE, as lines
//   --record-signal FILE writes the number of the next signal to FILE, and ends by it
//
// FILE appears whole or not at all where it is written.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> allArguments;

[[noreturn]] void fail(const std::string& what)
{
    perror(what.c_str());
    _exit(99);
}

void writeAll(int fd, const std::string& bytes)
{
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(fd, bytes.data() + written, bytes.size() - written);
        if (count >= 0) {
            written += static_cast<size_t>(count);
        } else if (errno != EINTR) {
            fail("write");
        }
    }
}

void writeFile(const std::string& name, const std::string& content)
{
    const std::string temporary = name + ".new";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd == -1) {
        fail(temporary);
    }
    writeAll(fd, content);
    close(fd);
    if (rename(temporary.c_str(), name.c_str()) == -1) {
        fail(name);
    }
}

void flood(int fd, const std::string& bytes)
{
    std::string text(std::stoul(bytes), 'x');
    for (size_t i = 99; i < text.size(); i += 100) {
        text[i] = '\n';
    }
    writeAll(fd, text);
}

std::string descriptors()
{
    std::vector<int> open;
    DIR* directory = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(directory)) {
        const int fd = atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != dirfd(directory)) {
            open.push_back(fd);
        }
    }
    closedir(directory);
    std::sort(open.begin(), open.end());
    std::string text;
    for (int fd : open) {
        text += ' ' + std::to_string(fd);
    }
    return text;
}

std::string inheritedState()
{
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    std::string state = "descriptors" + descriptors() + "\n";
    for (int signo = 1; signo < NSIG; ++signo) {
        struct sigaction action;
        const bool known = sigaction(signo, nullptr, &action) == 0;
        if (known && action.sa_handler == SIG_IGN) {
            state += "ignored " + std::to_string(signo) + "\n";
        }
        if (sigismember(&mask, signo) == 1) {
            state += "blocked " + std::to_string(signo) + "\n";
        }
    }
    rlimit limit;
    getrlimit(RLIMIT_STACK, &limit);
    state += "stack " + std::to_string(limit.rlim_cur) + "\n";
    char directory[4096];
    state += std::string("directory ") + getcwd(directory, sizeof directory) + "\n";
    for (char** variable = environ; *variable; ++variable) {
        state += std::string("variable ") + *variable + "\n";
    }
    return state;
}

// The number after `key` in a process's status file.
long statusNumber(pid_t pid, const std::string& key)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(file, line) && line.compare(0, key.size(), key) != 0) {
    }
    return line.empty() ? -1 : std::stol(line.substr(key.size()));
}

void restartAgain(const std::string& directory)
{
    const pid_t parent = getppid();
    const std::string fds = "/proc/" + std::to_string(parent) + "/fd";
    const auto descriptorCount = std::distance(std::filesystem::directory_iterator(fds), {});
    std::string state = inheritedState();
    for (const std::string& argument : allArguments) {
        state += argument + '\0';
    }
    std::ostringstream record;
    record << std::setw(10) << descriptorCount << ' ' << std::setw(10)
           << statusNumber(parent, "Threads:") << ' ' << std::setw(10)
           << statusNumber(parent, "VmRSS:") << ' ' << std::setw(30)
           << std::hash<std::string>()(state) << '\n';
    const std::string records = directory + "/restarts";
    const int fd = open(records.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    writeAll(fd, record.str());
    const off_t written = lseek(fd, 0, SEEK_END) / 64;
    close(fd);
    unlink((directory + "/restart-hold").c_str());
    if (written < atol(getenv("RESTARTS"))) {
        close(open((directory + "/restart").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
}

std::string signalFile;

void recordSignal(int signo)
{
    const std::string number = std::to_string(signo);
    writeFile(signalFile, number);
    signal(signo, SIG_DFL);
    raise(signo);
}

void forkAndSleep()
{
    if (fork() == 0) {
        sleep(60);
        _exit(0);
    }
}

void waitForFile(const std::string& file)
{
    while (access(file.c_str(), F_OK) == -1) {
        usleep(1000);
    }
}

void cat()
{
    char buffer[65536];
    ssize_t count;
    while ((count = read(STDIN_FILENO, buffer, sizeof buffer)) > 0) {
        writeAll(STDOUT_FILENO, std::string(buffer, static_cast<size_t>(count)));
    }
}

void append(const std::string& file)
{
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    writeAll(fd, std::to_string(getpid()) + "\n");
    close(fd);
}

void record(const std::string& file)
{
    std::string text;
    for (const std::string& argument : allArguments) {
        text += argument + '\0';
    }
    writeFile(file, text);
}

const std::map<std::string, std::function<void()>> plainActions = {
    {"--cat", cat},
    {"--close-output", [] { close(STDOUT_FILENO), close(STDERR_FILENO); }},
    {"--fork-exit",
     [] {
         if (fork() == 0) {
             _exit(0);
         }
     }},
    {"--fork-sleep", forkAndSleep},
    {"--sleep",
     [] {
         for (;;) {
             pause();
         }
     }},
};

const std::map<std::string, std::function<void(const std::string&)>> actionsWithValue = {
    {"--append", append},
    {"--exit", [](const std::string& value) { exit(std::stoi(value)); }},
    {"--flood", [](const std::string& value) { flood(STDOUT_FILENO, value); }},
    {"--flood-error", [](const std::string& value) { flood(STDERR_FILENO, value); }},
    {"--ignore", [](const std::string& value) { signal(std::stoi(value), SIG_IGN); }},
    {"--print", [](const std::string& value) { writeAll(STDOUT_FILENO, value + "\n"); }},
    {"--print-error", [](const std::string& value) { writeAll(STDERR_FILENO, value + "\n"); }},
    {"--record", record},
    {"--record-signal",
     [](const std::string& value) {
         signalFile = value;
         for (int signo : {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP}) {
             signal(signo, recordSignal);
         }
     }},
    {"--record-state", [](const std::string& value) { writeFile(value, inheritedState()); }},
    {"--restart-again", restartAgain},
    {"--signal", [](const std::string& value) { raise(std::stoi(value)); }},
    {"--wait-file", waitForFile},
};

std::vector<std::string> requestedActions()
{
    if (const char* variable = getenv("TESTCHILD")) {
        std::istringstream words(variable);
        return {std::istream_iterator<std::string>(words), {}};
    }
    return {allArguments.begin() + 1, allArguments.end()};
}

} // namespace

int main(int argc, char** argv)
{
    allArguments.assign(argv, argv + argc);
    const std::vector<std::string> actions = requestedActions();
    for (size_t i = 0; i < actions.size(); ++i) {
        const auto plain = plainActions.find(actions[i]);
        const auto withValue = actionsWithValue.find(actions[i]);
        if (plain != plainActions.end()) {
            plain->second();
        } else if (withValue != actionsWithValue.end() && i + 1 < actions.size()) {
            withValue->second(actions[++i]);
        } else if (actions[i] != "--zorvmpirun") {
            fprintf(stderr, "testchild: unknown action '%s'\n", actions[i].c_str());
            return 99;
        }
    }
    return 0;
}
