#include "common/compatibility_simple/files/read.h"

#include "common/compatibility_simple/files/descriptor.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Result<QByteArray> readRegularFile(const QString& fileName, qsizetype limit)
{
    const QByteArray name = QFile::encodeName(fileName);
    const Descriptor fd(uninterrupted(
        [&] { return sc_open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    struct stat status;
    if (!fd.isOpen() || fstat(fd.get(), &status) == -1) {
        return FileError::last();
    }
    if (!S_ISREG(status.st_mode)) {
        return FileError{ENXIO, QStringLiteral("is no regular file")};
    }
    QByteArray content(limit, '\0');
    qsizetype length = 0;
    ssize_t count = 1;
    while (count > 0 && length < limit) {
        count = uninterrupted(
            [&] { return read(fd.get(), content.data() + length, size_t(limit - length)); });
        if (count == -1) {
            return FileError::last();
        }
        length += count;
    }
    content.truncate(length);
    return content;
}
