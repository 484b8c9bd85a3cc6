#include "common/compatibility_simple/files/metadata.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>

bool sc_setModifiedTime(const QString& path, const QDateTime& time)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    if (stat(name.constData(), &status) == -1) {
        return false;
    }
    // Microseconds count forward from the second, before 1970 too.
    const qint64 milliseconds = time.toMSecsSinceEpoch();
    const qint64 remainder = (milliseconds % 1000 + 1000) % 1000;
    const timeval times[2] = {
        {status.st_atim.tv_sec, status.st_atim.tv_nsec / 1000},
        {(milliseconds - remainder) / 1000, remainder * 1000},
    };
    return utimes(name.constData(), times) == 0;
}

bool sc_isFileDescriptorOpen(int fd, QIODevice::OpenMode)
{
    return fcntl(fd, F_GETFD) != -1;
}
