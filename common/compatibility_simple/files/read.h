#pragma once

#include "common/compatibility_simple/files/result.h"

#include <QByteArray>
#include <QString>

#include <cerrno>

/// Repeats a system call while it fails with EINTR, see signal(7). Returns its last
/// result and keeps its errno.
template <typename Call> auto uninterrupted(const Call& call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Reads a regular file, at most its first `limit` bytes. Never waits for the writer of a
/// FIFO. The error is that of open(2) or read(2), or ENXIO for any other type of file.
Result<QByteArray> readRegularFile(const QString& fileName, qsizetype limit);
