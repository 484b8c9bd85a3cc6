// Reading and writing with system calls that signals may interrupt.

#pragma once

#include <QByteArray>
#include <QString>

#include <cerrno>

/// Makes a system call again for as long as a signal interrupts it (EINTR, see
/// signal(7)); returns what it returned in the end, with errno as it left it.
template <typename Call> auto uninterrupted(const Call& call)
{
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

/// Opens a file to read it. A FIFO without a writer is not waited for. -1, with
/// errno set, when that fails.
int openToRead(const QString& fileName);

/// Reads on until the buffer is full or the file ends, and cuts the buffer to what
/// was read. False, with errno set, when reading failed.
[[nodiscard]] bool readUpTo(int fd, QByteArray* buffer);
