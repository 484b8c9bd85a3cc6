// The directories that the launch touches, and the file systems that they are on.

#include "mpirun-info/mounts.h"
#include "mpirun-info/probe.h"
#include "mpirun-info/report.h"
#include "mpirun-info/request.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/obstacle.h"
#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/env/zorvenv.h"
#include "common/installation.h"
#include "common/logger.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QSysInfo>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr double slowSeconds = 0.5;

// File systems of which other hosts have a part, and a client keeps copies.
constexpr const char* sharedTypes[] = {"nfs", "nfs4", "cifs", "smb3", "afs", "fuse", "9p", "ceph"};
// Options that keep a client from answering out of its copies.
constexpr const char* uncachedOptions[] = {"noac",       "actimeo=0",  "lookupcache=none",
                                           "acdirmax=0", "cache=none", "direct_io"};

struct Place
{
    const char* key;
    QString path;
    bool launcherLooks; // whether the launcher stands still when it gives no answer
    std::unique_ptr<Probe> probe;
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

// What a probe finds out of a directory.
QJsonValue lookAt(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    if (stat(name.constData(), &status) == -1) {
        return QJsonObject{{QStringLiteral("state"), obstacleOn(path)}};
    }
    if (!S_ISDIR(status.st_mode)) {
        return QJsonObject{{QStringLiteral("state"), QStringLiteral("no directory")}};
    }
    struct statvfs system = {};
    statvfs(name.constData(), &system);
    const bool isWritable = faccessat(AT_FDCWD, name.constData(), W_OK | X_OK, AT_EACCESS) == 0;
    const int seen = isWritable ? makeAndSee(path) : -EACCES;
    const bool isFull = isWritable && system.f_blocks > 0 && system.f_bavail == 0;
    const bool anyone = (status.st_mode & S_IWOTH) && !(status.st_mode & S_ISVTX);
    return QJsonObject{
        {QStringLiteral("state"), QStringLiteral("present")},
        {QStringLiteral("canonicalPath"), QFileInfo(path).canonicalFilePath()},
        {QStringLiteral("freeBytes"), qint64(system.f_bavail) * qint64(system.f_frsize)},
        // Some file systems have no fixed number of inodes, and say 0 of 0.
        {QStringLiteral("freeFiles"),
         system.f_files ? QJsonValue(qint64(system.f_favail)) : QJsonValue()},
        {QStringLiteral("owner"), qint64(status.st_uid)},
        {QStringLiteral("mode"),
         QStringLiteral("%1").arg(status.st_mode & 07777, 4, 8, QLatin1Char('0'))},
        {QStringLiteral("writable"), isWritable},
        {QStringLiteral("othersCanWrite"), anyone},
        {QStringLiteral("nameSeen"), seen < 0 ? QJsonValue() : QJsonValue(seen == 1)},
        {QStringLiteral("error"), isFull                   ? ENOSPC
                                  : isWritable && seen < 0 ? -seen
                                                           : 0},
    };
}

template <std::size_t Size> bool containsAny(const QString& text, const char* const (&words)[Size])
{
    const QStringList parts = text.split(QLatin1Char(','));
    return std::any_of(std::begin(words), std::end(words),
                       [&](const char* word) { return parts.contains(QLatin1String(word)); });
}

void findFaultsOfSessionDirectory(Report* report, const QString& path, const QJsonValue& seen,
                                  const Mount& mount)
{
    const QString state = seen[QStringLiteral("state")].toString();
    if (state != QLatin1String("present")) {
        report->find(Finding::SessionDirectoryUnusable, QStringLiteral("%1: %2").arg(path, state));
    } else if (!seen[QStringLiteral("writable")].toBool()) {
        report->find(Finding::SessionDirectoryUnusable,
                     QStringLiteral("%1: you may not write to it").arg(path));
    }
    if (containsAny(mount.type.section(QLatin1Char('.'), 0, 0), sharedTypes) &&
        !containsAny(mount.options, uncachedOptions)) {
        report->find(Finding::DirectoryCached,
                     QStringLiteral("%1: %2, %3").arg(path, mount.type, mount.options));
    }
}

void findFaults(Report* report, const Place& place, const QJsonValue& seen, const Mount& mount)
{
    if (qstrcmp(place.key, "session") == 0) {
        findFaultsOfSessionDirectory(report, place.path, seen, mount);
    }
    if (place.probe->seconds() > slowSeconds) {
        report->find(Finding::SlowDirectory,
                     QStringLiteral("%1: %2").arg(place.path, secondsText(place.probe->seconds())));
    }
    if (seen[QStringLiteral("othersCanWrite")].toBool()) {
        report->find(Finding::OthersCanWrite, place.path);
    }
    const int error = seen[QStringLiteral("error")].toInt();
    if (error == ENOSPC || error == EDQUOT) {
        report->find(Finding::DirectoryFull,
                     QStringLiteral("%1: %2").arg(place.path, qt_error_string(error)));
    } else if (error != 0 && error != EAGAIN && qstrcmp(place.key, "session") == 0) {
        // EAGAIN is of the process that was to make the name.
        report->find(Finding::SessionDirectoryUnusable,
                     QStringLiteral("%1: %2").arg(place.path, qt_error_string(error)));
    }
    if (seen[QStringLiteral("nameSeen")].isBool() && !seen[QStringLiteral("nameSeen")].toBool()) {
        report->find(Finding::NameNotSeen, place.path);
    }
}

QStringList linesOf(const QJsonObject& facts)
{
    const auto text = [&](const char* key) { return textOf(facts[QLatin1String(key)]); };
    QStringList lines = {
        QStringLiteral("%1 (%2)").arg(text("path"), text("state")),
        QStringLiteral("%1 at %2 from %3").arg(text("type"), text("mountPoint"), text("source")),
        text("options")};
    if (facts[QStringLiteral("freeBytes")].isDouble()) {
        lines += QStringLiteral("%1 bytes and %2 files free")
                     .arg(qint64(facts[QStringLiteral("freeBytes")].toDouble()))
                     .arg(text("freeFiles"));
        lines += QStringLiteral("of user %1, mode %2, writable %3, others can write %4")
                     .arg(text("owner"), text("mode"), text("writable"), text("othersCanWrite"));
        lines +=
            QStringLiteral("a new name is seen at once: %1; %2")
                .arg(text("nameSeen"), secondsText(facts[QStringLiteral("seconds")].toDouble()));
    }
    return lines;
}

void describePlace(Report* report, const Place& place)
{
    const bool answered = place.probe->wait() == Probe::Outcome::Answered;
    const QJsonValue seen = place.probe->answer();
    const QString canonical = seen[QStringLiteral("canonicalPath")].toString(place.path);
    const Mount mount =
        mountOf(QDir::isAbsolutePath(canonical) ? canonical : QDir::current().filePath(canonical));
    QJsonObject facts = answered ? seen.toObject() : QJsonObject();
    facts.remove(QStringLiteral("canonicalPath"));
    facts.remove(QStringLiteral("error"));
    facts.insert(QStringLiteral("path"), place.path);
    facts.insert(QStringLiteral("type"), orNull(mount.type));
    facts.insert(QStringLiteral("mountPoint"), orNull(mount.point));
    facts.insert(QStringLiteral("source"), orNull(mount.source));
    facts.insert(QStringLiteral("options"), orNull(mount.options));
    if (answered) {
        facts.insert(QStringLiteral("seconds"), place.probe->seconds());
        findFaults(report, place, seen, mount);
    } else {
        facts.insert(QStringLiteral("state"), QStringLiteral("no answer"));
        report->find(place.launcherLooks ? Finding::LaunchWouldHang : Finding::NoAnswer,
                     QStringLiteral("%1, on %2 from %3").arg(place.path, mount.type, mount.source));
    }
    report->addLines(place.key, facts, linesOf(facts));
}

// The paths of the session as the launcher finds them; without those that need an answer of
// a file server that gives none.
QJsonValue findSessionPaths(const Request& request)
{
    BackendUserData session;
    static_cast<void>(findSession(request, &session));
    return QJsonObject{{QStringLiteral("session"), session.getSessionDirectory(false)},
                       {QStringLiteral("file"), QFileInfo(session.sessionFileName()).path()}};
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
    return QJsonObject{
        {QStringLiteral("session"), directory},
        {QStringLiteral("file"), file.isEmpty() ? directory : QFileInfo(file).path()}};
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

void addPlace(std::vector<Place>* places, const char* key, const QString& path, bool launcherLooks)
{
    if (!path.isEmpty()) {
        places->push_back(
            {key, path, launcherLooks, std::make_unique<Probe>([path] { return lookAt(path); })});
    }
}

QString logFileName()
{
    return Logger::logFileName("MPIRUN_LOG", QStringLiteral("zorvmpirun"),
                               QLatin1Char('-') + QSysInfo::machineHostName());
}

// Null, or why the launcher would not write to the file.
QString obstacleOnLog(const QString& file)
{
    const QString directory = QFileInfo(file).path();
    const QString path = QFile::exists(file) ? file : directory;
    if (!QFileInfo(directory).isDir()) {
        return obstacleOn(directory).isNull() ? QStringLiteral("%1 is no directory").arg(directory)
                                              : obstacleOn(directory);
    }
    return faccessat(AT_FDCWD, QFile::encodeName(path).constData(), W_OK, AT_EACCESS) == 0
               ? QString()
               : QStringLiteral("%1: %2").arg(path, qt_error_string(errno));
}

} // namespace

void describeDirectories(Report* report, const Request& request)
{
    report->beginSection("directories");
    const char* const home = getenv("HOME");
    const char* const log = ZorvEnv::uncachedValue("MPIRUN_LOG");
    const char* const logs = ZorvEnv::uncachedValue("LOGS");
    const QJsonValue paths = sessionPaths(request);
    const QString session = paths[QStringLiteral("session")].toString();
    const QString file = paths[QStringLiteral("file")].toString();
    std::vector<Place> places;
    addPlace(&places, "installation", QFileInfo(QFile::decodeName(helperPath())).path(), true);
    addPlace(&places, "home", QFile::decodeName(home), false);
    addPlace(&places, "session", session, true);
    addPlace(&places, "sessionFile", file == session ? QString() : file, true);
    addPlace(&places, "log",
             log ? QFileInfo(QFile::decodeName(log)).path() : QFile::decodeName(logs), true);
    for (const Place& place : places) {
        describePlace(report, place);
    }
    if (!home && session == QLatin1String("//.talvora/session")) {
        report->find(Finding::HomeUnset, session);
    }
}

void describeLog(Report* report, const Request&)
{
    report->beginSection("log");
    const QString file = logFileName();
    const QString obstacle = file.isNull() ? QString() : obstacleOnLog(file);
    report->add("file", orNull(file));
    report->add("obstacle", orNull(obstacle));
    if (!obstacle.isNull()) {
        report->find(Finding::LogUnwritable, obstacle);
    } else if (file.isNull() && ZorvEnv::uncachedValue("LOGS")) {
        const QString logs = envPath("LOGS");
        report->find(Finding::LogDirectoryMissing,
                     obstacleOn(logs).isNull() ? QStringLiteral("%1 is no directory").arg(logs)
                                               : obstacleOn(logs));
    }
}
