// The empty files that tell the front end of the launcher.

#include "mpirun/emptyfile.h"

#include "common/compatibility_simple/processhelpers.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>

bool createEmptyFile(const QString& fileName)
{
    const QByteArray name = QFile::encodeName(fileName);
    int fd;
    do {
        fd = sc_open(name.constData(),
                     O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                     0666);
    } while (fd == -1 && errno == EINTR);
    if (fd == -1) {
        qCritical("%s: %s", fileName.toLocal8Bit().constData(),
                  qt_error_string(errno).toLocal8Bit().constData());
        return false;
    }
    sc_close(fd);
    return true;
}
