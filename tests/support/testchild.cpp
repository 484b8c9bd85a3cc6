// The child of tests that need more of it than a line of shell: does what its arguments
// say, in order, or, when it is set, what the words of the variable TESTCHILD say. See
// the table at the end.

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Value = const std::string&;
std::string allArguments;

// By write() alone, which can be watched.
void flood(int fd, Value bytes)
{
    const std::string text(std::stoul(bytes), 'x');
    if (write(fd, text.data(), text.size()) != ssize_t(text.size())) {
        _exit(99);
    }
}

// The lines of a file of /proc that contain the part; NUL bytes end lines as well.
std::string linesOf(Value file, Value part)
{
    std::ifstream lines("/proc/" + file);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        std::replace(line.begin(), line.end(), '\0', '\n');
        result += line.find(part) == std::string::npos ? "" : line + '\n';
    }
    return result;
}

// What is inherited from the parent.
std::string inheritedState()
{
    std::string state = "descriptors";
    for (int fd = 0; fd < 1024; ++fd) {
        state += fcntl(fd, F_GETFD) == -1 ? "" : ' ' + std::to_string(fd);
    }
    state += '\n';
    for (const char* key :
         {"SigBlk", "SigIgn", "Umask", "NoNewPrivs", "Cpus_allowed", "Mems_allowed"}) {
        state += linesOf("self/status", key);
    }
    int deathSignal = 0;
    prctl(PR_GET_PDEATHSIG, &deathSignal);
    for (long number : {long(getsid(0)), long(getpgrp()), long(getpriority(PRIO_PROCESS, 0)),
                        long(prctl(PR_GET_TIMERSLACK)), long(deathSignal)}) {
        state += std::to_string(number) + '\n';
    }
    return state + linesOf("self/limits", "Max") + linesOf("self/cgroup", ":") +
           linesOf("self/environ", "=") + fs::current_path().string() + '\n';
}

void recordState(Value file)
{
    // Before the file is open.
    const std::string state = inheritedState();
    std::ofstream(file) << state;
}

// Asks for a restart through the session directory and writes a record of 64 bytes to
// "restarts" there, what the parent uses and a digest of what it has from it, until
// there are as many as the variable RESTARTS says.
void restartAgain(Value directory)
{
    const std::string parent = std::to_string(getppid());
    const auto number = [&](Value key) {
        return std::stol(linesOf(parent + "/status", key).substr(key.size()));
    };
    const fs::directory_iterator descriptors("/proc/" + parent + "/fd");
    const std::string records = directory + "/restarts";
    std::ostringstream record;
    record << std::distance(begin(descriptors), {}) << ' ' << number("Threads:") << ' '
           << number("VmRSS:") << ' ' << std::hash<std::string>()(inheritedState() + allArguments);
    std::ofstream(records, std::ios::app) << std::left << std::setw(63) << record.str() << '\n';
    fs::remove(directory + "/restart-hold");
    if (fs::file_size(records) / 64 < std::stoul(getenv("RESTARTS"))) {
        std::ofstream(directory + "/restart");
    }
}

// Blocks all signals, and appends the number and the value of each one that comes to the
// file, until SIGTERM ends it.
void recordSignals(Value file)
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    std::ofstream record(file, std::ios::app);
    record << "started " << getpid() << std::endl;
    siginfo_t info = {};
    while (info.si_signo != SIGTERM) {
        if (sigwaitinfo(&all, &info) != -1) {
            const int value = info.si_code == SI_QUEUE ? info.si_value.sival_int : 0;
            record << info.si_signo << ' ' << value << std::endl;
        }
    }
    // The sanitizers' search for leaks, at an exit(3), hangs while a SIGCONT is pending.
    _exit(0);
}

void waitForFile(Value file)
{
    while (!fs::exists(file)) {
        usleep(1000);
    }
}

void forkAndExit()
{
    if (fork() == 0) {
        _exit(0);
    }
}

// The values of those that need one follow them, and do not begin with "--".
const std::map<std::string, std::function<void(Value)>> table = {
    {"--append", [](Value file) { std::ofstream(file, std::ios::app) << getpid() << '\n'; }},
    {"--exit", [](Value status) { exit(std::stoi(status)); }},
    {"--flood", [](Value bytes) { flood(STDOUT_FILENO, bytes); }},
    {"--flood-error", [](Value bytes) { flood(STDERR_FILENO, bytes); }},
    {"--fork-exit", [](Value) { forkAndExit(); }},
    {"--ignore", [](Value signo) { signal(std::stoi(signo), SIG_IGN); }},
    {"--print", [](Value text) { std::cout << text << std::endl; }},
    {"--record-signals", recordSignals},
    {"--record-state", recordState},
    {"--restart-again", restartAgain},
    {"--signal", [](Value signo) { raise(std::stoi(signo)); }},
    {"--sleep", [](Value) { sleep(UINT_MAX); }},
    {"--wait-file", waitForFile},
};

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    for (Value word : words) {
        allArguments += word + '\0';
    }
    if (const char* variable = getenv("TESTCHILD")) {
        std::istringstream stream(variable);
        words.assign(std::istream_iterator<std::string>(stream), {});
    }
    for (auto word = words.begin(); word != words.end();) {
        const auto action = table.find(*word++);
        if (action == table.end()) {
            std::cerr << "testchild: unknown action " << *--word << std::endl;
            return 99;
        }
        const bool hasValue = word != words.end() && word->compare(0, 2, "--") != 0;
        action->second(hasValue ? *word++ : "");
    }
    return 0;
}
