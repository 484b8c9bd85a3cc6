// Observes system calls, memory and wake-ups.

#include "bench/measures.h"
#include "common/ProcInfo.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using namespace std::chrono_literals;

constexpr int helperTimeoutMs = 30000;
constexpr int quietLooks = 10;
constexpr int mostLooks = 200;

// Whether a line of strace's output is a system call that looks up a file name.
bool looksForFile(const std::string& call)
{
    static const std::array<const char*, 12> names = {
        " access(", " faccessat(", " faccessat2(", " stat(", " lstat(",  " newfstatat(",
        " statx(",  " readlink(",  " readlinkat(", " open(", " openat(", " execve("};
    const bool named = std::any_of(names.begin(), names.end(), [&](const char* name) {
        return call.find(name) != std::string::npos;
    });
    // A call with an empty name is about the descriptor.
    return named && call.find("(AT_FDCWD, \"\"") == std::string::npos &&
           call.find(", \"\", ") == std::string::npos;
}

// The number after `key` at the start of a line of a file; 0 when there is none.
long number(const std::string& fileName, const char* key)
{
    const QString line = ProcInfo::line(QString::fromStdString(fileName), key);
    return line.mid(qsizetype(strlen(key))).simplified().section(QLatin1Char(' '), 0, 0).toLong();
}

std::string procFile(pid_t pid, const char* name)
{
    return "/proc/" + std::to_string(pid) + "/" + name;
}

long contextSwitches(pid_t pid)
{
    long count = 0;
    for (const fs::directory_entry& task : fs::directory_iterator(procFile(pid, "task"))) {
        const std::string status = task.path() / "status";
        count += number(status, "voluntary_ctxt_switches:");
        count += number(status, "nonvoluntary_ctxt_switches:");
    }
    return count;
}

// Waits until the launcher has finished its work after the helper's start: until ten checks in
// a row show no context switch.
void waitUntilQuiet(pid_t pid)
{
    long last = -1;
    for (int looks = 0, quiet = 0; quiet < quietLooks && looks < mostLooks; ++looks) {
        const long now = contextSwitches(pid);
        quiet = now == last ? quiet + 1 : 0;
        last = now;
        std::this_thread::sleep_for(50ms);
    }
}

// A contestant whose helper sleeps until the destructor runs.
class Sleeper
{
public:
    Sleeper(const Contestant& contestant, const Scratch& scratch)
    {
        int input[2];
        int output[2];
        if (pipe2(input, O_CLOEXEC) == -1 || pipe2(output, O_CLOEXEC) == -1) {
            fail("pipe2");
        }
        Variables variables = scratch.variables();
        variables["BENCH_SLEEP"] = "1";
        mRun = std::make_unique<Run>(contestant.command, variables, input[0], output[1]);
        mInput = input[1];
        close(input[0]);
        close(output[1]);
        pollfd request = {output[0], POLLIN, 0};
        if (poll(&request, 1, helperTimeoutMs) != 1 || (request.revents & POLLIN) == 0) {
            fail(contestant.name + ": no helper");
        }
        close(output[0]);
        waitUntilQuiet(pid());
    }
    ~Sleeper()
    {
        close(mInput);
        kill(pid(), SIGTERM);
        mRun->finish(false);
    }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    pid_t pid() const { return mRun->pid(); }

private:
    std::unique_ptr<Run> mRun;
    int mInput;
};

} // namespace

std::optional<Calls> countCalls(const Contestant& contestant, const Scratch& scratch,
                                const std::string& locale)
{
    const std::string strace = findProgram("strace");
    const std::string trace = scratch.path("trace");
    fs::remove(trace);
    if (strace.empty()) {
        return std::nullopt;
    }
    Words command = {strace, "-f", "-qq", "-o", trace, "--"};
    command.insert(command.end(), contestant.command.begin(), contestant.command.end());
    Variables variables = scratch.variables();
    if (!locale.empty()) {
        variables["LANG"] = locale;
    }
    Run(command, variables).finish(false);

    std::ifstream file(trace);
    std::string line;
    Calls calls;
    while (std::getline(file, line)) {
        if (line.find(" resumed>") != std::string::npos ||
            line.find(" --- ") != std::string::npos) {
            continue;
        }
        ++calls.systemCalls;
        calls.fileNames += looksForFile(line) ? 1 : 0;
        if (line.find("execve(\"" + contestant.helper) != std::string::npos) {
            return calls;
        }
    }
    return std::nullopt;
}

std::vector<Idle> observeIdle(const std::vector<Contestant>& contestants, const Scratch& scratch)
{
    std::vector<std::unique_ptr<Sleeper>> sleepers;
    for (const Contestant& contestant : contestants) {
        sleepers.push_back(std::make_unique<Sleeper>(contestant, scratch));
    }
    std::vector<Idle> result;
    for (const auto& sleeper : sleepers) {
        const pid_t pid = sleeper->pid();
        result.push_back({number(procFile(pid, "status"), "VmHWM:"),
                          number(procFile(pid, "smaps_rollup"), "Pss:"), -contextSwitches(pid)});
    }
    std::this_thread::sleep_for(10s);
    for (size_t i = 0; i < sleepers.size(); ++i) {
        result[i].wakeUps += contextSwitches(sleepers[i]->pid());
    }
    return result;
}
