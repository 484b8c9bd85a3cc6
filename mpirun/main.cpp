// The launcher: starts the suite's debugger helper in place of an MPI job
// launcher, stays its parent, and restarts it when the front end asks.

#include "common/compatibility_simple/files/emptyfile.h"
#include "common/installation.h"
#include "mpirun/launchcontext.h"
#include "mpirun/restartableprocess.h"
#include "mpirun/restartwatcher.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/process/stacklimit.h"
#include "common/logger.h"
#include "common/mlib.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QCoreApplication>
#include <QFile>
#include <QSysInfo>

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int startTimeoutMs = 30000;

// What the signal handler reads: the helper that runs, or 0, and the marker that
// says that this launcher can restart its helper, or null. Never freed.
std::atomic<pid_t> pid = 0;
std::atomic<char*> g_restartSupportedFileName = nullptr;
static_assert(std::atomic<pid_t>::is_always_lock_free);
static_assert(std::atomic<char*>::is_always_lock_free);

// Whether `pid` still names a child of ours: once it has been waited for, the
// number may be somebody else's.
bool isOurChild(pid_t child)
{
    siginfo_t info;
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Takes the marker away, passes the signal on, and lets it end the launcher.
// Only calls that are safe in a handler, see signal-safety(7); waitid(2), which
// that page leaves out, is a plain system call.
void sighandler(int signo)
{
    signal(signo, SIG_DFL);
    if (const char* marker = g_restartSupportedFileName) {
        unlink(marker);
    }
    if (pid != 0 && isOurChild(pid)) {
        kill(pid, signo);
    }
    raise(signo);
    // The first process of a container is spared by default actions, see
    // pid_namespaces(7).
    if (getpid() == 1) {
        _exit(128 + signo);
    }
}

void installSignalHandlers()
{
    for (int signo : handledSignals) {
        signal(signo, sighandler);
    }
}

void openLog()
{
    Logger::installQtMsgHandler();
    const QString suffix = QStringLiteral("-%0").arg(QSysInfo::machineHostName());
    const QString fileName =
        Logger::logFileName("MPIRUN_LOG", QStringLiteral("zorvmpirun"), suffix);
    if (!fileName.isEmpty()) {
        Logger::installLogMsgHandler(fileName);
    }
}

// The name is known to the handler first, so that the marker is gone with the
// launcher from its first instant on. One that cannot be made is reported, and the
// launch goes on.
void createMarker(const QString& fileName)
{
    g_restartSupportedFileName = m_strdup(QFile::encodeName(fileName).constData());
    static_cast<void>(createEmptyFile(fileName));
}

// Makes a start of the helper and waits for its outcome; a helper that did not start
// is reported. Signals wait until the helper's id is known, so that none ends the
// launcher without reaching the helper.
template <typename Start>
bool startHelper(RestartableProcess& process, const LaunchContext& context, const QString& path,
                 const Start& start)
{
    context.holdSignals();
    start();
    pid = static_cast<pid_t>(process.processId());
    context.releaseSignals();
    if (process.waitForStarted(startTimeoutMs)) {
        return true;
    }
    qCritical("%s: %s", path.toLocal8Bit().constData(),
              process.errorString().toLocal8Bit().constData());
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    // 1. A sensible stack, and what we were started with, before anything
    // changes it.
    fixStackLimit(argc, argv);
    LaunchContext context(argc, argv);
    context.prepareProcess();

    // 2. The application.
    Logger::installPlainMsgHandler();
    QCoreApplication app(argc, argv);

    // 3. The installation that this executable belongs to.
    chooseInstallationLayout();

    // 4. The log, the command line, and the session that they belong to.
    openLog();
    ZORVDebuggerOptions options;
    if (!options.parse(context.arguments())) {
        return 1;
    }
    BackendUserData session;
    session.load(options);

    // From the marker on, a signal takes it away: one that comes before the
    // handlers are there waits for them.
    context.holdSignals();
    if (session.isValid()) {
        createMarker(session.getRestartFileName(QStringLiteral("supported")));
    }
    installSignalHandlers();
    context.releaseSignals();

    // 5. The helper and its arguments.
    const QString path = helperPath();
    RestartableProcess process;
    const QStringList arguments =
        QStringList(QStringLiteral("--zorvmpirun")) + context.arguments().mid(1);
    context.setHelper(QFile::encodeName(path));
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setChildProcessModifier([&context] { context.execHelper(); });

    // 6. The start.
    const auto start = [&] { process.start(path, arguments, QIODevice::ReadWrite); };
    if (!startHelper(process, context, path, start)) {
        return 1;
    }

    // 7. What follows when the helper ends.
    RestartWatcher watcher;
    if (session.isValid()) {
        watcher.setRestartFileName(session.getRestartFileName(QString()));
        watcher.setRestartHoldFileName(session.getRestartFileName(QStringLiteral("hold")));
    }
    QObject::connect(&watcher, &RestartWatcher::restart, &process, [&] {
        if (!startHelper(process, context, path, [&] { process.restart(); })) {
            QCoreApplication::exit(1);
        }
    });
    QObject::connect(&watcher, &RestartWatcher::quit, &app, &QCoreApplication::quit);
    QObject::connect(&process, &QProcess::finished, &process, [] { pid = 0; });
    QObject::connect(&process, &QProcess::finished, &watcher,
                     &RestartWatcher::checkForQuickRestart);

    return QCoreApplication::exec();
}
