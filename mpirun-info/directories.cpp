// The directories that the launch touches, and the file systems that they are on.

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

// File systems of which other hosts have a part, and a client keeps copies.
constexpr const char* sharedTypes[] = {"nfs", "nfs4", "cifs", "smb3", "afs", "fuse", "9p", "ceph"};
// Options that keep a client from answering out of its copies.
constexpr const char* uncachedOptions[] = {"noac",       "actimeo=0",  "lookupcache=none",
                                           "acdirmax=0", "cache=none", "direct_io"};

enum class Role {
    Session, // the launcher works without, but without restarts
    Needed,  // the launcher stands still when it gives no answer
    Other,
};

struct Place
{
    const char* key;
    QString path;
    Role role;
};

// Makes a name in another process and looks for it: 1 when it is seen at once, 0 when it is
// not, or the negative error number of making it.
int makeAndSee(const QString& directory)
{
    const QByteArray name = QFile::encodeName(
        QDir(directory).filePath(QStringLiteral(".zorv-mpirun-info-%1").arg(getpid())));
    struct stat status;
    // The system may remember that there is none.
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

// What is known of a place without asking its file server.
QJsonObject mountFacts(const QString& path, const QString& state, const Mount& mount)
{
    return objectOf({{"path", path},
                     {"state", state},
                     {"type", orNull(mount.type)},
                     {"mountPoint", orNull(mount.point)},
                     {"source", orNull(mount.source)},
                     {"options", orNull(mount.options)}});
}

// Null, or what is in the way of a look at the directory.
QString obstacleOnDirectory(const QString& path)
{
    const QString obstacle = obstacleOn(path);
    return obstacle.isNull() && !QFileInfo(path).isDir()
               ? QStringLiteral("%1 is no directory").arg(path)
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

// Whether a file can be made there, and is seen by others.
void lookAtWriting(Report* report, const Place& place, const struct statvfs& system,
                   QJsonObject* facts)
{
    const bool isWritable = faccessat(AT_FDCWD, QFile::encodeName(place.path).constData(),
                                      W_OK | X_OK, AT_EACCESS) == 0;
    const int seen = isWritable ? makeAndSee(place.path) : -errno;
    const bool isFull = isWritable && system.f_blocks > 0 && system.f_bavail == 0;
    // EAGAIN is of the process that was to make the name; other directories need not be writable.
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
    // Some file systems have no fixed number of inodes, and say 0 of 0.
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

// The paths of the session as the launcher finds them; without those that need an answer of
// a file server that gives none.
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

// Null when the command line asks for help.
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

// Null, or why the launcher would not write to the file.
QString obstacleOnLog(const QString& file)
{
    const QString directory = QFileInfo(file).path();
    const QString obstacle = obstacleOnDirectory(directory);
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
