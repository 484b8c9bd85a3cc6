// Tries the launcher many times, at random instants, in bad company:
//
//   campaign MODE [--count N] [--seed N] [--timeout MS] [--mebibytes N]
//
// docs/reliability.md tells what each mode tries. With words in the variable UNDER, the
// launcher is run under that command. The program is the subreaper of its
// descendants (see prctl(2)), so that nothing that a launch leaves behind escapes it.

#include "tests/campaigns/campaign.h"

#include <QDeadlineTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using fs::exists;

namespace {

constexpr long mostWrong = 3;
// About twice the time that a start takes.
constexpr long spanUs = 25000;
const int signals[] = {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP};

std::string mode;
std::map<std::string, long> options = {
    {"--count", 100}, {"--seed", 1}, {"--timeout", 20000}, {"--mebibytes", 20}};
std::mt19937 randomBits;
std::string trial;
long wrongs = 0;
// The children that have ended, and their status as from wait(2).
std::map<pid_t, int> ends;

// Looks again all the time; false when that took longer than the timeout.
bool waitUntil(const std::function<bool()>& condition)
{
    const QDeadlineTimer deadline(options["--timeout"]);
    bool holds = condition();
    while (!holds && !deadline.hasExpired()) {
        usleep(500);
        holds = condition();
    }
    return holds;
}

// The children that live.
std::vector<pid_t> living()
{
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        ends[pid] = status;
    }
    std::ifstream children("/proc/thread-self/children");
    return {std::istream_iterator<pid_t>(children), {}};
}

bool hasEnded(pid_t pid)
{
    return waitUntil([pid] { return living(), ends.count(pid) > 0; });
}

// Waits for the end of the launcher, and until only the survivors are left, which
// are then ended too.
void waitForEnd(pid_t launcher, size_t survivors = 0)
{
    if (!hasEnded(launcher)) {
        wrong("hangs", "the launcher goes on");
    } else if (!waitUntil([survivors] { return living().size() == survivors; })) {
        wrong("orphans", std::to_string(living().size()) + " processes are left");
    }
    for (auto left = living(); !left.empty(); left = living()) {
        for (pid_t pid : left) {
            kill(pid, SIGKILL);
        }
    }
}

// All must end with status 0 or by a signal that was sent, the launcher by it.
void checkEnd(pid_t launcher, const std::vector<int>& sent = {}, size_t survivors = 0)
{
    waitForEnd(launcher, survivors);
    for (const auto& [pid, status] : ends) {
        const bool asSent = std::count(sent.begin(), sent.end(), status & ~WCOREFLAG) > 0;
        const bool wasKilled = survivors > 0 && pid != launcher;
        if (!asSent && !wasKilled && (status != 0 || (pid == launcher && !sent.empty()))) {
            wrong("wrong ends", "wait status " + std::to_string(status));
        }
    }
    if (!sent.empty() && exists("session/restart-supported")) {
        wrong("markers", "the marker is left");
    }
    if (exists("stray")) {
        wrong("strays", "a signal was sent to what is no child");
    }
}

// What every launcher is run under, besides what a mode runs it under.
std::vector<std::string> wordsOfUnder()
{
    const char* const variable = getenv("UNDER");
    std::istringstream stream(variable ? variable : "");
    return {std::istream_iterator<std::string>(stream), {}};
}

// Starts the launcher in a process group of its own; its process id. What it is run
// under comes first.
pid_t launch(const std::string& helperActions, int output = -1, std::vector<const char*> argv = {})
{
    static const std::vector<std::string> under = wordsOfUnder();
    for (const std::string& word : under) {
        argv.push_back(word.c_str());
    }
    argv.insert(argv.end(), {"bin/zorv-mpirun", "-np", "2", "program", nullptr});
    setenv("TESTCHILD", helperActions.c_str(), 1);
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        if (output != -1) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
        }
        execv(argv[0], const_cast<char* const*>(argv.data()));
        _exit(127);
    }
    setpgid(pid, pid);
    return pid;
}

void clean()
{
    fs::remove_all("session");
    fs::create_directory("session");
    fs::remove("stray");
    fs::remove("ready");
    ends.clear();
}

bool helperIsReady()
{
    return waitUntil([] { return exists("ready") || exists("session/restarts"); });
}

void trySignal(long)
{
    std::string actions = "--sleep";
    if (mode == "restart") {
        // The marker goes with the launcher.
        actions = "--restart-again session --wait-file session/restart-supported";
    } else if (mode == "hold") {
        actions = "--exit 0";
        std::ofstream("session/restart-hold").flush();
    }
    const pid_t launcher = launch(actions);
    usleep(unsigned(pick(spanUs)));
    std::vector<int> sent = {pickFrom(signals)};
    kill(mode == "group" ? -launcher : launcher, sent[0]);
    if (mode == "pair") {
        usleep(unsigned(pick(2000)));
        sent.push_back(pickFrom(signals));
        kill(launcher, sent[1]);
    }
    checkEnd(launcher, sent);
}

void tryIgnored(long)
{
    const pid_t launcher = launch("--ignore 15 --append ready --sleep");
    helperIsReady();
    kill(launcher, SIGTERM);
    checkEnd(launcher, {SIGTERM}, 1);
}

