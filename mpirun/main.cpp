#include "mpirun/affinity.h"
#include "mpirun/execreport.h"
#include "mpirun/launchcontext.h"
#include "mpirun/restartableprocess.h"
#include "mpirun/restartwatcher.h"
#include "mpirun/signalhandling.h"
#include "mpirun/startmask.h"

#include "backend/backenduserdata.h"
#include "branding/filenames.h"
#include "common/compatibility_simple/files/emptyfile.h"
#include "common/compatibility_simple/process/executable.h"
#include "common/compatibility_simple/process/stacklimit.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"
#include "common/logger.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QCoreApplication>
#include <QFile>
#include <QSignalBlocker>
#include <QSysInfo>

#include <cerrno>

namespace {

constexpr int startTimeoutMs = 30000;
constexpr int statusOfFailure = 1;

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

// Creates the marker file, and the handlers that remove it on a signal. The handlers come
// first: holdSignals() does not block signals on a thread of a preloaded library. Reports
// a marker that cannot be created, and returns false.
bool createMarker(const BackendUserData& session)
{
    bool isMade = false;
    holdSignals();
    handleEndingSignals();
    if (session.isValid()) {
        const QString fileName = session.getRestartFileName(QStringLiteral("supported"));
        setMarker(QFile::encodeName(fileName));
        isMade = createEmptyFile(fileName);
    }
    releaseSignals();
    return isMade;
}

void setUpHelper(RestartableProcess* process)
{
    process->setProcessChannelMode(QProcess::ForwardedChannels);
#if QT_VERSION >= QT_VERSION_CHECK(6, 6, 0)
    // Otherwise the child waits for the launcher before its exec, for ever if that is
    // killed. Earlier versions do not ask: LaunchContext::execHelper() is made for vfork(2).
    process->setUnixProcessParameters(QProcess::UnixProcessFlag::UseVFork);
#endif
    if (envFlag("HELPER_INPUT")) {
        process->setInputChannelMode(QProcess::ForwardedInputChannel);
    }
}

// Starts the helper with `start` and waits until its exec has succeeded or failed. Holds
// signals until the process id of the helper is known, so that none ends the launcher
// without reaching the helper. Returns an empty text, or the cause of the failure.
template <typename Start>
QString startHelper(RestartableProcess& process, const LaunchContext& context, const Start& start)
{
    ExecReport report;
    if (!report.isOpen()) {
        return qt_error_string(errno);
    }
    const int errorPipe = report.writeEnd();
    process.setChildProcessModifier([&context, errorPipe] { context.execHelper(errorPipe); });
    holdSignals();
    start();
    setSignalledHelper(static_cast<pid_t>(process.processId()));
    releaseSignals();
    if (!process.waitForStarted(startTimeoutMs)) {
        return process.errorString();
    }
    const int error = report.error();
    if (error == 0) {
        return QString();
    }
    // For QProcess, the child has started; it ends now.
    const QSignalBlocker blocker(process);
    process.waitForFinished();
    return qt_error_string(error);
}

template <typename Start>
bool startOrReport(RestartableProcess& process, const LaunchContext& context,
                   const QByteArray& path, const Start& start)
{
    const QString error = startHelper(process, context, start);
    if (!error.isEmpty()) {
        const QString text = describeStartFailure(QFile::decodeName(path), error);
        qCritical("%s: %s", path.constData(), text.toLocal8Bit().constData());
    }
    return error.isEmpty();
}

// The launcher's exit status after the end of the helper: 0, or with the switch
// HELPER_STATUS the helper's own, 128 + N after signal N.
int launcherStatus(const QProcess& process)
{
    if (!envFlag("HELPER_STATUS")) {
        return 0;
    }
    // After a crash, exitCode() is the number of the signal.
    return process.exitStatus() == QProcess::CrashExit ? 128 + process.exitCode()
                                                       : process.exitCode();
}

void noteEndOfHelper()
{
    endIfSignalled();
    setSignalledHelper(0);
    reapOrphans();
}

} // namespace

int main(int argc, char** argv)
{
    // 1. The process: affinity and stack limit, the state at the start before anything
    // changes it, the signals that are passed on.
    restoreAffinity();
    fixStackLimit(argc, argv, rememberSignalMask);
    recallSignalMask();
    LaunchContext context(argc, argv);
    context.prepareProcess();
    handlePassedSignals();

    // 2. The application.
    Logger::installPlainMsgHandler();
    QCoreApplication app(argc, argv);

    // 3. The installation.
    if (chooseInstallationLayout() == InstallationLayout::Unknown) {
        qCritical("%s: cannot find the installation: the program's file was replaced or removed",
                  FileName::zorvMpirun.toLocal8Bit().constData());
        return statusOfFailure;
    }

    // 4. The log, the command line, the session and its marker file.
    openLog();
    ZORVDebuggerOptions options;
    if (!options.parse(context.arguments())) {
        return statusOfFailure;
    }
    BackendUserData session;
    session.load(options);
    const bool hasMarker = createMarker(session);

    // 5. The helper. Its arguments are in the context.
    const QByteArray path = helperPath();
    context.setHelper(path);
    RestartableProcess process;
    setUpHelper(&process);

    // 6. The first start.
    const auto start = [&] {
        process.start(QFile::decodeName(path), QStringList(), QIODevice::ReadWrite);
    };
    if (!startOrReport(process, context, path, start)) {
        return statusOfFailure;
    }

    // 7. The end of the helper: a restart, or the end of the launcher.
    RestartWatcher watcher;
    watcher.setDirectoryWasWritable(hasMarker);
    if (session.isValid()) {
        watcher.setRestartFileName(session.getRestartFileName(QString()));
        watcher.setRestartHoldFileName(session.getRestartFileName(QStringLiteral("hold")));
    }
    QObject::connect(&watcher, &RestartWatcher::restart, &process, [&] {
        if (!startOrReport(process, context, path, [&] { process.restart(); })) {
            QCoreApplication::exit(statusOfFailure);
        }
    });
    QObject::connect(&watcher, &RestartWatcher::quit, &app,
                     [&] { QCoreApplication::exit(launcherStatus(process)); });
    QObject::connect(&process, &QProcess::finished, &process, noteEndOfHelper);
    QObject::connect(&process, &QProcess::finished, &watcher,
                     &RestartWatcher::checkForQuickRestart);

    return QCoreApplication::exec();
}
