// Tries the launcher many times, at random instants, in bad company:
//
//   campaign MODE [--count N] [--seed N] [--timeout MS] [--stop-at-first 1]
//
// Signals at random instants: nothing hangs, nothing is left behind, and the
// launcher and its helper end by the signal.
//
//   start            one signal over twice the time that a start takes
//   pair             two different signals, 0 to 2 ms apart
//   group            a signal to the whole process group, as a terminal sends it
//   restart          one signal while helpers end and are restarted all the time
//   hold             one signal around the end of a helper that is followed by a hold
//   ignored          a helper that ignores SIGTERM: the launcher ends all the same
//   killed           SIGKILL: what is left is one whole helper or none
//
// Whole runs:
//
//   ends             helpers that end at once, with every exit code, some with
//                    children of their own that end at the same time
//   restarts         that many restarts in one run: the launcher uses no more at
//                    the end, and every helper gets the same
//   output           floods of 5 MiB on both streams, and an exit or an abort, read
//                    fast, slowly, or not any more
//
// Every system call of the launcher failed once, with each error that can happen to
// it, by strace: the launcher ends or goes on, leaves no helper, and says what went
// wrong when it fails. What the dynamic loader does before main is left out, and so
// are the calls of the child between its fork and its exec. The count bounds the
// number of injections, which are then spread evenly.
//
//   faults           a run without a session
//   faults_session   a run with one
//   faults_restart   a run with a restart
//   faults_failure   a helper that cannot be started
//
// The program is the subreaper of its descendants (see prctl(2)), so that nothing
// that a launch leaves behind escapes it.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

std::string mode;
long count = 100;
long seed = 1;
long endTimeoutMs = 20000;
long stopAtFirst = 0;
std::mt19937 randomBits;
std::map<std::string, long> wrongs;
std::string root;

// The ends of processes: their ids and their status as from wait(2).
using Ends = std::map<pid_t, int>;

// How a launch is made, in the installation's directory.
struct LaunchPlan
{
    std::string helperActions;
    // What stands before the launcher on the command line.
    std::vector<std::string> before = {};
    bool withSession = true;
    bool ownProcessGroup = false;
    // Standard output and error; -1 for those of the campaign.
    int output = -1;
    long restarts = 1000000;
};

// The size of a file, 0 when there is none.
uintmax_t size(const std::string& name)
{
    std::error_code none;
    const uintmax_t bytes = fs::file_size(name, none);
    return none ? 0 : bytes;
}

void check(bool ok, const char* what)
{
    if (!ok) {
        perror(what);
        exit(2);
    }
}

// A temporary installation with the test child as the helper, which becomes the
// current directory, and an environment of which all launches have a part. With the
// variable INTERPOSE, the library of that path is put under the launcher.
void makeInstallation()
{
    root = (fs::temp_directory_path() / "campaign-XXXXXX").string();
    check(mkdtemp(root.data()), root.c_str());
    fs::current_path(root);
    for (const char* directory : {"bin", "lib", "libexec", "session"}) {
        fs::create_directory(directory);
    }
    fs::copy_file(ZORV_MPIRUN, "bin/zorv-mpirun");
    fs::copy_file(TESTCHILD, "bin/zorv-debugger");
    std::map<std::string, std::string> variables = {
        {"PATH", "/usr/bin:/bin"}, {"HOME", root}, {"ZORV_SESSION_PATH", root + "/session"}};
    if (const char* library = getenv("INTERPOSE")) {
        variables["LD_PRELOAD"] = library;
        variables["INTERPOSE_STRAY"] = root + "/stray";
        for (const char* name : {"INTERPOSE_DELAY_US", "INTERPOSE_BREAK"}) {
            variables[name] = getenv(name) ? getenv(name) : "";
        }
    }
    clearenv();
    for (const auto& [name, value] : variables) {
        setenv(name.c_str(), value.c_str(), 1);
    }
}

// Removes what a launch leaves.
void clean()
{
    for (const char* file : {"session/restart-supported", "session/restart", "session/restart-hold",
                             "session/restarts", "stray", "ready"}) {
        fs::remove(file);
    }
}

// Counts what was wrong, by kind, and prints the first few of each.
void wrong(const std::string& kind, const std::string& what)
{
    constexpr long printed = 5;
    if (++wrongs[kind] <= printed) {
        fprintf(stderr, "%s: %s\n", kind.c_str(), what.c_str());
    }
}

