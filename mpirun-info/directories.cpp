// The directories that a launch uses, and their file systems.

#include "mpirun-info/probe.h"
#include "mpirun-info/restartfiles.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/obstacle.h"
#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <mntent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

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

// The file system of a path without links, see proc_pid_mounts(5). Asks no file server.
QJsonObject mountOf(const QString& path)
{
    QJsonObject mount =
        objectOf({{"type", {}}, {"mountPoint", {}}, {"source", {}}, {"options", {}}});
    const QString below = QDir::current().absoluteFilePath(path) + QLatin1Char('/');
    qsizetype longest = 0;
    FILE* const table = setmntent("/proc/self/mounts", "re");
    while (const mntent* const entry = table ? getmntent(table) : nullptr) {
        const QString point = QFile::decodeName(entry->mnt_dir);
        const QString start = point.endsWith(QLatin1Char('/')) ? point : point + QLatin1Char('/');
        // A later mount hides an earlier one at the same point.
        if (below.startsWith(start) && point.size() >= longest) {
            longest = point.size();
            mount = objectOf({{"type", QString::fromLatin1(entry->mnt_type)},
                              {"mountPoint", point},
                              {"source", orNull(QFile::decodeName(entry->mnt_fsname))},
                              {"options", orNull(QFile::decodeName(entry->mnt_opts))}});
        }
    }
    if (table) {
        endmntent(table);
    }
    return mount;
}

// Creates a file in another process and looks for it. Returns 1 if it is visible at once, 0
// if not, or the negative errno of the creation.
int makeAndSee(const QString& directory)
{
    const QByteArray name =
        QFile::encodeName(QDir(directory).filePath(filled(".zorv-mpirun-info-%1", getpid())));
    struct stat status;
    // Fills the cache of missing names.
    static_cast<void>(stat(name.constData(), &status));
    Probe maker([&] {
        const Descriptor fd(open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        return fd.isOpen() ? 0 : errno;
    });
    if (const int error = maker.answer().toInt()) {
        return -error;
    }
    const bool isSeen = stat(name.constData(), &status) == 0;
    unlink(name.constData());
    return isSeen ? 1 : 0;
}

// Reports a file system that hosts share and clients cache.
void findCaching(Report* report, const QString& path, const QJsonObject& mount)
{
    static const QRegularExpression shared(
        QStringLiteral("^(nfs|nfs4|cifs|smb3|afs|fuse|9p|ceph)(\\.|$)"));
    static const QRegularExpression uncached(QStringLiteral(
        "(^|,)(noac|actimeo=0|lookupcache=none|acdirmax=0|cache=none|direct_io)(,|$)"));
    const QString type = mount.value(QLatin1String("type")).toString();
    const QString options = mount.value(QLatin1String("options")).toString();
    if (type.contains(shared) && !options.contains(uncached)) {
        report->find(Finding::DirectoryCached, "%1: %2, %3", path, type, options);
    }
}

// Why the directory cannot be examined; null if it can.
QString obstacleOnDirectory(const QString& path)
{
    const QString obstacle = obstacleOn(path);
    return obstacle.isNull() && !QFileInfo(path).isDir() ? filled("%1 is not a directory", path)
                                                         : obstacle;
}

void findWriteError(Report* report, const Place& place, int error)
{
    const QString cause = filled("%1: %2", place.path, qt_error_string(error));
    if (error == ENOSPC || error == EDQUOT) {
        report->find(Finding::DirectoryFull, cause);
    } else if (error != 0 && place.role == Role::Session) {
        report->find(Finding::SessionDirectoryUnusable, cause);
    }
}

// Tests whether a file can be created, and whether other processes see it.
void lookAtWriting(Report* report, const Place& place, bool isFull, QJsonObject* facts)
{
    const int error = errorOfNewFileIn(place.path);
    const int seen = error == 0 ? makeAndSee(place.path) : -error;
    findWriteError(report, place, error == 0 && isFull ? ENOSPC : std::max(-seen, 0));
    extend(facts, {{"writable", error == 0},
                   {"nameSeen", seen < 0 ? QJsonValue() : QJsonValue(seen == 1)}});
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
    // File systems without a fixed number of inodes report 0 of 0.
    const QJsonValue freeFiles =
        system.f_files ? QJsonValue(qint64(system.f_favail)) : QJsonValue();
    extend(facts, {{"freeBytes", qint64(system.f_bavail) * qint64(system.f_frsize)},
                   {"freeFiles", freeFiles},
                   {"owner", qint64(status.st_uid)},
                   {"mode", QString::asprintf("%04o", status.st_mode & 07777)},
                   {"othersCanWrite", anyone}});
    if (anyone) {
        report->find(Finding::OthersCanWrite, place.path);
    }
    lookAtWriting(report, place, system.f_blocks > 0 && system.f_bavail == 0, facts);
}

void lookAt(Report* report, const Place& place)
{
    QElapsedTimer timer;
    timer.start();
    const QString obstacle = obstacleOnDirectory(place.path);
    const QString canonical = QFileInfo(place.path).canonicalFilePath();
    QJsonObject facts = mountOf(canonical.isEmpty() ? place.path : canonical);
    if (place.role == Role::Session) {
        findCaching(report, place.path, facts);
    }
    if (obstacle.isNull()) {
        lookAtDirectory(report, place, &facts);
    } else if (place.role == Role::Session) {
        report->find(Finding::SessionDirectoryUnusable, obstacle);
    }
    const double seconds = double(timer.elapsed()) / 1000;
    extend(&facts, {{"path", place.path},
                    {"state", obstacle.isNull() ? QStringLiteral("present") : obstacle},
                    {"seconds", seconds}});
    if (seconds > slowSeconds) {
        report->find(Finding::SlowDirectory, "%1: %2 s", place.path, seconds);
    }
    report->add(place.key, facts);
}

void describePlace(Report* report, const Place& place, Probe* probe)
{
    if (probe->isAnswered()) {
        report->addPacked(probe->answer());
        return;
    }
    QJsonObject facts = mountOf(place.path);
    report->find(place.role == Role::Other ? Finding::NoAnswer : Finding::LaunchWouldHang,
                 "%1, on %2 from %3", place.path, facts.value(QLatin1String("type")).toString(),
                 facts.value(QLatin1String("source")).toString());
    extend(&facts, {{"path", place.path}, {"state", QStringLiteral("no answer")}});
    report->add(place.key, facts);
}

// The session directory and the directory of the session file, as the launcher finds them.
QJsonValue findSessionPaths(const Request& request)
{
    BackendUserData session;
    static_cast<void>(findSession(request, &session));
    return QJsonArray{session.getSessionDirectory(false),
                      QFileInfo(session.sessionFileName()).path()};
}

// The same from options and settings alone, for when a file server gives no answer.
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
        return log.isRefused() ? filled("%1 cannot be overwritten", file) : QString();
    }
    const int error = errorOfNewFileIn(directory);
    return error == 0 ? QString() : filled("%1: %2", directory, qt_error_string(error));
}

} // namespace

void describeDirectories(Report* report, const Request& request)
{
    const char* const home = getenv("HOME");
    const char* const log = ZorvEnv::uncachedValue("MPIRUN_LOG");
    Probe found([&] { return findSessionPaths(request); });
    Probe guessed([&] { return guessSessionPaths(request); });
    // Neither answers if the command line asks for help.
    const bool isFound = found.wait() != Probe::Outcome::NoAnswer;
    const QJsonValue paths = isFound ? found.answer() : guessed.answer();
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
        probes.emplace_back(partOfReport("directories", [&place](Report* part) {
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
