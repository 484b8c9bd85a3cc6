// What the system keeps of a file besides its content.

#pragma once

#include <QDateTime>
#include <QIODevice>
#include <QString>

/// Sets a file's modification time and keeps its access time, both in
/// microseconds. False when the file cannot be examined or changed.
bool sc_setModifiedTime(const QString& path, const QDateTime& time);

/// Whether a descriptor is open, looked at for reading when `mode` includes
/// reading and for writing otherwise; never waits.
bool sc_isFileDescriptorOpen(int fd, QIODevice::OpenMode mode);
