#pragma once

#include <QDateTime>
#include <QIODevice>
#include <QString>

/// Sets a file's modification time and keeps its access time, both in
/// microseconds. False when the file cannot be examined or changed.
bool sc_setModifiedTime(const QString& path, const QDateTime& time);

/// Whether a descriptor is open, of whatever kind and number. The mode makes no
/// difference: a descriptor that is open for reading only is open. Never waits.
bool sc_isFileDescriptorOpen(int fd, QIODevice::OpenMode mode);
