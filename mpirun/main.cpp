// The launcher: starts the suite's debugger helper in place of an MPI job
// launcher, stays its parent, and restarts it when the front end asks.

#include "mpirun/launchcontext.h"
#include "mpirun/restartableprocess.h"
#include "mpirun/restartwatcher.h"

#include "branding/filenames.h"
#include "common/logger.h"
#include "common/talvoraglobals.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <csignal>

namespace {

constexpr int startTimeoutMs = 30000;

// The helper that runs, or 0. Read by the signal handler.
volatile sig_atomic_t pid = 0;

void chooseInstallationLayout(const QFileInfo& applicationDir)
{
    if (applicationDir.fileName() == QLatin1String("bin")) {
        TalvoraGlobals::instance()->setLocationsFromInstallPath(QDir(applicationDir.path()).path());
    } else {
        TalvoraGlobals::instance()->setLocationsAsFlatPath(applicationDir.filePath());
    }
}

// Waits for the outcome of a start; a helper that did not start is reported.
bool helperStarted(RestartableProcess& process, const QString& path)
{
    if (process.waitForStarted(startTimeoutMs)) {
        return true;
    }
    qCritical("%s: %s", path.toLocal8Bit().constData(),
              process.errorString().toLocal8Bit().constData());
    return false;
}

// Connects the watcher's restarts to the process, so that pid is 0 from the end
// of one helper on and names the next before a signal can be handled.
void connectRestarts(RestartWatcher& watcher, RestartableProcess& process, const QString& path,
                     const LaunchContext& context)
{
    QObject::connect(&process, &QProcess::finished, &process, [] { pid = 0; });
    QObject::connect(&watcher, &RestartWatcher::restart, &process, [&] { context.holdSignals(); });
    QObject::connect(&watcher, &RestartWatcher::restart, &process, &RestartableProcess::restart);
    QObject::connect(&watcher, &RestartWatcher::restart, &process, [&] {
        pid = static_cast<int>(process.processId());
        context.releaseSignals();
        if (!helperStarted(process, path)) {
            QCoreApplication::exit(1);
        }
    });
}

} // namespace

int main(int argc, char** argv)
{
    // 1. What we were started with, before anything changes it.
    LaunchContext context(argc, argv);
    context.prepareProcess();

    // 2. The application.
    Logger::installPlainMsgHandler();
    QCoreApplication app(argc, argv);

    // 3. The installation that this executable belongs to.
    const QFileInfo applicationDir(QCoreApplication::applicationDirPath());
    chooseInstallationLayout(applicationDir);

    // 5. The helper and its arguments.
    const QString path =
        QDir(TalvoraGlobals::instance()->binPath()).filePath(FileName::zorvDebugger);
    RestartableProcess process;
    QStringList arguments(QStringLiteral("--zorvmpirun"));
    arguments += QCoreApplication::arguments().mid(1);
    context.setHelper(QFile::encodeName(path));
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setChildProcessModifier([&context] { context.execHelper(); });

    // 6. The start. Signals wait until the helper's id is known, so that none
    // ends the launcher without reaching the helper.
    context.holdSignals();
    process.start(path, arguments, QIODevice::ReadWrite);
    pid = static_cast<int>(process.processId());
    context.releaseSignals();
    if (!helperStarted(process, path)) {
        return 1;
    }

    // 7. What follows when the helper ends.
    RestartWatcher watcher;
    connectRestarts(watcher, process, path, context);
    QObject::connect(&watcher, &RestartWatcher::quit, &app, &QCoreApplication::quit);
    QObject::connect(&process, &QProcess::finished, &watcher,
                     &RestartWatcher::checkForQuickRestart);

    return QCoreApplication::exec();
}
