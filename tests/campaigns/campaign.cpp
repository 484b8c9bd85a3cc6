// Tries the launcher many times, at random instants, in bad company:
//
//   campaign MODE [--count N] [--seed N] [--timeout MS] [--mebibytes N]
//
// Signals at random instants: nothing hangs, nothing is left behind, and the
// launcher and its helper end by the signal.
//
//   start     one signal over twice the time that a start takes
//   pair      two different signals, 0 to 2 ms apart
//   group     a signal to the whole process group, as a terminal sends it
//   restart   one signal while helpers are restarted that would outlive their launcher
//   hold      one signal around the end of a helper that is followed by a hold
//   ignored   a helper that ignores SIGTERM: the launcher ends all the same
//   killed    SIGKILL: what is left is one whole helper or none
//
// Whole runs:
//
//   ends      helpers that end at once, with every exit code, some with children of
//             their own that end at the same time
//   restarts  that many restarts in one run: the launcher uses no more at the end,
//             and every helper gets the same
//   output    a flood of mebibytes on both streams, then an exit or an abort, read
//             fast, slowly, or not to the end: it comes whole, and the launcher idles
//   sessionfiles  session files of any content
//
// Every system call of the launcher from main on failed once, with each error that
// can happen to it, by strace: the launcher ends or goes on, leaves no helper, and
// says what went wrong when it fails. The calls of the child between its fork and its
// exec are left out. The count bounds the number of injections.
//
//   faults    a run without a session; faults_session with one; faults_restart with a
//             restart; faults_failure of a helper that cannot be started
//
// The program is the subreaper of its descendants (see prctl(2)), so that nothing
// that a launch leaves behind escapes it.

#include "tests/campaigns/campaign.h"
#include "tests/support/installation.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>

#include <algorithm>
#include <array>
#include <climits>
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
#include <set>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using fs::exists;

namespace {

constexpr long mostWrong = 3;

std::string mode;
std::map<std::string, long> options = {
    {"--count", 100}, {"--seed", 1}, {"--timeout", 20000}, {"--mebibytes", 20}};
std::mt19937 randomBits;
std::string trial;
long wrongs = 0;

// The ends of processes: their ids and their status as from wait(2).
using Ends = std::map<pid_t, int>;

// Looks again all the time; false when that took longer than the timeout.
bool waitUntil(const std::function<bool()>& condition)
{
    const QDeadlineTimer deadline(options["--timeout"]);
    bool holds = condition();
    while (!holds && !deadline.hasExpired()) {
        usleep(100);
        holds = condition();
    }
    return holds;
}

// The children that live; adds those that have ended.
std::vector<pid_t> living(Ends* ends)
{
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        (*ends)[pid] = status;
    }
    std::ifstream children("/proc/thread-self/children");
    return {std::istream_iterator<pid_t>(children), {}};
}

void killLiving()
{
    Ends ends;
    for (auto left = living(&ends); !left.empty(); left = living(&ends)) {
        for (pid_t pid : left) {
            kill(pid, SIGKILL);
        }
    }
}

// Waits for the end of the launcher, and until only the survivors are left, which
// are then ended too.
Ends waitForEnd(pid_t launcher, size_t survivors = 0)
{
    Ends ends;
    std::vector<pid_t> left;
    if (!waitUntil([&] { return left = living(&ends), ends.count(launcher) > 0; })) {
        wrong("hangs", "the launcher goes on");
    } else if (!waitUntil([&] { return (left = living(&ends)).size() == survivors; })) {
        wrong("orphans", std::to_string(left.size()) + " processes are left");
    }
    killLiving();
    return ends;
}

// All must end with status 0 or by a signal that was sent, the launcher by it.
void checkEnd(pid_t launcher, const std::vector<int>& sent = {}, size_t survivors = 0)
{
    for (const auto& [pid, status] : waitForEnd(launcher, survivors)) {
        const bool asSent = WIFSIGNALED(status) &&
                            std::find(sent.begin(), sent.end(), WTERMSIG(status)) != sent.end();
        if (!asSent && (status != 0 || (pid == launcher && !sent.empty()))) {
            wrong("wrong ends",
                  (pid == launcher ? "launcher, wait status " : "helper, wait status ") +
                      std::to_string(status));
        }
    }
    if (!sent.empty() && exists("session/restart-supported")) {
        wrong("markers", "the marker is left");
    }
    if (exists("stray")) {
        wrong("strays", "a signal was sent to what is no child");
    }
}

