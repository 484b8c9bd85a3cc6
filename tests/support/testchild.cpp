// The child of every process test: does what its arguments say, in order, or,
// when it is set, what the words of the variable TESTCHILD say.
//
//   --flood N            writes N bytes to standard output
//   --append FILE        appends its process id as a line to FILE
//   --restart-again DIR  asks for a restart through the session directory DIR and
//                        writes a record of 64 bytes to DIR/restarts, what its
//                        parent uses and a digest of what it has from it, until
//                        there are as many records as the variable RESTARTS says
//   --fork-sleep         leaves a child behind that holds the streams for a minute
//   --record FILE        writes its arguments to FILE, each with a NUL byte
//   --record-state FILE  writes what it has from its parent to FILE, as lines
//   --record-signal FILE writes the number of the next signal to FILE, and ends by it
//
// The other actions say what they do, see the tables of them at the end.

#include <algorithm>
#include <cerrno>
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
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Value = const std::string&;
// Each with a NUL byte.
std::string allArguments;
std::string signalFile;

// The file appears whole or not at all.
void writeFile(Value name, Value content)
{
    if (!(std::ofstream(name + ".new") << content << std::flush)) {
        perror(name.c_str());
        _exit(99);
    }
    fs::rename(name + ".new", name);
}

// By write() alone, which can be watched.
void flood(int fd, Value bytes)
{
    std::string text(std::stoul(bytes), 'x');
    for (size_t i = 99; i < text.size(); i += 100) {
        text[i] = '\n';
    }
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(fd, text.data() + written, text.size() - written);
        if (count == -1 && errno != EINTR) {
            _exit(99);
        }
        written += count == -1 ? 0 : static_cast<size_t>(count);
    }
}

// The lines of a file of /proc that contain `part`; NUL bytes end lines as well.
std::string linesOf(Value file, Value part)
{
    std::ifstream stream("/proc/" + file);
    std::string text(std::istreambuf_iterator<char>(stream), {});
    std::replace(text.begin(), text.end(), '\0', '\n');
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        result += line.find(part) == std::string::npos ? "" : line + '\n';
    }
    return result;
}

std::string inheritedState()
{
    std::string state = "descriptors";
    for (int fd = 0; fd < 1024; ++fd) {
        state += fcntl(fd, F_GETFD) == -1 ? "" : ' ' + std::to_string(fd);
    }
    return state + '\n' + linesOf("self/status", "SigBlk") + linesOf("self/status", "SigIgn") +
           linesOf("self/limits", "Max stack") + linesOf("self/environ", "=") +
           fs::current_path().string() + '\n';
}

void restartAgain(Value directory)
{
    const std::string parent = std::to_string(getppid());
    const auto number = [&](Value key) {
        return std::stol(linesOf(parent + "/status", key).substr(key.size()));
    };
    const fs::directory_iterator descriptors("/proc/" + parent + "/fd");
    const std::string records = directory + "/restarts";
    std::ofstream(records, std::ios::app)
        << std::setw(10) << std::distance(begin(descriptors), {}) << ' ' << std::setw(10)
        << number("Threads:") << ' ' << std::setw(10) << number("VmRSS:") << ' ' << std::setw(30)
        << std::hash<std::string>()(inheritedState() + allArguments) << '\n';
    fs::remove(directory + "/restart-hold");
    if (fs::file_size(records) / 64 < std::stoul(getenv("RESTARTS"))) {
        std::ofstream(directory + "/restart");
    }
}

void recordNextSignal(Value file)
{
    signalFile = file;
    for (int signo : {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP}) {
        signal(signo, [](int number) {
            writeFile(signalFile, std::to_string(number));
            signal(number, SIG_DFL);
            raise(number);
        });
    }
}

void waitForFile(Value file)
{
    while (!fs::exists(file)) {
        usleep(1000);
    }
}

void forkAndSleep(unsigned seconds)
{
    if (fork() == 0) {
        sleep(seconds);
        _exit(0);
    }
}

const std::map<std::string, std::function<void()>> plainActions = {
    {"--cat", [] { std::cout << std::cin.rdbuf() << std::flush; }},
    {"--close-output", [] { close(STDOUT_FILENO), close(STDERR_FILENO); }},
    {"--fork-exit", [] { forkAndSleep(0); }},
    {"--fork-sleep", [] { forkAndSleep(60); }},
    {"--sleep", [] { sleep(UINT_MAX); }},
};
const std::map<std::string, std::function<void(Value)>> actionsWithValue = {
    {"--append", [](Value value) { std::ofstream(value, std::ios::app) << getpid() << '\n'; }},
    {"--exit", [](Value value) { exit(std::stoi(value)); }},
    {"--flood", [](Value value) { flood(STDOUT_FILENO, value); }},
    {"--flood-error", [](Value value) { flood(STDERR_FILENO, value); }},
    {"--ignore", [](Value value) { signal(std::stoi(value), SIG_IGN); }},
    {"--print", [](Value value) { std::cout << value << std::endl; }},
    {"--print-error", [](Value value) { std::cerr << value << std::endl; }},
    {"--record", [](Value value) { writeFile(value, allArguments); }},
    {"--record-signal", recordNextSignal},
    {"--record-state", [](Value value) { writeFile(value, inheritedState()); }},
    {"--restart-again", restartAgain},
    {"--signal", [](Value value) { raise(std::stoi(value)); }},
    {"--wait-file", waitForFile},
};

} // namespace

int main(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i) {
        allArguments += std::string(argv[i]) + '\0';
    }
    std::vector<std::string> actions(argv + 1, argv + argc);
    if (const char* variable = getenv("TESTCHILD")) {
        std::istringstream words(variable);
        actions.assign(std::istream_iterator<std::string>(words), {});
    }
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
