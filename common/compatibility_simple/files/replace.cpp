#include "common/compatibility_simple/files/replace.h"

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/read.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A random name in the directory of `path`. It is not derived from the name of the entry,
// which may already be as long as the file system allows.
QString temporaryName(const QString& path)
{
    const QString number = QString::number(QRandomGenerator::system()->generate64(), 16);
    return QFileInfo(path).dir().filePath(QStringLiteral(".zorv-") + number);
}

// Creates an entry with `make` under a temporary name and renames it to `path`.
template <typename Make> bool replaceBy(const QString& path, const Make& make)
{
    const QString temporary = temporaryName(path);
    const QByteArray name = QFile::encodeName(temporary);
    if (make(name.constData()) && sc_rename(temporary, path) == 0) {
        return true;
    }
    sc_unlink(name.constData());
    return false;
}

bool writeAll(int fd, const QByteArray& content)
{
    QFile file;
    return file.open(fd, QIODevice::WriteOnly | QIODevice::Unbuffered) &&
           file.write(content) == content.size();
}

// A full disk or an exceeded quota may show only when the data is written to the disk.
// EINVAL: some file systems do not support fsync(2).
bool synchronize(int fd)
{
    return uninterrupted([&] { return fsync(fd); }) == 0 || errno == EINVAL;
}

bool writeNewFile(const char* name, const QByteArray& content)
{
    Descriptor fd(sc_open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IWUSR));
    return fd.isOpen() && writeAll(fd.get(), content) && synchronize(fd.get()) &&
           fchmod(fd.get(), S_IRUSR | S_IWUSR) == 0 && fd.close();
}

} // namespace

bool replaceFile(const QString& fileName, const QByteArray& content)
{
    return replaceBy(fileName, [&](const char* name) { return writeNewFile(name, content); });
}

bool replaceLink(const QString& target, const QString& link)
{
    const QByteArray text = QFile::encodeName(target);
    return replaceBy(link, [&](const char* name) { return symlink(text.constData(), name) == 0; });
}