// Starts the launcher in a process group of its own, with these words before it; its
// process id.
pid_t launch(const std::string& helperActions, int output = -1, std::vector<std::string> words = {})
{
    words.insert(words.end(), {"bin/zorv-mpirun", "-np", "2", "program"});
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    setenv("TESTCHILD", helperActions.c_str(), 1);
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        if (output != -1) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    setpgid(pid, pid);
    return pid;
}

// Removes what a launch leaves.
void clean()
{
    for (const char* file : {"session/restart-supported", "session/restart", "session/restart-hold",
                             "session/restarts", "stray", "ready"}) {
        fs::remove(file);
    }
}

// Twice the time that a run takes, in microseconds.
long spanUs()
{
    static const long span = [] {
        QElapsedTimer timer;
        timer.start();
        constexpr int runs = 5;
        for (int i = 0; i < runs; ++i) {
            waitForEnd(launch("--exit 0"));
        }
        clean();
        return 2 * timer.nsecsElapsed() / 1000 / runs;
    }();
    return span;
}

bool helperIsReady()
{
    return waitUntil([] { return exists("ready") || exists("session/restarts"); });
}

int anySignal()
{
    const int numbers[] = {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP};
    return numbers[pick(std::size(numbers))];
}

void trySignal(long)
{
    const bool restarts = mode == "restart";
    const bool holds = mode == "hold";
    const long span = spanUs();
    if (holds) {
        std::ofstream("session/restart-hold").flush();
    }
    // The marker goes with the launcher.
    const char* const whileRestarting =
        "--restart-again session --wait-file session/restart-supported";
    const pid_t launcher = launch(restarts ? whileRestarting
                                  : holds  ? "--append ready"
                                           : "--sleep");
    if (restarts || holds) {
        helperIsReady();
    }
    usleep(unsigned(pick(holds ? span / 4 : span)));
    std::vector<int> sent = {anySignal()};
    kill(mode == "group" ? -launcher : launcher, sent[0]);
    if (mode == "pair") {
        usleep(unsigned(pick(2000)));
        sent.push_back(anySignal());
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
    const long span = spanUs();
    const pid_t launcher = launch("--append ready --sleep");
    usleep(unsigned(pick(span)));
    kill(launcher, SIGKILL);
    siginfo_t info;
    waitid(P_PID, id_t(launcher), &info, WEXITED | WNOWAIT);
    Ends ends;
    const size_t left = living(&ends).size();
    if (left > 1 || (left == 1 && !helperIsReady())) {
        wrong("leftovers", std::to_string(left) + " processes, or half a helper");
    }
    killLiving();
}

void tryEnds(long number)
{
    const std::string actions = number % 3 == 0 ? "--fork-exit --exit " : "--exit ";
    checkEnd(launch(actions + std::to_string(number % 256)));
}

void tryRestarts(long)
{
    checkEnd(launch("--restart-again session"));

    // A line says what the launcher used, in numbers, and what the helper got.
    using Usage = std::array<long, 3>;
    std::vector<Usage> usages;
    std::set<std::string> digests;
    std::ifstream file("session/restarts");
    Usage used;
    for (std::string digest; file >> used[0] >> used[1] >> used[2] >> digest;) {
        usages.push_back(used);
        digests.insert(digest);
    }
    if (long(usages.size()) != options["--count"] || digests.size() != 1) {
        wrong("differences", std::to_string(usages.size()) + " helpers were started, and got " +
                                 std::to_string(digests.size()) + " different things");
        return;
    }
    // The least of many: a quick helper may still see the pipe ends that the
    // launcher closes after a start. A page table or an arena may grow once; what
    // leaks grows with the count.
    const char* const resources[] = {"descriptors", "threads", "KiB"};
    const long tolerances[] = {0, 0, 128};
    const auto window = std::max<long>(1, long(usages.size()) / 3);
    for (size_t i = 0; i < used.size(); ++i) {
        const auto least = [i, window](auto from) {
            const auto less = [i](const Usage& a, const Usage& b) { return a[i] < b[i]; };
            return (*std::min_element(from, from + window, less))[i];
        };
        const long early = least(usages.begin() + std::min<long>(5, window));
        const long late = least(usages.end() - window);
        printf("%ld, then %ld %s; ", early, late, resources[i]);
        if (late > early + tolerances[i]) {
            wrong("leaks", resources[i]);
        }
    }
}

// The processor time of a process of ours that ends, without that of its children.
long processorMs(pid_t pid)
{
    siginfo_t info = {};
    const bool ended = waitUntil([&] {
        return waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == pid;
    });
    clockid_t clock;
    timespec used;
    const bool known =
        ended && clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0;
    return known ? used.tv_sec * 1000 + used.tv_nsec / 1000000 : LONG_MAX;
}

void tryOutput(long number)
{
    const auto bytes = size_t(options["--mebibytes"]) * 1024 * 1024;
    // As the helper makes it, on both streams.
    static const std::string expected = [bytes] {
        std::string flood(bytes, 'x');
        for (size_t i = 99; i < bytes; i += 100) {
            flood[i] = '\n';
        }
        return flood + flood;
    }();
    const bool slow = number % 3 == 1;
    const bool leaves = number % 3 == 2;
    const std::string flood = std::to_string(bytes);
    const std::string end = number % 2 == 0 ? " --exit 3" : " --signal 6";
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) {
        wrong("pipes", "there are none");
        return;
    }
    const pid_t launcher = launch("--flood " + flood + " --flood-error " + flood + end, ends[1]);
    close(ends[1]);
    std::string came(65536, '\0');
    size_t total = 0;
    bool equal = true;
    ssize_t count;
    while (!(leaves && total > bytes / 10) &&
           (count = read(ends[0], came.data(), came.size())) > 0) {
        equal = equal && expected.compare(total, size_t(count), came, 0, size_t(count)) == 0;
        total += size_t(count);
        usleep(slow ? 1000 : 0);
    }
    close(ends[0]);
    if (!equal || (!leaves && total != expected.size())) {
        wrong("losses", "what came is not what was written");
    }
    constexpr long mostMs = 200;
    const long used = processorMs(launcher);
    if (used > mostMs) {
        wrong("spins", std::to_string(used) + " ms of processor time");
    }
    checkEnd(launcher);
}