// Waits until the condition holds, looking again all the time; false when that took
// longer than the timeout.
bool waitUntil(const std::function<bool()>& condition, long timeoutMs = endTimeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    bool holds = condition();
    while (!holds && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        holds = condition();
    }
    return holds;
}

// Waits until a process or, for -1, all descendants have ended; adds what ended
// meanwhile.
bool waitForEnd(pid_t pid, Ends* ends, long timeoutMs = endTimeoutMs)
{
    const auto hasEnded = [&] {
        int status;
        pid_t ended;
        while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
            (*ends)[ended] = status;
            if (ended == pid) {
                return true;
            }
        }
        return pid == -1 && ended == -1 && errno == ECHILD;
    };
    return waitUntil(hasEnded, timeoutMs);
}

// The children that live, without those that only wait to be reaped.
std::vector<pid_t> living()
{
    const std::string self = std::to_string(getpid());
    std::ifstream children("/proc/self/task/" + self + "/children");
    std::vector<pid_t> result;
    pid_t pid;
    while (children >> pid) {
        siginfo_t info = {};
        const int known = waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT);
        if (known == 0 && info.si_pid == 0) {
            result.push_back(pid);
        }
    }
    return result;
}

// Ends what lives, for good.
void killLiving()
{
    Ends ends;
    do {
        for (pid_t pid : living()) {
            kill(pid, SIGKILL);
        }
    } while (!waitForEnd(-1, &ends, 100));
}

std::string describe(int status)
{
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "exit " + std::to_string(WEXITSTATUS(status));
}

