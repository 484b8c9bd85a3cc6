// The file systems that paths are on.

#pragma once

#include <QString>

struct Mount
{
    QString point;
    QString type;
    QString source;
    /// The options of the mount and of the file system, with commas between them.
    QString options;
};

/// The mount that a path is on, as its text says: asks the kernel alone, never the file
/// system, so that it works for one that gives no answer. See proc(5), mountinfo.
Mount mountOf(const QString& path);
