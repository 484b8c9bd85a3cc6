#include "common/compatibility_simple/files/overwrite.h"

#include "common/compatibility_simple/files/read.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString foreign = QStringLiteral("belongs to another user");
const QString severalNames = QStringLiteral("has other names, where others can write");

// The status of a file's directory. One that cannot be examined counts as sticky and
// writable by all, as /tmp is.
struct stat directoryOf(const QString& fileName)
{
    struct stat status;
    if (stat(QFile::encodeName(QFileInfo(fileName).path()).constData(), &status) == -1) {
        status.st_mode = S_ISVTX | S_IWOTH;
        status.st_uid = 0;
    }
    return status;
}

bool isShared(const struct stat& directory)
{
    return (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// Whether an entry of `owner` may have been planted in the directory.
bool isPlanted(uid_t owner, const struct stat& directory)
{
    return isShared(directory) && owner != 0 && owner != geteuid() && owner != directory.st_uid;
}

Result<Descriptor> openToWrite(const QByteArray& name, int flags)
{
    Descriptor fd(uninterrupted(
        [&] { return sc_open(name.constData(), O_WRONLY | O_NOCTTY | O_CLOEXEC | flags, 0666); }));
    if (fd.isOpen()) {
        return fd;
    }
    if (errno == ENXIO) {
        return FileError{ENXIO, QStringLiteral("is a FIFO without a reader, or a socket")};
    }
    return FileError::last();
}

// Creates the file or opens the existing one, without following a link.
Result<Descriptor> createOrOpen(const QByteArray& name, bool* created)
{
    for (int attempts = 100;; --attempts) {
        Result<Descriptor> newFile = openToWrite(name, O_CREAT | O_EXCL);
        *created = newFile.has_value();
        if (newFile) {
            return newFile;
        }
        // With O_CREAT, the kernel may refuse a file that root owns.
        Result<Descriptor> oldFile = openToWrite(name, O_NOFOLLOW | O_NONBLOCK);
        if (oldFile || oldFile.error().code != ENOENT) {
            return oldFile;
        }
        // Another launcher may have removed the file between the two calls.
        if (newFile.error().code != EEXIST || attempts == 0) {
            return newFile;
        }
    }
}

// Checks and empties an existing file and makes the descriptor blocking.
Result<Descriptor> prepare(Descriptor fd, const struct stat& directory, bool throughLink)
{
    struct stat status;
    if (fstat(fd.get(), &status) == -1) {
        return FileError::last();
    }
    const bool isRegular = S_ISREG(status.st_mode);
    // The target of a trusted link is trusted, too.
    if (!throughLink && (directory.st_mode & S_ISVTX) != 0 && isPlanted(status.st_uid, directory)) {
        return FileError{EACCES, foreign};
    }
    if (!throughLink && isShared(directory) && isRegular && status.st_nlink > 1) {
        return FileError{EACCES, severalNames};
    }
    if ((isRegular && uninterrupted([&] { return ftruncate(fd.get(), 0); }) == -1) ||
        fcntl(fd.get(), F_SETFL, O_WRONLY) == -1) {
        return FileError::last();
    }
    return fd;
}

} // namespace

Result<Descriptor> openToOverwrite(const QString& fileName)
{
    const QByteArray name = QFile::encodeName(fileName);
    // A file that this call creates is not planted, even if a file server gives it another
    // owner.
    bool created = false;
    Result<Descriptor> file = createOrOpen(name, &created);
    if (created) {
        return file;
    }
    const struct stat directory = directoryOf(fileName);
    // ELOOP can also come from a link in the directory part of the path.
    struct stat link;
    const bool throughLink = !file && file.error().code == ELOOP &&
                             lstat(name.constData(), &link) == 0 && S_ISLNK(link.st_mode);
    if (throughLink) {
        if (isPlanted(link.st_uid, directory)) {
            return FileError{EACCES, foreign};
        }
        file = openToWrite(name, O_CREAT | O_NONBLOCK);
    }
    return file ? prepare(std::move(*file), directory, throughLink) : std::move(file);
}