// Starts the launcher; its process id.
pid_t launch(const LaunchPlan& plan)
{
    std::vector<std::string> arguments = plan.before;
    arguments.insert(arguments.end(), {root + "/bin/zorv-mpirun", "-np", "2", "program"});
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t pid = fork();
    check(pid != -1, "fork");
    if (pid == 0) {
        if (plan.ownProcessGroup) {
            setpgid(0, 0);
        }
        if (plan.output != -1) {
            dup2(plan.output, STDOUT_FILENO);
            dup2(plan.output, STDERR_FILENO);
        }
        setenv("TESTCHILD", plan.helperActions.c_str(), 1);
        setenv("RESTARTS", std::to_string(plan.restarts).c_str(), 1);
        setenv("ZORV_HOST", plan.withSession ? "alpha" : "", 1);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (plan.ownProcessGroup) {
        setpgid(pid, pid);
    }
    return pid;
}

// The launcher must end, with status 0 or by one of the signals that it was sent,
// its helpers too, and nothing may be left.
void checkEnd(pid_t launcher, const std::vector<int>& sent = {})
{
    Ends ends;
    if (!waitForEnd(launcher, &ends)) {
        wrong("hangs", "the launcher goes on");
    }
    if (!waitForEnd(-1, &ends)) {
        wrong("orphans", std::to_string(living().size()) + " processes are left");
        killLiving();
    }
    for (const auto& [pid, status] : ends) {
        const bool asSent = WIFSIGNALED(status) &&
                            std::find(sent.begin(), sent.end(), WTERMSIG(status)) != sent.end();
        if (pid == launcher && (sent.empty() ? status != 0 : !asSent)) {
            wrong("wrong ends", "the launcher ended by " + describe(status));
        } else if (pid != launcher && !sent.empty() && !asSent && status != 0) {
            wrong("wrong ends", "a helper ended by " + describe(status));
        }
    }
    if (!sent.empty() && fs::exists("session/restart-supported")) {
        wrong("markers", "the marker is left");
    }
    if (fs::exists("stray")) {
        wrong("strays", "a signal was sent to what is no child");
    }
}

void sleepRandomly(long longestUs)
{
    const long duration = std::uniform_int_distribution<long>(0, longestUs)(randomBits);
    std::this_thread::sleep_for(std::chrono::microseconds(duration));
}

// Twice the time that a run takes, the middle of several, in microseconds.
long spanUs()
{
    static long middle = 0;
    std::vector<long> times;
    for (int i = 0; i < 9 && middle == 0; ++i) {
        const auto before = Clock::now();
        Ends ends;
        waitForEnd(launch({"--exit 0"}), &ends);
        times.push_back(std::chrono::nanoseconds(Clock::now() - before).count() / 1000);
        clean();
    }
    std::sort(times.begin(), times.end());
    middle = times.empty() ? middle : times[times.size() / 2];
    return 2 * middle;
}

int anySignal()
{
    const int numbers[] = {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP};
    return numbers[std::uniform_int_distribution<size_t>(0, std::size(numbers) - 1)(randomBits)];
}

void trySignal(long)
{
    const long span = spanUs();
    const bool restarts = mode == "restart";
    const bool holds = mode == "hold";
    LaunchPlan plan{restarts ? "--restart-again session" : holds ? "--append ready" : "--sleep"};
    plan.ownProcessGroup = mode == "group";
    if (holds) {
        std::ofstream file("session/restart-hold");
    }
    const pid_t launcher = launch(plan);
    if (restarts || holds) {
        waitUntil([&] { return size("session/restarts") >= 128 || size("ready") > 0; });
    }
    sleepRandomly(holds ? span / 4 : span);
    std::vector<int> sent = {anySignal()};
    kill(plan.ownProcessGroup ? -launcher : launcher, sent[0]);
    if (mode == "pair") {
        sleepRandomly(2000);
        sent.push_back(anySignal());
        kill(launcher, sent[1]);
    }
    checkEnd(launcher, sent);
}

void tryIgnored(long)
{
    const pid_t launcher = launch({"--ignore 15 --append ready --sleep"});
    waitUntil([&] { return size("ready") > 0; });
    kill(launcher, SIGTERM);
    Ends ends;
    if (!waitForEnd(launcher, &ends) || !WIFSIGNALED(ends[launcher]) ||
        WTERMSIG(ends[launcher]) != SIGTERM) {
        wrong("wrong ends", "the launcher did not end by the signal");
    }
    const size_t left = living().size();
    if (left != 1) {
        wrong("wrong ends", std::to_string(left) + " helpers are left, not 1");
    }
    killLiving();
}

void tryKilled(long)
{
    const long span = spanUs();
    const pid_t launcher = launch({"--append ready --sleep"});
    sleepRandomly(span);
    kill(launcher, SIGKILL);
    Ends ends;
    waitForEnd(launcher, &ends);
    const size_t left = living().size();
    if (left > 1) {
        wrong("leftovers", std::to_string(left) + " processes are left");
    }
    if (left == 1 && !waitUntil([&] { return size("ready") > 0; })) {
        wrong("leftovers", "half a helper is left");
    }
    killLiving();
}

void tryEnds(long i)
{
    const std::string actions = i % 3 == 0 ? "--fork-exit --exit " : "--exit ";
    checkEnd(launch({actions + std::to_string(i % 256)}));
}

void tryRestarts(long)
{
    LaunchPlan plan{"--restart-again session"};
    plan.restarts = count;
    checkEnd(launch(plan));

    // A line says what the launcher used, in numbers, and what the helper got.
    std::vector<std::string> records;
    std::ifstream file("session/restarts");
    for (std::string line; std::getline(file, line);) {
        records.push_back(line);
    }
    if (long(records.size()) != count || records.size() < 11) {
        wrong("missing", std::to_string(records.size()) + " helpers were started");
        return;
    }
    // The least of many: a quick helper may still see the pipe ends that the
    // launcher closes after a start.
    const size_t window = std::max<size_t>(5, (records.size() - 5) / 3);
    long used[2][3];
    for (int late : {0, 1}) {
        const size_t first = late ? records.size() - window : 5;
        for (size_t i = first; i < first + window; ++i) {
            std::istringstream record(records[i]);
            for (long& number : used[late]) {
                long value;
                record >> value;
                number = i == first ? value : std::min(number, value);
            }
        }
        printf("%ld descriptors, %ld threads, %ld KiB; ", used[late][0], used[late][1],
               used[late][2]);
    }
    // A page table or an arena may grow once; what leaks grows with the count.
    const long toleranceKiB = 128;
    if (used[1][0] > used[0][0] || used[1][1] > used[0][1] ||
        used[1][2] > used[0][2] + toleranceKiB) {
        wrong("leaks", "the launcher uses more than at first");
    }
    for (const std::string& record : records) {
        if (record.substr(33) != records[0].substr(33)) {
            wrong("differences", "a helper got something else");
        }
    }
}

void tryOutput(long i)
{
    enum { Fast, Slow, Leaving } const reader = i % 3 == 0 ? Fast : i % 3 == 1 ? Slow : Leaving;
    constexpr long floodBytes = 5 * 1024 * 1024;
    const std::string flood = std::to_string(floodBytes);
    int ends[2];
    check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    LaunchPlan plan{"--flood " + flood + " --flood-error " + flood +
                    (i % 2 == 0 ? " --exit 3" : " --signal 6")};
    plan.output = ends[1];
    const pid_t launcher = launch(plan);
    close(ends[1]);
    char buffer[65536];
    long total = 0;
    ssize_t bytes = 1;
    while (bytes > 0 && !(reader == Leaving && total > floodBytes / 10)) {
        bytes = read(ends[0], buffer, reader == Slow ? 4096 : sizeof buffer);
        total += bytes;
        if (reader == Slow && total % (64 * 4096) == 0) {
            usleep(200);
        }
    }
    close(ends[0]);
    checkEnd(launcher);
    if (reader != Leaving && total != 2 * floodBytes) {
        wrong("losses", std::to_string(total) + " bytes came");
    }
}

// What the manual pages list and a machine in trouble gives. Calls that are not
// here cannot fail for such reasons; close() is not, because an injected error
// leaves the descriptor open, which Linux never does, see close(2).
const std::map<std::string, std::vector<const char*>> errorsOf = {
    // clang-format off
    {"access", {"ENOENT", "EACCES", "ENOMEM"}}, {"clone", {"EAGAIN", "ENOMEM"}},
    {"clone3", {"EAGAIN", "ENOMEM"}}, {"close_range", {"ENOMEM", "ENOSYS"}},
    {"connect", {"ENOENT", "EACCES", "EINTR"}}, {"dup", {"EMFILE"}},
    {"eventfd2", {"EMFILE", "ENOMEM"}}, {"faccessat2", {"ENOENT", "EACCES", "ENOMEM"}},
    {"fcntl", {"EMFILE", "EINTR"}}, {"fstat", {"ENOMEM"}}, {"getcwd", {"ENOENT", "EACCES"}},
    {"getdents64", {"ENOENT", "EIO"}}, {"mmap", {"ENOMEM"}},
    {"newfstatat", {"ENOENT", "EACCES", "ENOMEM"}},
    {"openat", {"ENOENT", "EACCES", "EMFILE", "ENOMEM", "ENOSPC", "EINTR"}},
    {"pipe2", {"EMFILE"}}, {"poll", {"EINTR", "ENOMEM"}}, {"ppoll", {"EINTR", "ENOMEM"}},
    {"prlimit64", {"EPERM"}}, {"read", {"EINTR", "EIO", "EAGAIN"}},
    {"readlink", {"ENOENT", "EACCES", "ENOMEM"}}, {"socket", {"EMFILE", "ENOMEM"}},
    {"statx", {"ENOENT", "EACCES", "ENOMEM"}}, {"unlink", {"ENOENT", "EACCES", "EIO"}},
    {"waitid", {"EINTR"}}, {"write", {"EINTR", "EIO", "ENOSPC", "EAGAIN"}},
    // clang-format on
};

bool startsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

// Whether the call in a line of strace's output can fail so: what is no file does
// not wear out or fill up, and a pipe that waits does not ask to be asked again.
bool canFail(const std::string& line, const std::string& error)
{
    const bool isFile = line.find("</") < line.find(',');
    const bool fileError = error == "EIO" || error == "ENOSPC" || error == "EAGAIN";
    return isFile || !fileError || !(startsWith(line, "read(") || startsWith(line, "write("));
}

struct Injection
{
    std::string call;
    // As strace is told of it.
    std::string text;
    // Whether it is the message itself that fails for good.
    bool losesMessage;
};
std::vector<Injection> injections;

// The campaign's launch under strace, with its output in "errors".
LaunchPlan planFor(std::vector<std::string> straceOptions)
{
    LaunchPlan plan;
    plan.helperActions = mode == "faults_restart" ? "--restart-again session" : "--append ready";
    plan.withSession = mode == "faults_session" || mode == "faults_restart";
    plan.restarts = 2;
    plan.before = std::move(straceOptions);
    plan.before.insert(plan.before.begin(), "/usr/bin/strace");
    const int flags = O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC;
    plan.output = open("errors", flags, 0600);
    return plan;
}

// The calls of a run, and which occurrence each is. Those before main's first,
// the question for the stack limit, are counted but not returned.
void listInjections()
{
    const LaunchPlan plan = planFor({"-y", "-o", "trace"});
    Ends ends;
    waitForEnd(launch(plan), &ends);
    close(plan.output);
    std::map<std::string, int> occurrences;
    std::ifstream trace("trace");
    std::string line;
    while (std::getline(trace, line)) {
        const std::string call = line.substr(0, line.find('('));
        const int occurrence = ++occurrences[call];
        if (line.find("RLIMIT_STACK, NULL") != std::string::npos) {
            injections.clear();
        }
        const auto errors = errorsOf.find(call);
        for (const char* error :
             errors == errorsOf.end() ? std::vector<const char*>() : errors->second) {
            if (canFail(line, error)) {
                const std::string text =
                    call + ":error=" + error + ":when=" + std::to_string(occurrence);
                const bool forGood = strcmp(error, "EINTR") != 0 && strcmp(error, "EAGAIN") != 0;
                injections.push_back({call, text, forGood && startsWith(line, "write(2<")});
            }
        }
    }
    printf("%zu injections possible, ", injections.size());
    count = std::min(count, long(injections.size()));
}

void tryInjection(long i)
{
    const Injection& injection = injections[size_t(i) * injections.size() / size_t(count)];
    // "-qq" and "/dev/null": strace itself prints nothing.
    const LaunchPlan plan = planFor({"-qq", "-o", "/dev/null", "-e", "trace=" + injection.call,
                                     "-e", "inject=" + injection.text});
    const pid_t launcher = launch(plan);
    close(plan.output);
    Ends ends;
    if (!waitForEnd(launcher, &ends)) {
        wrong("hangs", injection.text);
    }
    const int status = ends[launcher];
    if (!waitForEnd(-1, &ends)) {
        wrong("orphans", injection.text);
        killLiving();
    }
    std::ostringstream errors;
    errors << std::ifstream("errors").rdbuf();
    const std::string text = errors.str();
    if (status != 0 && (!WIFEXITED(status) || WEXITSTATUS(status) != 1)) {
        wrong("wrong ends", injection.text + ": " + describe(status) + ": " + text);
    } else if (status != 0 && text.empty() && !injection.losesMessage) {
        wrong("silences", injection.text);
    } else if (status == 0 && mode != "faults_restart" && size("ready") == 0) {
        wrong("lost launches", injection.text);
    }
}

bool parse(int argc, char** argv)
{
    // clang-format off
    const std::map<std::string, long*> options = {
        {"--count", &count}, {"--seed", &seed}, {"--timeout", &endTimeoutMs}, {"--stop-at-first", &stopAtFirst},
    };
    // clang-format on
    for (int i = 2; i + 1 < argc; i += 2) {
        const auto option = options.find(argv[i]);
        if (option == options.end()) {
            return false;
        }
        *option->second = atol(argv[i + 1]);
    }
    mode = argc > 1 ? argv[1] : "";
    return argc % 2 == 0;
}

// clang-format off
const std::map<std::string, std::function<void(long)>> modes = {
    {"start", trySignal}, {"pair", trySignal}, {"group", trySignal}, {"restart", trySignal}, {"hold", trySignal},
    {"ignored", tryIgnored}, {"killed", tryKilled}, {"ends", tryEnds}, {"output", tryOutput}, {"restarts", tryRestarts},
    {"faults", tryInjection}, {"faults_session", tryInjection}, {"faults_restart", tryInjection}, {"faults_failure", tryInjection},
};
// clang-format on

} // namespace

int main(int argc, char** argv)
{
    const auto tryOnce = modes.find(parse(argc, argv) ? mode : "");
    if (tryOnce == modes.end()) {
        fprintf(stderr, "%s: this mode or option is not understood\n", argv[0]);
        return 2;
    }
    randomBits.seed(static_cast<unsigned>(seed));
    makeInstallation();
    // Before anything is started: descendants come to us, and those that crash leave
    // no core files.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);

    if (mode == "faults_failure") {
        fs::remove("bin/zorv-debugger");
    }
    if (startsWith(mode, "faults")) {
        listInjections();
    }
    const long trials = mode == "restarts" ? 1 : count;
    for (long i = 0; i < trials && (stopAtFirst == 0 || wrongs.empty()); ++i) {
        clean();
        tryOnce->second(i);
    }
    printf("%s: %ld tried, seed %ld:", mode.c_str(), count, seed);
    for (const auto& [kind, number] : wrongs) {
        printf(" %ld %s", number, kind.c_str());
    }
    puts(wrongs.empty() ? " nothing wrong" : "");
    fs::current_path("/");
    fs::remove_all(root);
    return wrongs.empty() ? 0 : 1;
}
