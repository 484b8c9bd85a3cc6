// Reading and writing with system calls that signals may interrupt.

#include "common/compatibility_simple/files/fileio.h"

#include "common/compatibility_simple/calls/calls.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

int openToRead(const QString& fileName)
{
    const QByteArray name = QFile::encodeName(fileName);
    return uninterrupted(
        [&] { return sc_open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
}

bool readUpTo(int fd, QByteArray* buffer)
{
    qsizetype length = 0;
    ssize_t count = 0;
    do {
        count = uninterrupted(
            [&] { return read(fd, buffer->data() + length, size_t(buffer->size() - length)); });
        length += qMax<ssize_t>(count, 0);
    } while (count > 0 && length < buffer->size());
    buffer->truncate(length);
    return count != -1;
}
