#pragma once

#include <QDateTime>
#include <QIODevice>
#include <QString>

/// Sets the modification time of a file and keeps its access time, both rounded down to
/// microseconds. Returns false when the file cannot be examined or changed.
bool sc_setModifiedTime(const QString& path, const QDateTime& time);

/// Whether a descriptor is open. `mode` is ignored: a descriptor that is open for
/// reading only counts as open in every mode. Never blocks.
bool sc_isFileDescriptorOpen(int fd, QIODevice::OpenMode mode);
