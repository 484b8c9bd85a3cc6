// Tries the launcher many times, at random instants and with faults. README.md says what
// each mode does and how it judges. The program is the subreaper of its descendants (see
// prctl(2)), so that it sees whatever a launch leaves behind.

#include "tests/campaigns/campaign.h"

#include <QCommandLineParser>
#include <QCoreApplication>
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

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;
using fs::exists;

namespace {

constexpr long mostWrong = 3;
// About twice the time that a start takes.
constexpr long spanUs = 25000;
const int endingSignals[] = {SIGABRT, SIGINT,  SIGTERM, SIGSEGV, SIGFPE, SIGBUS,
                             SIGHUP,  SIGQUIT, SIGILL,  SIGTRAP, SIGSYS, SIGSTKFLT};
const int passedSignals[] = {SIGUSR1,   SIGUSR2, SIGCONT, SIGWINCH, SIGURG, SIGALRM,
                             SIGVTALRM, SIGPROF, SIGXCPU, SIGPWR,   SIGIO,  SIGRTMIN};

std::string mode;
struct Number
{
    QString option;
    QString description;
    long value;
};
Number trials = {u"count"_s, u"Trials."_s, 100};
Number seed = {u"seed"_s, u"Of the random numbers."_s, 1};
Number firstTrial = {u"first"_s, u"Number of the first trial."_s, 0};
Number timeoutMs = {u"timeout"_s, u"Milliseconds for each wait."_s, 20000};
Number mebibytes = {u"mebibytes"_s, u"Of a flood."_s, 20};
// What every launcher is run under, besides what a mode runs it under.
std::vector<QByteArray> under;
std::mt19937 randomBits;
long trialNumber = 0;
std::string trial;
long wrongs = 0;
// The children that have ended, and their status as from wait(2).
std::map<pid_t, int> ends;

// Looks again all the time; false when that took longer than the timeout.
bool waitUntil(const std::function<bool()>& condition)
{
    const QDeadlineTimer deadline(timeoutMs.value);
    bool holds = condition();
    while (!holds && !deadline.hasExpired()) {
        usleep(500);
        holds = condition();
    }
    return holds;
}

std::string contentOf(const char* fileName)
{
    std::ifstream file(fileName);
    return {std::istreambuf_iterator<char>(file), {}};
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

// Starts the launcher in a process group of its own; its process id. What it is run
// under comes first.
pid_t launch(const std::string& helperActions, int output = -1, std::vector<const char*> argv = {})
{
    for (const QByteArray& word : under) {
        argv.push_back(word.constData());
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
    std::vector<int> sent = {pickFrom(endingSignals)};
    kill(mode == "group" ? -launcher : launcher, sent[0]);
    if (mode == "pair") {
        usleep(unsigned(pick(2000)));
        sent.push_back(pickFrom(endingSignals));
        kill(launcher, sent[1]);
    }
    checkEnd(launcher, sent);
}

// The signal is blocked from the start, so that it waits for the helper to look at it.
void tryPassed(long)
{
    const int signo = pickFrom(passedSignals);
    sigset_t passed;
    sigemptyset(&passed);
    sigaddset(&passed, signo);
    sigprocmask(SIG_BLOCK, &passed, nullptr);
    const pid_t launcher = launch("--record-signals ready");
    sigprocmask(SIG_UNBLOCK, &passed, nullptr);
    usleep(unsigned(pick(2 * spanUs)));
    kill(launcher, signo);
    const std::string expected = std::to_string(signo) + " 0\n";
    const auto records = [] { return contentOf("ready"); };
    if (!waitUntil([&] { return records().find('\n' + expected) != std::string::npos; })) {
        wrong("lost signals", "the helper did not get signal " + std::to_string(signo));
    }
    kill(launcher, SIGTERM);
    checkEnd(launcher, {SIGTERM});
    const std::string all = records();
    if (all.substr(all.find('\n') + 1) != expected + "15 0\n") {
        wrong("stray signals", all);
    }
}

// As Ctrl-Z does, and then fg.
void tryStop(long)
{
    const pid_t launcher = launch("--sleep");
    usleep(unsigned(pick(spanUs)));
    kill(-launcher, SIGTSTP);
    const auto isStopped = [launcher] {
        siginfo_t info = {};
        const int look = WSTOPPED | WNOHANG | WNOWAIT;
        return waitid(P_PID, id_t(launcher), &info, look) == 0 && info.si_pid == launcher;
    };
    if (!waitUntil(isStopped)) {
        wrong("hangs", "the launcher does not stop");
    }
    kill(-launcher, SIGCONT);
    kill(launcher, SIGTERM);
    checkEnd(launcher, {SIGTERM});
}

void tryIgnored(long)
{
    const pid_t launcher = launch("--ignore 15 --append ready --sleep");
    waitUntil([] { return exists("ready"); });
    kill(launcher, SIGTERM);
    checkEnd(launcher, {SIGTERM}, 1);
}

void tryKilled(long)
{
    const pid_t launcher = launch("--append ready --sleep");
    usleep(unsigned(pick(spanUs)));
    kill(launcher, SIGKILL);
    // A helper that runs stays. A child that is none yet becomes one, or ends.
    const bool settled =
        hasEnded(launcher) && waitUntil([] { return living().empty() || exists("ready"); });
    const size_t left = living().size();
    if (!settled || left > 1) {
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
    for (std::string digest; !file.eof(); digests.insert(digest)) {
        for (auto& values : used) {
            file >> values.emplace_back();
        }
        file >> digest >> std::ws;
    }
    const auto count = long(used[0].size());
    if (count != trials.value || digests.size() != 1) {
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
    const long size = mebibytes.value * 1024 * 1024;
    const std::string flood = std::to_string(size);
    const std::string end = number % 2 == 0 ? " --exit 3" : " --signal 6";
    const bool slow = number % 3 == 1;
    const bool leaves = number % 3 == 2;
    int pipe[2];
    static_cast<void>(pipe2(pipe, O_CLOEXEC));
    const pid_t launcher = launch("--flood " + flood + " --flood-error " + flood + end, pipe[1]);
    close(pipe[1]);
    long came = 0;
    char buffer[65536];
    ssize_t count = 1;
    while (count > 0 && !(leaves && came > size / 10)) {
        count = read(pipe[0], buffer, sizeof buffer);
        came += count;
        usleep(slow ? 1000 : 0);
    }
    close(pipe[0]);
    if (!leaves && came != 2 * size) {
        wrong("losses", std::to_string(came) + " bytes came of twice " + flood);
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
    trials.value = std::clamp(long(faults.size()) - firstTrial.value, 0L, trials.value);
}

// The helpers that have run, each of which has written a record of 64 bytes.
long restarts()
{
    return exists("session/restarts") ? long(fs::file_size("session/restarts")) / 64 : 0;
}

void tryFault(long number)
{
    // Spread over the list: the number of the trial is the place of its fault.
    const long step = number - firstTrial.value;
    const long left = long(faults.size()) - firstTrial.value;
    trialNumber = firstTrial.value + step * left / trials.value;
    trial = faults[size_t(trialNumber)];
    const std::string inject = "inject=" + trial;
    // Of that call alone, and "-qq": strace itself prints nothing.
    const std::string trace = "trace=" + trial.substr(0, trial.find(':'));
    const int status =
        runTraced({"-qq", "-o", "/dev/null", "-e", trace.c_str(), "-e", inject.c_str()});
    const std::string errors = contentOf("errors");
    const bool losesMessage = std::regex_search(trial, std::regex("^write:error=(EIO|ENOSPC)"));
    // To a look at a file, this is an answer and no failure.
    const bool findsNothing = std::regex_search(trial, std::regex("^(openat|statx):error=ENOENT"));
    if (status != 0 && status != W_EXITCODE(1, 0)) {
        wrong("wrong ends", "wait status " + std::to_string(status) + ": " + errors);
    } else if (status != 0 && errors.find(": ") == std::string::npos && !losesMessage) {
        wrong("silences", errors);
    } else if (status == 0 && !exists("ready") && !exists("session/restarts")) {
        wrong("lost launches", errors);
    } else if (status == 0 && mode == "faults_restart" && errors.empty() && restarts() != 2 &&
               !findsNothing) {
        wrong("lost restarts", std::to_string(restarts()) + " helpers instead of 2");
    }
}

const std::map<std::string, void (*)(long)> modes = {{"start", trySignal},
                                                     {"pair", trySignal},
                                                     {"group", trySignal},
                                                     {"restart", trySignal},
                                                     {"hold", trySignal},
                                                     {"passed", tryPassed},
                                                     {"stop", tryStop},
                                                     {"ignored", tryIgnored},
                                                     {"killed", tryKilled},
                                                     {"ends", tryEnds},
                                                     {"restarts", tryRestarts},
                                                     {"output", tryOutput},
                                                     {"faults", tryFault},
                                                     {"faults_session", tryFault},
                                                     {"faults_restart", tryFault},
                                                     {"faults_failure", tryFault},
                                                     {"sessionfiles", trySessionFile}};

// Takes the mode and the options from the command line; ends the program if it cannot.
void parseCommandLine(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Tries the launcher many times. README.md says what the modes are."_s);
    parser.addHelpOption();
    parser.addPositionalArgument(u"mode"_s, u"What is tried."_s);
    parser.addPositionalArgument(u"command"_s, u"What the launcher is run under."_s,
                                 u"[command...]"_s);
    Number* const numbers[] = {&trials, &seed, &firstTrial, &timeoutMs, &mebibytes};
    for (const Number* number : numbers) {
        parser.addOption(
            {number->option, number->description, u"N"_s, QString::number(number->value)});
    }
    parser.process(arguments);
    QStringList words = parser.positionalArguments();
    mode = words.isEmpty() ? std::string() : words.takeFirst().toStdString();
    for (const QString& word : words) {
        under.push_back(word.toLocal8Bit());
    }
    bool understood = modes.count(mode) > 0;
    for (Number* number : numbers) {
        bool isNumber = true;
        number->value = parser.value(number->option).toLong(&isNumber);
        understood = understood && isNumber && number->value >= 0;
    }
    if (!understood) {
        fprintf(stderr, "The mode or a number is not understood; see campaign --help\n");
        exit(2);
    }
}

} // namespace

long pick(long count)
{
    return std::uniform_int_distribution<long>(0, count - 1)(randomBits);
}

void wrong(const char* kind, const std::string& what)
{
    ++wrongs;
    fprintf(stderr, "%s: %s (%s)\nRepeat it with: campaign %s --seed %ld --first %ld --count 1\n",
            kind, what.c_str(), trial.c_str(), mode.c_str(), seed.value, trialNumber);
}

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    parseCommandLine(QCoreApplication::arguments());
    const QTemporaryDir root;
    fs::current_path(root.path().toStdString());
    for (const char* directory : {"bin", "lib", "libexec", "session"}) {
        fs::create_directory(directory);
    }
    fs::copy(ZORV_MPIRUN, "bin/zorv-mpirun");
    fs::copy(TESTCHILD, "bin/zorv-debugger");
    const bool sessionless = mode == "faults" || mode == "faults_failure";
    const long restarts = mode == "faults_restart" ? 2 : trials.value;
    setenv("HOME", fs::current_path().c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("RESTARTS", std::to_string(restarts).c_str(), 1);
    setenv("ZORV_HOST", sessionless ? "" : "alpha", 1);
    setenv("ZORV_SESSION_PATH", fs::absolute("session").c_str(), 1);
    // Descendants come to us, and those that crash leave no core files.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    // nohup(1) and the background jobs of a shell ignore some.
    for (int signo : endingSignals) {
        signal(signo, SIG_DFL);
    }

    if (mode == "faults_failure") {
        fs::remove("bin/zorv-debugger");
    }
    const auto tryOnce = modes.at(mode);
    if (tryOnce == tryFault) {
        listFaults();
    }
    const long times = tryOnce == tryRestarts ? 1 : trials.value;
    for (long i = 0; i < times && wrongs < mostWrong; ++i) {
        clean();
        trialNumber = firstTrial.value + i;
        trial = "trial " + std::to_string(trialNumber);
        // Random numbers of the trial's own, so that it can be repeated alone.
        randomBits.seed(static_cast<unsigned>(seed.value * 1000003 + trialNumber));
        tryOnce(trialNumber);
    }
    printf("%s: %ld tried, seed %ld: %ld wrong\n", mode.c_str(), trials.value, seed.value, wrongs);
    return wrongs == 0 && trials.value > 0 ? 0 : 1;
}
