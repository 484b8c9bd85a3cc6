#include "mpirun-info/request.h"

#include "backend/backenduserdata.h"
#include "branding/filenames.h"
#include "common/compatibility_simple/files/read.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"
#include "common/logger.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSysInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr qsizetype largestSystemFile = 1 << 17;

// /proc/self/status before the constructors of libraries, of which an OpenMP library may
// change the affinity, see affinity.cpp of the launcher.
char g_status[16384];

void recordStatus(int, char**, char**)
{
    const auto fd = int(syscall(SYS_openat, AT_FDCWD, "/proc/self/status", O_RDONLY | O_CLOEXEC));
    if (fd != -1) {
        syscall(SYS_read, fd, g_status, sizeof g_status - 1);
        syscall(SYS_close, fd);
    }
}

[[gnu::section(".preinit_array"),
  gnu::used]] void (*const recordStatusFirst)(int, char**, char**) = recordStatus;

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
    start.status = g_status;
    for (int resource = 0; resource < int(RLIM_NLIMITS); ++resource) {
        getrlimit(static_cast<__rlimit_resource>(resource), &start.limits[resource]);
    }
    start.standardInput = describeStandardInput();
    return start;
}

bool Start::hasSignal(const char* line, int signo) const
{
    const quint64 mask = value(line).toULongLong(nullptr, 16);
    return (mask >> (signo - 1)) & 1;
}

QString Start::value(const char* key) const
{
    const QByteArray start = QByteArray(key) + ":\t";
    const QList<QByteArray> lines = status.split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(start)) {
            return QString::fromLatin1(line.mid(start.size()));
        }
    }
    return QString();
}

QString launcherPath()
{
    const QDir here(QCoreApplication::applicationDirPath());
    return QFileInfo(here.filePath(FileName::zorvMpirun)).canonicalFilePath();
}

QString launcherLogFileName()
{
    return Logger::logFileName("MPIRUN_LOG", QStringLiteral("zorvmpirun"),
                               QLatin1Char('-') + QSysInfo::machineHostName());
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
