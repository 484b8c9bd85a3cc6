#include "common/installation.h"

#include "branding/filenames.h"
#include "common/talvoraglobals.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* ownExecutable = "/proc/self/exe";

bool isSameFile(const char* path1, const char* path2)
{
    struct stat status1;
    struct stat status2;
    return stat(path1, &status1) == 0 && stat(path2, &status2) == 0 &&
           status1.st_dev == status2.st_dev && status1.st_ino == status2.st_ino;
}

QByteArray parentOf(const QByteArray& path)
{
    return path.left(qMax<qsizetype>(path.lastIndexOf('/'), 1));
}

// The directory of the running program; empty when its file is no longer at its path.
// QCoreApplication::applicationDirPath() falls back to the working directory, and a QString
// cannot hold bytes that are not valid UTF-8.
QByteArray findOwnDirectory()
{
    char path[PATH_MAX];
    const ssize_t length = readlink(ownExecutable, path, sizeof path - 1);
    if (length == -1) {
        // Without /proc, the command line or PATH names the program.
        const QString directory = QCoreApplication::applicationDirPath();
        return QDir::isAbsolutePath(directory) ? QFile::encodeName(directory) : QByteArray();
    }
    path[length] = '\0';
    const QByteArray file(path);
    // The kernel appends this to the path of a removed file, see proc(5). It may also be
    // part of the name.
    if (file.endsWith(" (deleted)") && !isSameFile(path, ownExecutable)) {
        return QByteArray();
    }
    return parentOf(file);
}

// Cached, because readlink(2) and stat(2) look names up.
QByteArray ownDirectory()
{
    static const QByteArray directory = findOwnDirectory();
    return directory;
}

// A path of the directory as a QString. If its bytes are not valid UTF-8, the entry of an
// open descriptor in /proc, which is valid until the process ends.
QString textOf(const QByteArray& directory)
{
    QString text = QFile::decodeName(directory);
    if (QFile::encodeName(text) == directory) {
        return text;
    }
    const int fd = open(directory.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    return fd == -1 ? text : QStringLiteral("/proc/self/fd/%1").arg(fd);
}

} // namespace

InstallationLayout chooseInstallationLayout()
{
    const QByteArray directory = ownDirectory();
    if (directory.isEmpty()) {
        return InstallationLayout::Unknown;
    }
    if (!directory.endsWith("/bin")) {
        TalvoraGlobals::instance()->setLocationsAsFlatPath(textOf(directory));
        return InstallationLayout::Flat;
    }
    TalvoraGlobals::instance()->setLocationsFromInstallPath(textOf(parentOf(directory)));
    return InstallationLayout::Installed;
}

QByteArray helperPath()
{
    const QByteArray directory = ownDirectory();
    if (directory.isEmpty()) {
        return QByteArray();
    }
    const QByteArray name = QFile::encodeName(FileName::zorvDebugger);
    return directory.endsWith('/') ? directory + name : directory + '/' + name;
}