// The calls that can fail so where a machine is in trouble, by their manual pages.
// close() is not there: an injected error would leave the descriptor open, which
// Linux never does, see close(2).
const std::map<std::string, std::string> callsOfErrors = {
    {"EACCES", " access connect faccessat2 getcwd newfstatat openat readlink statx unlink "},
    {"EAGAIN", " clone clone3 read write "},
    {"EINTR", " connect fcntl openat poll ppoll read waitid write "},
    {"EIO", " getdents64 read unlink write "},
    {"EMFILE", " dup eventfd2 fcntl openat pipe2 socket "},
    {"ENOENT",
     " access connect faccessat2 getcwd getdents64 newfstatat openat readlink statx unlink "},
    {"ENOMEM", " access clone clone3 close_range eventfd2 faccessat2 fstat mmap newfstatat openat "
               "poll ppoll readlink socket statx "},
    {"ENOSPC", " openat write "},
    {"ENOSYS", " close_range "},
    {"EPERM", " prlimit64 "}};

// As strace is told of them, and whether it is a message itself that fails for good.
std::vector<std::pair<std::string, bool>> injections;

// Launches under strace, with the output in "errors"; the status of the end.
int runTraced(std::vector<std::string> words)
{
    words.insert(words.begin(), "/usr/bin/strace");
    const int output = open("errors", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool restarts = mode == "faults_restart";
    const pid_t pid =
        launch(restarts ? "--restart-again session" : "--append ready", output, words);
    close(output);
    return waitForEnd(pid)[pid];
}

// Lists the calls of a run, and which occurrence each is.
void listInjections()
{
    runTraced({"-y", "-o", "trace"});
    std::map<std::string, int> occurrences;
    std::ifstream trace("trace");
    for (std::string line; std::getline(trace, line);) {
        const std::string call = line.substr(0, line.find('('));
        const std::string occurrence = std::to_string(++occurrences[call]);
        // Main begins with this question; what was before was the dynamic loader.
        if (line.find("RLIMIT_STACK, NULL") != std::string::npos) {
            injections.clear();
        }
        // What is no file does not wear out or fill up, and a pipe that waits does
        // not ask to be asked again.
        const bool isFile = line.find("</") < line.find(',') || (call != "read" && call != "write");
        for (const auto& [error, calls] : callsOfErrors) {
            const bool ofFiles = error == "EIO" || error == "ENOSPC" || error == "EAGAIN";
            const bool repeats = error == "EINTR" || error == "EAGAIN";
            if (calls.find(' ' + call + ' ') != std::string::npos && (isFile || !ofFiles)) {
                injections.emplace_back(call + ":error=" + error + ":when=" + occurrence,
                                        line.rfind("write(2<", 0) == 0 && !repeats);
            }
        }
    }
    printf("%zu injections possible, ", injections.size());
    options["--count"] = std::min(options["--count"], long(injections.size()));
}

void tryInjection(long number)
{
    const auto& [text, losesMessage] =
        injections[size_t(number) * injections.size() / size_t(options["--count"])];
    trial = text;
    // "-qq" and "/dev/null": strace itself prints nothing.
    const int status =
        runTraced({"-qq", "-o", "/dev/null", "-e", "trace=" + text.substr(0, text.find(':')), "-e",
                   "inject=" + text});
    const std::string errors = readFile(QStringLiteral("errors")).toStdString();
    if (status != 0 && status != W_EXITCODE(1, 0)) {
        wrong("wrong ends", "wait status " + std::to_string(status) + ": " + errors);
    } else if (status != 0 && errors.find(": ") == std::string::npos && !losesMessage) {
        wrong("silences", errors);
    } else if (status == 0 && !exists("ready") && !exists("session/restarts")) {
        wrong("lost launches", errors);
    }
}

const std::map<std::string, void (*)(long)> modes = {{"start", trySignal},
                                                     {"pair", trySignal},
                                                     {"group", trySignal},
                                                     {"restart", trySignal},
                                                     {"hold", trySignal},
                                                     {"ignored", tryIgnored},
                                                     {"killed", tryKilled},
                                                     {"ends", tryEnds},
                                                     {"restarts", tryRestarts},
                                                     {"output", tryOutput},
                                                     {"sessionfiles", trySessionFile},
                                                     {"faults", tryInjection},
                                                     {"faults_session", tryInjection},
                                                     {"faults_restart", tryInjection},
                                                     {"faults_failure", tryInjection}};

bool parse(int argc, char** argv)
{
    mode = argc > 1 ? argv[1] : "";
    bool known = argc % 2 == 0 && modes.count(mode) > 0;
    for (int i = 2; i < argc && known; i += 2) {
        known = options.count(argv[i]) > 0;
        options[argv[i]] = atol(argv[i + 1]);
    }
    return known;
}

// The environment of all launches.
void setEnvironment()
{
    const bool withSession = mode != "faults" && mode != "faults_failure";
    const long restarts = mode == "restarts"         ? options["--count"]
                          : mode == "faults_restart" ? 2
                                                     : 1000000;
    setenv("HOME", fs::current_path().c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("RESTARTS", std::to_string(restarts).c_str(), 1);
    setenv("ZORV_HOST", withSession ? "alpha" : "", 1);
    setenv("ZORV_SESSION_PATH", fs::absolute("session").c_str(), 1);
}

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
    if (!parse(argc, argv)) {
        fprintf(stderr, "%s: this mode or option is not understood\n", argv[0]);
        return 2;
    }
    randomBits.seed(static_cast<unsigned>(options["--seed"]));
    const Installation installation;
    fs::current_path(installation.path(QString()).toStdString());
    setEnvironment();
    // Descendants come to us, and those that crash leave no core files.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);

    if (mode == "faults_failure") {
        fs::remove("bin/zorv-debugger");
    }
    if (modes.at(mode) == tryInjection) {
        listInjections();
    }
    const long trials = mode == "restarts" ? 1 : options["--count"];
    for (long i = 0; i < trials && wrongs < mostWrong; ++i) {
        clean();
        trial = "trial " + std::to_string(i);
        modes.at(mode)(i);
    }
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    printf("%s: %ld tried, seed %ld, at most %ld KiB resident: %ld wrong\n", mode.c_str(),
           options["--count"], options["--seed"], usage.ru_maxrss, wrongs);
    return wrongs == 0 ? 0 : 1;
}
