// The inherited state of the process, and a trial of starting the helper.

#include "mpirun-info/probe.h"
#include "mpirun-info/sections.h"

#include "common/ProcInfo.h"
#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/process/stacklimit.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"

#include <QDir>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr rlim_t fewDescriptors = 64;
// Shorter than that of a question: the sections wait for the trial.
constexpr int trialLimitMs = 1000;

using Name = std::pair<int, const char*>;
constexpr Name signalNames[] = {
    {SIGHUP, "HUP"},   {SIGINT, "INT"},   {SIGQUIT, "QUIT"}, {SIGABRT, "ABRT"}, {SIGBUS, "BUS"},
    {SIGFPE, "FPE"},   {SIGSEGV, "SEGV"}, {SIGUSR1, "USR1"}, {SIGUSR2, "USR2"}, {SIGPIPE, "PIPE"},
    {SIGALRM, "ALRM"}, {SIGTERM, "TERM"}, {SIGCHLD, "CHLD"}, {SIGTSTP, "TSTP"}, {SIGTTIN, "TTIN"},
    {SIGTTOU, "TTOU"}, {SIGCONT, "CONT"}, {SIGURG, "URG"},   {SIGXFSZ, "XFSZ"},
};
constexpr Name limitNames[] = {
    {RLIMIT_AS, "addressSpace"},  {RLIMIT_CORE, "core"},       {RLIMIT_CPU, "processorSeconds"},
    {RLIMIT_DATA, "data"},        {RLIMIT_FSIZE, "fileSize"},  {RLIMIT_MEMLOCK, "lockedMemory"},
    {RLIMIT_NOFILE, "openFiles"}, {RLIMIT_NPROC, "processes"}, {RLIMIT_SIGPENDING, "signals"},
    {RLIMIT_STACK, "stack"},
};

QJsonArray signalsIn(const Start& start, const char* line)
{
    QJsonArray names;
    for (const auto& [signo, name] : signalNames) {
        if (start.hasSignal(line, signo)) {
            names.append(QLatin1String(name));
        }
    }
    return names;
}

QJsonValue valueOf(rlim_t limit)
{
    return limit == RLIM_INFINITY ? QJsonValue() : QJsonValue(qint64(limit));
}

QJsonObject limitsOf(const Start& start)
{
    QJsonObject limits;
    for (const auto& [resource, name] : limitNames) {
        const rlimit& limit = start.limits[resource];
        limits.insert(QLatin1String(name), objectOf({{"soft", valueOf(limit.rlim_cur)},
                                                     {"hard", valueOf(limit.rlim_max)}}));
    }
    return limits;
}

void describeSignals(Report* report, const Start& start)
{
    report->add("ignoredSignals", signalsIn(start, "SigIgn"));
    report->add("blockedSignals", signalsIn(start, "SigBlk"));
    QStringList blocked;
    for (int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        if (start.hasSignal("SigBlk", signo)) {
            blocked += QString::fromLocal8Bit(strsignal(signo));
        }
    }
    if (!blocked.isEmpty()) {
        report->find(Finding::SignalsBlocked, "blocked at the start: %1",
                     blocked.join(QLatin1Char(',')));
    }
}

void describeAffinity(Report* report, const Start& start)
{
    const QString atStart = start.value("Cpus_allowed_list");
    const QString now = ProcInfo::line(QStringLiteral("/proc/self/status"), "Cpus_allowed_list:");
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    report->add("processors", qint64(online));
    report->add("affinityAtStart", orNull(atStart));
    report->add("affinityNow", orNull(now.section(QLatin1Char('\t'), 1)));
    bool isOne = false;
    atStart.toInt(&isOne);
    if (isOne && online > 1) {
        report->find(Finding::SingleProcessor, "processor %1 of %2", atStart, online);
    }
}

// Makes the system calls of a start as QProcess makes them, with the descriptors that the
// launcher has open then: its log, and the pipe for the error of the exec. The child ends
// in the place of the exec.
QString errorOfTrial()
{
    const bool logs = ZorvEnv::uncachedValue("MPIRUN_LOG") || ZorvEnv::uncachedValue("LOGS");
    const Descriptor log(logs ? open("/dev/null", O_WRONLY | O_CLOEXEC) : -1);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) {
        return qt_error_string(errno);
    }
    const Descriptor readEnd(ends[0]);
    const Descriptor writeEnd(ends[1]);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
#if QT_VERSION >= QT_VERSION_CHECK(6, 6, 0)
    // As the launcher does: a fork would need more descriptors.
    process.setUnixProcessParameters(QProcess::UnixProcessFlag::UseVFork);
