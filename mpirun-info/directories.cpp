// The directories that a launch uses, and their file systems.

#include "mpirun-info/mounts.h"
#include "mpirun-info/probe.h"
#include "mpirun-info/report.h"
#include "mpirun-info/request.h"
#include "mpirun-info/restartfiles.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/obstacle.h"
#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// File systems that hosts share and clients cache.
constexpr const char* sharedTypes[] = {"nfs", "nfs4", "cifs", "smb3", "afs", "fuse", "9p", "ceph"};
// Options that disable the caches of a client.
constexpr const char* uncachedOptions[] = {"noac",       "actimeo=0",  "lookupcache=none",
                                           "acdirmax=0", "cache=none", "direct_io"};

enum class Role {
    Session, // needed for restarts
    Needed,  // the launcher hangs if it gives no answer
    Other,
};

struct Place
{
    const char* key;
    QString path;
    Role role;
};

// Creates a file in another process and looks for it. Returns 1 if it is visible at once, 0
// if not, or the negative errno of the creation.
int makeAndSee(const QString& directory)
{
    const QByteArray name = QFile::encodeName(
        QDir(directory).filePath(QStringLiteral(".zorv-mpirun-info-%1").arg(getpid())));
    struct stat status;
    // Fills the cache of missing names.
    static_cast<void>(stat(name.constData(), &status));
    const pid_t pid = fork();
    if (pid == -1) {
        return -errno;
    }
    if (pid == 0) {
        const int fd = open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        _exit(fd == -1 ? errno : 0);
    }
    int end = 0;
    waitpid(pid, &end, 0);
    if (WEXITSTATUS(end) != 0) {
        return -WEXITSTATUS(end);
    }
    const bool isSeen = stat(name.constData(), &status) == 0;
    unlink(name.constData());
    return isSeen ? 1 : 0;
}

template <std::size_t Size> bool containsAny(const QString& text, const char* const (&words)[Size])
{
    const QStringList parts = text.split(QLatin1Char(','));
    return std::any_of(std::begin(words), std::end(words),
                       [&](const char* word) { return parts.contains(QLatin1String(word)); });
}

void findCaching(Report* report, const QString& path, const Mount& mount)
{
    if (containsAny(mount.type.section(QLatin1Char('.'), 0, 0), sharedTypes) &&
        !containsAny(mount.options, uncachedOptions)) {
        report->find(Finding::DirectoryCached,
                     QStringLiteral("%1: %2, %3").arg(path, mount.type, mount.options));
    }
}

// The facts that need no answer of a file server.
QJsonObject mountFacts(const QString& path, const QString& state, const Mount& mount)
{
    return objectOf({{"path", path},
                     {"state", state},
                     {"type", orNull(mount.type)},
                     {"mountPoint", orNull(mount.point)},
                     {"source", orNull(mount.source)},
                     {"options", orNull(mount.options)}});
}

// Why the directory cannot be examined; null if it can.
QString obstacleOnDirectory(const QString& path)
{
    const QString obstacle = obstacleOn(path);
    return obstacle.isNull() && !QFileInfo(path).isDir()
               ? QStringLiteral("%1 is not a directory").arg(path)
               : obstacle;
}

void findWriteError(Report* report, const Place& place, int error)
{
    const QString cause = QStringLiteral("%1: %2").arg(place.path, qt_error_string(error));
    if (error == ENOSPC || error == EDQUOT) {
        report->find(Finding::DirectoryFull, cause);
    } else if (error != 0 && place.role == Role::Session) {
        report->find(Finding::SessionDirectoryUnusable, cause);
    }
}

// Tests whether a file can be created, and whether other processes see it.
void lookAtWriting(Report* report, const Place& place, const struct statvfs& system,
                   QJsonObject* facts)
{
    const bool isWritable = faccessat(AT_FDCWD, QFile::encodeName(place.path).constData(),
                                      W_OK | X_OK, AT_EACCESS) == 0;
    const int seen = isWritable ? makeAndSee(place.path) : -errno;
    const bool isFull = isWritable && system.f_blocks > 0 && system.f_bavail == 0;
    // EAGAIN comes from fork(2).
    const bool isError = seen < 0 && seen != -EAGAIN;
    findWriteError(report, place, isFull ? ENOSPC : isError ? -seen : 0);
    facts->insert(QStringLiteral("writable"), isWritable);
    facts->insert(QStringLiteral("nameSeen"), seen < 0 ? QJsonValue() : QJsonValue(seen == 1));
    if (seen == 0) {
        report->find(Finding::NameNotSeen, place.path);
    }
}

void lookAtDirectory(Report* report, const Place& place, QJsonObject* facts)
{
    const QByteArray name = QFile::encodeName(place.path);
    struct stat status = {};
    struct statvfs system = {};
    stat(name.constData(), &status);
    statvfs(name.constData(), &system);
    const bool anyone = (status.st_mode & S_IWOTH) && !(status.st_mode & S_ISVTX);
    facts->insert(QStringLiteral("freeBytes"), qint64(system.f_bavail) * qint64(system.f_frsize));
    // File systems without a fixed number of inodes report 0 of 0.
    facts->insert(QStringLiteral("freeFiles"),
                  system.f_files ? QJsonValue(qint64(system.f_favail)) : QJsonValue());
    facts->insert(QStringLiteral("owner"), qint64(status.st_uid));
    facts->insert(QStringLiteral("mode"),
                  QStringLiteral("%1").arg(status.st_mode & 07777, 4, 8, QLatin1Char('0')));
    facts->insert(QStringLiteral("othersCanWrite"), anyone);
    if (anyone) {
        report->find(Finding::OthersCanWrite, place.path);
    }
    lookAtWriting(report, place, system, facts);
}