void tryKilled(long)
{
    const pid_t launcher = launch("--append ready --sleep");
    usleep(unsigned(pick(spanUs)));
    kill(launcher, SIGKILL);
    const size_t left = hasEnded(launcher) ? living().size() : 0;
    if (left > 1 || (left == 1 && !helperIsReady())) {
        wrong("leftovers", std::to_string(left) + " processes, or half a helper");
    }
    waitForEnd(launcher, left);
}

void tryEnds(long number)
{
    const std::string actions = number % 3 == 0 ? "--fork-exit --exit " : "--exit ";
    checkEnd(launch(actions + std::to_string(number % 256)));
}

const char* const resources[] = {"descriptors", "threads", "KiB"};

void tryRestarts(long)
{
    checkEnd(launch("--restart-again session"));

    // A line says what the launcher used, in numbers, and what the helper got.
    std::set<std::string> digests;
    std::vector<long> used[std::size(resources)];
    std::ifstream file("session/restarts");
    for (std::string word; file >> word; digests.insert(word)) {
        for (auto& values : used) {
            values.push_back(std::stol(word));
            file >> word;
        }
    }
    const auto count = long(used[0].size());
    if (count != options["--count"] || digests.size() != 1) {
        wrong("differences", std::to_string(count) + " helpers, and different things");
        return;
    }
    // The least of a third: a quick helper may still see the pipe ends that the
    // launcher closes after a start. A page table or an arena may grow once.
    for (size_t i = 0; i < std::size(resources); ++i) {
        const auto* const first = used[i].data() + std::min(5L, count / 2);
        const auto* const last = used[i].data() + count;
        const long early = *std::min_element(first, first + (count + 2) / 3);
        const long late = *std::min_element(last - (count + 2) / 3, last);
        printf("%ld, then %ld %s; ", early, late, resources[i]);
        if (late > early + early / 100) {
            wrong("leaks", resources[i]);
        }
    }
}

void tryOutput(long number)
{
    const auto size = size_t(options["--mebibytes"]) * 1024 * 1024;
    const std::string flood = std::to_string(size);
    const std::string end = number % 2 == 0 ? " --exit 3" : " --signal 6";
    const bool slow = number % 3 == 1;
    const bool leaves = number % 3 == 2;
    std::string expected(2 * size, 'x');
    for (size_t i = 99; i < size; i += 100) {
        expected[i] = expected[size + i] = '\n';
    }
    int pipe[2];
    static_cast<void>(pipe2(pipe, O_CLOEXEC));
    const pid_t launcher = launch("--flood " + flood + " --flood-error " + flood + end, pipe[1]);
    close(pipe[1]);
    std::string came;
    char buffer[65536];
    ssize_t count = 1;
    while (count > 0 && !(leaves && came.size() > size / 10)) {
        count = read(pipe[0], buffer, sizeof buffer);
        came.append(buffer, size_t(std::max<ssize_t>(count, 0)));
        usleep(slow ? 1000 : 0);
    }
    close(pipe[0]);
    if (leaves ? expected.compare(0, came.size(), came) != 0 : came != expected) {
        wrong("losses", "what came is not what the helper wrote");
    }
    // Of the launcher alone, in nanoseconds, as long as nobody has waited for it.
    constexpr long mostUsed = 200000000;
    long used = 0;
    std::ifstream("/proc/" + std::to_string(launcher) + "/schedstat") >> used;
    if (used == 0 || used > mostUsed) {
        wrong("spins", std::to_string(used) + " ns of processor time");
    }
    checkEnd(launcher);
}

// The calls that can fail so where a machine is in trouble, by their manual pages. What
// is no file does not wear out or fill up; close() is not there: an injected error
// would leave the descriptor open, which Linux never does, see close(2).
const std::map<std::string, std::string> callsOfErrors = {
    {"EACCES", "access|connect|faccessat2|getcwd|newfstatat|openat|readlink|statx|unlink"},
    {"EAGAIN", "clone|clone3|(read|write)\\(\\d+</"},
    {"EINTR", "connect|fcntl|openat|poll|ppoll|read|waitid|write"},
    {"EIO", "getdents64|unlink|(read|write)\\(\\d+</"},
    {"EMFILE", "dup|eventfd2|fcntl|openat|pipe2|socket"},
    {"ENOENT",
     "access|connect|faccessat2|getcwd|getdents64|newfstatat|openat|readlink|statx|unlink"},
    {"ENOMEM", "access|clone|clone3|close_range|eventfd2|faccessat2|fstat|mmap|newfstatat|openat|"
               "poll|ppoll|readlink|socket|statx"},
    {"ENOSPC", "openat|write\\(\\d+</"},
    {"ENOSYS", "close_range"},
    {"EPERM", "prlimit64"}};

// As strace is told of them.
std::vector<std::string> faults;

