#include "common/compatibility_simple/files/existence.h"

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/read.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

Existence existenceOf(const QString& fileName)
{
    if (fileName.isEmpty()) {
        return {};
    }
    // Only for its effect: the look-up below has the errors that count.
    const QByteArray directory = QFile::encodeName(QFileInfo(fileName).path());
    const Descriptor opened(uninterrupted(
        [&] { return sc_open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    struct stat status;
    const QByteArray name = QFile::encodeName(fileName);
    if (uninterrupted([&] { return stat(name.constData(), &status); }) == 0) {
        return {true, 0};
    }
    return {false, errno == ENOENT || errno == ENOTDIR ? 0 : errno};
}
