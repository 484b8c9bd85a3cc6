#include "common/compatibility_simple/files/existence.h"

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/read.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

// AT_STATX_FORCE_SYNC asks the file server, where stat(2) may answer from a cache. Old
// container runtimes reject statx(2) with EPERM, which is no error of stat(2).
int examine(const QByteArray& name)
{
    struct statx status;
    const int result =
        statx(AT_FDCWD, name.constData(), AT_STATX_FORCE_SYNC, STATX_BASIC_STATS, &status);
    if (result == 0 || errno != EPERM) {
        return result;
    }
    struct stat plainStatus;
    return stat(name.constData(), &plainStatus);
}

Existence failed(int error)
{
    return {false, error == ENOENT || error == ENOTDIR ? 0 : error};
}

} // namespace

Existence existenceOf(const QString& fileName)
{
    if (fileName.isEmpty()) {
        return {};
    }
    const QByteArray directory = QFile::encodeName(QFileInfo(fileName).path());
    const Descriptor opened(uninterrupted(
        [&] { return sc_open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    // EACCES is no failure: a directory may permit look-ups but no listing. After any
    // other error, the names in the cache are unchecked.
    if (!opened.isOpen() && errno != EACCES) {
        return failed(errno);
    }
    const QByteArray name = QFile::encodeName(fileName);
    const bool exists = uninterrupted([&] { return examine(name); }) == 0;
    return exists ? Existence{true, 0} : failed(errno);
}