// Launches under strace, with the output in "errors"; the status of the end.
int runTraced(std::vector<const char*> words)
{
    words.insert(words.begin(), "/usr/bin/strace");
    const int output = open("errors", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool restarts = mode == "faults_restart";
    const pid_t pid =
        launch(restarts ? "--restart-again session" : "--append ready", output, words);
    close(output);
    waitForEnd(pid);
    return ends[pid];
}

// Lists the calls of a run, and which occurrence each is.
void listFaults()
{
    runTraced({"-y", "-o", "trace"});
    std::map<std::string, int> occurrences;
    std::ifstream trace("trace");
    for (std::string line; std::getline(trace, line);) {
        const std::string call = line.substr(0, line.find('('));
        const std::string when = ":when=" + std::to_string(++occurrences[call]);
        // Main begins with this question; what was before was the dynamic loader.
        if (line.find("RLIMIT_STACK, NULL") != std::string::npos) {
            faults.clear();
        }
        for (const auto& [error, calls] : callsOfErrors) {
            if (std::regex_search(line, std::regex("^(" + calls + ")\\b"))) {
                faults.push_back(std::string(call).append(":error=").append(error).append(when));
            }
        }
    }
    printf("%zu faults possible, ", faults.size());
    options["--count"] = std::min(options["--count"], long(faults.size()));
}

void tryFault(long number)
{
    trial = faults[size_t(number) * faults.size() / size_t(options["--count"])];
    const std::string inject = "inject=" + trial;
    // Of that call alone, and "-qq": strace itself prints nothing.
    const std::string trace = "trace=" + trial.substr(0, trial.find(':'));
    const int status =
        runTraced({"-qq", "-o", "/dev/null", "-e", trace.c_str(), "-e", inject.c_str()});
    std::ifstream file("errors");
    const std::string errors(std::istreambuf_iterator<char>(file), {});
    const bool losesMessage = std::regex_search(trial, std::regex("^write:error=(EIO|ENOSPC)"));
    if (status != 0 && status != W_EXITCODE(1, 0)) {
        wrong("wrong ends", "wait status " + std::to_string(status) + ": " + errors);
    } else if (status != 0 && errors.find(": ") == std::string::npos && !losesMessage) {
        wrong("silences", errors);
    } else if (status == 0 && !exists("ready") && !exists("session/restarts")) {
        wrong("lost launches", errors);
    }
}

const std::map<std::string, void (*)(long)> modes = {
    // clang-format off
    {"start", trySignal}, {"pair", trySignal}, {"group", trySignal}, {"restart", trySignal}, {"hold", trySignal},
    {"ignored", tryIgnored}, {"killed", tryKilled}, {"ends", tryEnds}, {"restarts", tryRestarts}, {"output", tryOutput},
    {"faults", tryFault}, {"faults_session", tryFault}, {"faults_restart", tryFault}, {"faults_failure", tryFault},
    {"sessionfiles", trySessionFile},
    // clang-format on
};

} // namespace

long pick(long count)
{
    return std::uniform_int_distribution<long>(0, count - 1)(randomBits);
}

void wrong(const char* kind, const std::string& what)
{
    ++wrongs;
    fprintf(stderr, "%s: %s (%s)\n", kind, what.c_str(), trial.c_str());
}

int main(int argc, char** argv)
{
    mode = argc > 1 ? argv[1] : "";
    bool understood = argc % 2 == 0 && modes.count(mode) > 0;
    for (int i = 2; i < argc && understood; i += 2) {
        understood = options.count(argv[i]) > 0;
        options[argv[i]] = strtol(argv[i + 1], nullptr, 10);
    }
    if (!understood) {
        fprintf(stderr, "%s: this mode or option is not understood\n", argv[0]);
        return 2;
    }
    randomBits.seed(static_cast<unsigned>(options["--seed"]));
    const QTemporaryDir root;
    fs::current_path(root.path().toStdString());
    for (const char* directory : {"bin", "lib", "libexec", "session"}) {
        fs::create_directory(directory);
    }
    fs::copy(ZORV_MPIRUN, "bin/zorv-mpirun");
    fs::copy(TESTCHILD, "bin/zorv-debugger");
    const bool sessionless = mode == "faults" || mode == "faults_failure";
    const long restarts = mode == "faults_restart" ? 2 : options["--count"];
    setenv("HOME", fs::current_path().c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("RESTARTS", std::to_string(restarts).c_str(), 1);
    setenv("ZORV_HOST", sessionless ? "" : "alpha", 1);
    setenv("ZORV_SESSION_PATH", fs::absolute("session").c_str(), 1);
    // Descendants come to us, and those that crash leave no core files.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);

    if (mode == "faults_failure") {
        fs::remove("bin/zorv-debugger");
    }
    const auto tryOnce = modes.at(mode);
    if (tryOnce == tryFault) {
        listFaults();
    }
    const long trials = tryOnce == tryRestarts ? 1 : options["--count"];
    for (long i = 0; i < trials && wrongs < mostWrong; ++i) {
        clean();
        trial = "trial " + std::to_string(i);
        tryOnce(i);
    }
    printf("%s: %ld tried, seed %ld: %ld wrong\n", mode.c_str(), options["--count"],
           options["--seed"], wrongs);
    return wrongs == 0 && options["--count"] > 0 ? 0 : 1;
}
