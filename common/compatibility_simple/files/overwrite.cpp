// Writing files anew where other users may have put something at their names.

#include "common/compatibility_simple/files/overwrite.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/fileio.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString foreign = QStringLiteral("belongs to another user");
const QString severalNames = QStringLiteral("has other names, where others can write");
const QString noFile = QStringLiteral("is no regular file");

// The directory that holds the file. One that cannot be examined belongs to
// nobody, and everybody can write to it.
struct Directory
{
    explicit Directory(const QString& fileName)
    {
        struct stat status = {};
        known = stat(QFile::encodeName(QFileInfo(fileName).path()).constData(), &status) == 0;
        owner = status.st_uid;
        shared = !known || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    }
    bool isTrusted(uid_t user) const { return user == geteuid() || (known && user == owner); }

    bool known;
    uid_t owner;
    bool shared;
};

// Without O_TRUNC: whether the file may be emptied is to be seen first.
int openOnce(const QByteArray& name, int flags)
{
    return uninterrupted([&] {
        return sc_open(name.constData(),
                       O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags, 0666);
    });
}

// A FIFO without a reader and a socket cannot be opened at all.
QString openError()
{
    return errno == ENXIO ? noFile : qt_error_string(errno);
}

// Why an open file is not to be overwritten; empty when it may be.
QString objection(const struct stat& status, const Directory& directory)
{
    if (!directory.isTrusted(status.st_uid)) {
        return foreign;
    }
    return status.st_nlink > 1 && directory.shared ? severalNames : QString();
}

// Empties the file and makes its descriptor an ordinary one. Where a trusted link
// led is the choice of whoever made the link.
QString prepare(int fd, const Directory& directory, bool throughLink)
{
    struct stat status;
    if (fstat(fd, &status) == -1) {
        return qt_error_string(errno);
    }
    if (S_ISREG(status.st_mode)) {
        QString reason = throughLink ? QString() : objection(status, directory);
        if (!reason.isEmpty()) {
            return reason;
        }
    } else if (!S_ISCHR(status.st_mode)) {
        return noFile;
    }
    const bool ready =
        (!S_ISREG(status.st_mode) || uninterrupted([&] { return ftruncate(fd, 0); }) == 0) &&
        fcntl(fd, F_SETFL, O_WRONLY) == 0;
    return ready ? QString() : qt_error_string(errno);
}

} // namespace

int openToOverwrite(const QString& fileName, Links links, QString* error)
{
    const QByteArray name = QFile::encodeName(fileName);
    const Directory directory(fileName);
    bool throughLink = false;
    int fd = openOnce(name, O_NOFOLLOW);
    struct stat link;
    // The error may come from a directory's link as well.
    if (fd == -1 && errno == ELOOP && links == Links::FollowedWhenTrusted &&
        lstat(name.constData(), &link) == 0 && S_ISLNK(link.st_mode)) {
        if (!directory.isTrusted(link.st_uid)) {
            *error = foreign;
            return -1;
        }
        throughLink = true;
        fd = openOnce(name, 0);
    }
    if (fd == -1) {
        *error = openError();
        return -1;
    }
    *error = prepare(fd, directory, throughLink);
    if (!error->isEmpty()) {
        sc_close(fd);
        return -1;
    }
    return fd;
}