#endif
    if (ZorvEnv::readsOn(ZorvEnv::uncachedValue("HELPER_INPUT"))) {
        process.setInputChannelMode(QProcess::ForwardedInputChannel);
    }
    process.setChildProcessModifier([] { _exit(0); });
    process.start(QStringLiteral("/"), {}, QIODevice::ReadWrite);
    QString error = process.waitForStarted() ? QString() : process.errorString();
    process.waitForFinished();
    return error;
}

bool canFork()
{
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    return pid != -1 && waitpid(pid, nullptr, 0) == pid;
}

bool isStackLimitIgnored()
{
    return ZorvEnv::readsOn(ZorvEnv::uncachedValue("IGNORE_STACK_LIMIT"));
}

// The soft stack limit under which the helper is started.
rlim_t helperStackLimit(const rlimit& stack)
{
    const rlim_t remembered = rememberedStackLimit().value_or(stack.rlim_cur);
    return isStackLimitIgnored() || remembered > stack.rlim_max ? stack.rlim_cur : remembered;
}

// Becomes true(1) in the place of the helper, with its arguments and stack limit. Exits
// with the error number when that fails.
[[noreturn]] void becomeHelper(const Request& request, rlimit stack, rlim_t soft)
{
    const QByteArray name = helperPath();
    std::vector<const char*> arguments = {name.constData(), "--zorvmpirun"};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    arguments.push_back(nullptr);
    unsetenv("TALVORA_OLD_STACK_LIMIT");
    stack.rlim_cur = soft;
    setrlimit(RLIMIT_STACK, &stack);
    for (const char* program : {"/bin/true", "/usr/bin/true"}) {
        execv(program, const_cast<char**>(arguments.data()));
    }
    _exit(errno);
}

void describeStackLimit(Report* report, const Request& request)
{
    const rlimit& stack = request.start.limits[RLIMIT_STACK];
    const rlim_t soft = helperStackLimit(stack);
    report->add("helperStackLimit", valueOf(soft));
    const QString limit =
        soft == RLIM_INFINITY ? QStringLiteral("unlimited") : QString::number(soft);
    Probe trial([&]() -> QJsonValue { becomeHelper(request, stack, soft); }, trialLimitMs);
    // A trial that is not started would replace this process.
    const auto outcome = trial.isStarted() ? trial.wait() : Probe::Outcome::NoAnswer;
    if (outcome == Probe::Outcome::Exited && trial.answer().toInt() == E2BIG) {
        report->find(Finding::ArgumentsTooLong, "under a stack limit of %1", limit);
    } else if (outcome == Probe::Outcome::Killed) {
        report->find(Finding::StackTooSmall, "under a stack limit of %1: %2", limit,
                     QString::fromLocal8Bit(strsignal(trial.answer().toInt())));
    }
    if (qEnvironmentVariableIsSet("TALVORA_OLD_STACK_LIMIT")) {
        report->find(Finding::OldStackLimitSet, "TALVORA_OLD_STACK_LIMIT is '%1'",
                     qEnvironmentVariable("TALVORA_OLD_STACK_LIMIT"));
    } else if (!keepsStackLimit(stack.rlim_cur) && stack.rlim_max < freshCopyStackLimit &&
               !isStackLimitIgnored()) {
        report->find(Finding::StackLimitHard, "the hard limit is %1, the soft one %2",
                     stack.rlim_max, stack.rlim_cur);
    }
}

} // namespace

void describeStart(Report* report, const Request& request)
{
    const QString error = errorOfTrial();
    const rlim_t descriptors = request.start.limits[RLIMIT_NOFILE].rlim_cur;
    report->add("possible", error.isNull());
    report->add("error", orNull(error));
    if (!error.isNull()) {
        report->find(canFork() ? Finding::DescriptorsExhausted : Finding::ProcessesExhausted,
                     error);
    } else {
        describeStackLimit(report, request);
        if (descriptors < fewDescriptors) {
            report->find(Finding::FewDescriptors, "at most %1 open files", descriptors);
        }
    }
}

void describeProcess(Report* report, const Request& request)
{
    const Start& start = request.start;
    report->add("user", qint64(geteuid()));
    report->add("umask", start.value("Umask"));
    report->add("workingDirectory", QDir::currentPath());
    report->add("standardInput", start.standardInput);
    describeSignals(report, start);
    describeAffinity(report, start);
    report->add("limits", limitsOf(start));
}
