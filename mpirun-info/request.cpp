#include "mpirun-info/request.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/read.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QtGlobal>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr qsizetype largestSystemFile = 1 << 20;

// The CPU affinity before the constructors of libraries, of which an OpenMP library may
// change it; see the same in the launcher. Room for 8192 CPUs.
unsigned char g_affinity[1024];
long g_affinitySize = 0;

void recordAffinity(int, char**, char**)
{
    g_affinitySize = syscall(SYS_sched_getaffinity, 0, sizeof g_affinity, g_affinity);
}

[[gnu::section(".preinit_array"),
  gnu::used]] void (*const recordAffinityFirst)(int, char**, char**) = recordAffinity;

// As "0-3,8", like Cpus_allowed_list of proc(5).
QString affinityText()
{
    const auto isSet = [](int cpu) {
        return cpu < g_affinitySize * 8 && ((g_affinity[cpu / 8] >> (cpu % 8)) & 1) != 0;
    };
    QStringList ranges;
    for (int cpu = 0; cpu < g_affinitySize * 8; ++cpu) {
        if (isSet(cpu)) {
            const int first = cpu;
            while (isSet(cpu + 1)) {
                ++cpu;
            }
            ranges +=
                cpu == first ? QString::number(cpu) : QStringLiteral("%1-%2").arg(first).arg(cpu);
        }
    }
    return ranges.join(QLatin1Char(','));
}

QString* g_messages = nullptr;

void keepMessage(QtMsgType, const QMessageLogContext&, const QString& text)
{
    *g_messages += (g_messages->isEmpty() ? QString() : QStringLiteral("; ")) + text;
}

QString describeStandardInput()
{
    struct stat status;
    if (fstat(STDIN_FILENO, &status) == -1) {
        return QStringLiteral("closed");
    }
    if (isatty(STDIN_FILENO)) {
        return QStringLiteral("terminal");
    }
    switch (status.st_mode & S_IFMT) {
    case S_IFIFO:
        return QStringLiteral("pipe");
    case S_IFSOCK:
        return QStringLiteral("socket");
    case S_IFREG:
        return QStringLiteral("file");
    default:
        return QStringLiteral("device");
    }
}

} // namespace

Start Start::ofThisProcess()
{
    Start start = {};
    start.status = systemFile(QStringLiteral("/proc/self/status"));
    for (int resource = 0; resource < int(RLIM_NLIMITS); ++resource) {
        getrlimit(static_cast<__rlimit_resource>(resource), &start.limits[resource]);
    }
    start.affinity = affinityText();
    start.standardInput = describeStandardInput();
    return start;
}

bool Start::hasSignal(const char* line, int signo) const
{
    const quint64 mask = statusValue(status, line).toULongLong(nullptr, 16);
    return (mask >> (signo - 1)) & 1;
}

QByteArray statusValue(const QByteArray& status, const char* key)
{
    const QByteArray start = QByteArray(key) + ':';
    const QList<QByteArray> lines = status.split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(start)) {
            return line.mid(start.size()).trimmed();
        }
    }
    return QByteArray();
}

QByteArray systemFile(const QString& path)
{
    return readRegularFile(path, largestSystemFile).value_or(QByteArray()).trimmed();
}

bool parseCommandLine(const Request& request, ZORVDebuggerOptions* options, QString* messages)
{
    for (int prefix = 0; prefix < ZorvEnv::PrefixCount; ++prefix) {
        qunsetenv(ZorvEnv::variableName(prefix, "LOGS").constData());
    }
    g_messages = messages;
    const QtMessageHandler previous = qInstallMessageHandler(keepMessage);
    const bool accepted = options->parse(request.commandLine);
    qInstallMessageHandler(previous);
    return accepted;
}

bool findSession(const Request& request, BackendUserData* session)
{
    chooseInstallationLayout();
    ZORVDebuggerOptions options;
    QString messages;
    const bool accepted = parseCommandLine(request, &options, &messages);
    return session->load(options) && accepted;
}
