#include "common/compatibility_simple/files/overwrite.h"

#include "common/compatibility_simple/files/read.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int mostAttempts = 100;
constexpr const char foreign[] = "belongs to another user";
constexpr const char severalNames[] = "has other names, where others can write";

// The directory that holds a file, and whom to trust in it.
class Directory
{
public:
    explicit Directory(const QString& fileName)
    {
        struct stat status;
        if (stat(QFile::encodeName(QFileInfo(fileName).path()).constData(), &status) == 0) {
            mOwner = status.st_uid;
            mMode = status.st_mode;
        }
    }

    bool isShared() const { return (mMode & (S_IWGRP | S_IWOTH)) != 0; }

    // Whether a link of that owner may have been planted.
    bool isLinkPlanted(uid_t owner) const
    {
        return isShared() && owner != 0 && owner != geteuid() && owner != mOwner;
    }

    // The same of what is no link.
    bool isFilePlanted(uid_t owner) const { return (mMode & S_ISVTX) != 0 && isLinkPlanted(owner); }

private:
    // A directory that cannot be examined counts as one like /tmp.
    uid_t mOwner = 0;
    mode_t mMode = S_ISVTX | S_IWOTH;
};

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

// Creates the file or, without following a link, opens the one that exists.
Result<Descriptor> createOrOpen(const QByteArray& name, bool* created)
{
    for (int attempt = 1;; ++attempt) {
        Result<Descriptor> newFile = openToWrite(name, O_CREAT | O_EXCL);
        *created = bool(newFile);
        if (newFile) {
            return newFile;
        }
        // Without O_CREAT: with it, the kernel may refuse a file of root's.
        Result<Descriptor> file = openToWrite(name, O_NOFOLLOW | O_NONBLOCK);
        if (file || file.error().code != ENOENT) {
            return file;
        }
        // Another launcher may just have removed the file.
        if (newFile.error().code != EEXIST || attempt == mostAttempts) {
            return newFile;
        }
    }
}

bool isLink(const QByteArray& name, struct stat* status)
{
    return lstat(name.constData(), status) == 0 && S_ISLNK(status->st_mode);
}

FileError refusal(const char* reason)
{
    return {EACCES, QString::fromLatin1(reason)};
}

// Empties an existing file and makes the descriptor block. Where a trusted link leads
// is the choice of the one who made it.
Result<Descriptor> prepare(Descriptor fd, const Directory& directory, bool throughLink)
{
    struct stat status;
    if (fstat(fd.get(), &status) == -1) {
        return FileError::last();
    }
    if (!throughLink && directory.isFilePlanted(status.st_uid)) {
        return refusal(foreign);
    }
    const bool isRegular = S_ISREG(status.st_mode);
    if (!throughLink && isRegular && directory.isShared() && status.st_nlink > 1) {
        return refusal(severalNames);
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
    // Another user cannot have planted what this call creates, whoever owns it on a
    // file server that maps users.
    bool created = false;
    Result<Descriptor> file = createOrOpen(name, &created);
    if (created) {
        return file;
    }
    const Directory directory(fileName);
    // A link on the way to the directory can be the cause as well.
    struct stat link;
    const bool throughLink = !file && file.error().code == ELOOP && isLink(name, &link);
    if (throughLink) {
        if (directory.isLinkPlanted(link.st_uid)) {
            return refusal(foreign);
        }
        file = openToWrite(name, O_CREAT | O_NONBLOCK);
    }
    return file ? prepare(std::move(*file), directory, throughLink) : std::move(file);
}
