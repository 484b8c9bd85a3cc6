#pragma once

#include "common/compatibility_simple/files/result.h"

#include <QByteArray>
#include <QString>

#include <cerrno>

/// Repeats a system call for as long as a signal interrupts it (EINTR, see signal(7)).
/// Returns its last result, with errno as it left it.
template <typename Call> auto uninterrupted(const Call& call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// The content of a regular file, at most its first `limit` bytes. Never waits for the
/// writer of a FIFO. The error is that of open(2) or read(2); ENXIO says that the file
/// is no regular file.
Result<QByteArray> readRegularFile(const QString& fileName, qsizetype limit);