void lookAt(Report* report, const Place& place)
{
    QElapsedTimer timer;
    timer.start();
    const QString obstacle = obstacleOnDirectory(place.path);
    const QString canonical = QFileInfo(place.path).canonicalFilePath();
    const Mount mount = mountOf(canonical.isEmpty() ? place.path : canonical);
    QJsonObject facts =
        mountFacts(place.path, obstacle.isNull() ? QStringLiteral("present") : obstacle, mount);
    if (obstacle.isNull()) {
        lookAtDirectory(report, place, &facts);
    } else if (place.role == Role::Session) {
        report->find(Finding::SessionDirectoryUnusable, obstacle);
    }
    if (place.role == Role::Session) {
        findCaching(report, place.path, mount);
    }
    const double seconds = secondsOf(timer);
    facts.insert(QStringLiteral("seconds"), seconds);
    if (seconds > slowSeconds) {
        report->find(Finding::SlowDirectory,
                     QStringLiteral("%1: %2 s").arg(place.path).arg(seconds));
    }
    report->beginSection("directories");
    report->add(place.key, facts);
}

void describePlace(Report* report, const Place& place, Probe* probe)
{
    if (probe->wait() == Probe::Outcome::Answered) {
        report->addPacked(probe->answer());
        return;
    }
    const Mount mount = mountOf(QDir::current().absoluteFilePath(place.path));
    report->add(place.key, mountFacts(place.path, QStringLiteral("no answer"), mount));
    report->find(place.role == Role::Other ? Finding::NoAnswer : Finding::LaunchWouldHang,
                 QStringLiteral("%1, on %2 from %3").arg(place.path, mount.type, mount.source));
}

// The session directory and the directory of the session file, as the launcher finds them.
// If a file server gives no answer, they are guessed from options and settings.
QJsonValue findSessionPaths(const Request& request)
{
    BackendUserData session;
    static_cast<void>(findSession(request, &session));
    return QJsonArray{session.getSessionDirectory(false),
                      QFileInfo(session.sessionFileName()).path()};
}

QJsonValue guessSessionPaths(const Request& request)
{
    ZORVDebuggerOptions options;
    QString messages;
    static_cast<void>(parseCommandLine(request, &options, &messages));
    const QString file =
        options.sessionFileName().isEmpty() ? envPath("SESSION_FILE") : options.sessionFileName();
    const QString directory =
        UserData::getSessionDirectory(expandVars(options.getSharedDirectory()), false);
    return QJsonArray{directory, file.isEmpty() ? directory : QFileInfo(file).path()};
}

// Null if the command line asks for help.
QJsonValue sessionPaths(const Request& request)
{
    Probe found([&] { return findSessionPaths(request); });
    if (found.wait() != Probe::Outcome::NoAnswer) {
        return found.answer();
    }
    Probe guessed([&] { return guessSessionPaths(request); });
    guessed.wait();
    return guessed.answer();
}

// Why the launcher cannot write to the file; null if it can.
QString obstacleOnLog(const QString& file)
{
    const QString directory = QFileInfo(file).path();
    QString obstacle = obstacleOnDirectory(directory);
    if (!obstacle.isNull()) {
        return obstacle;
    }
    const RestartFile log(file);
    if (log.exists) {
        return log.isRefused() ? QStringLiteral("%1 cannot be overwritten").arg(file) : QString();
    }
    return faccessat(AT_FDCWD, QFile::encodeName(directory).constData(), W_OK | X_OK, AT_EACCESS) ==
                   0
               ? QString()
               : QStringLiteral("%1: %2").arg(directory, qt_error_string(errno));
}

} // namespace

void describeDirectories(Report* report, const Request& request)
{
    report->beginSection("directories");
    const char* const home = getenv("HOME");
    const char* const log = ZorvEnv::uncachedValue("MPIRUN_LOG");
    const QJsonValue paths = sessionPaths(request);
    const QString session = paths[0].toString();
    const QString file = paths[1].toString();
    const Place places[] = {
        {"installation", QFileInfo(QFile::decodeName(helperPath())).path(), Role::Needed},
        {"home", QFile::decodeName(home), Role::Other},
        {"session", session, Role::Session},
        {"sessionFile", file == session ? QString() : file, Role::Needed},
        {"log",
         log ? QFileInfo(QFile::decodeName(log)).path()
             : QFile::decodeName(ZorvEnv::uncachedValue("LOGS")),
         Role::Needed},
    };
    // All at once: each has its own limit.
    std::deque<Probe> probes;
    for (const Place& place : places) {
        probes.emplace_back(partOfReport([&place](Report* part) {
            if (!place.path.isEmpty()) {
                lookAt(part, place);
            }
        }));
    }
    for (std::size_t i = 0; i < probes.size(); ++i) {
        describePlace(report, places[i], &probes[i]);
    }
    if (!home && session == QLatin1String("//.talvora/session")) {
        report->find(Finding::HomeUnset, session);
    }
}

void describeLog(Report* report, const Request&)
{
    report->beginSection("log");
    const QString file = launcherLogFileName();
    const QString obstacle = file.isNull() ? QString() : obstacleOnLog(file);
    report->add("file", orNull(file));
    report->add("obstacle", orNull(obstacle));
    if (!obstacle.isNull()) {
        report->find(Finding::LogUnwritable, obstacle);
    } else if (file.isNull() && ZorvEnv::uncachedValue("LOGS")) {
        report->find(Finding::LogDirectoryMissing, obstacleOnDirectory(envPath("LOGS")));
    }
}
