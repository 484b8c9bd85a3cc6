// The mounts of this process.

#pragma once

#include <QString>

/// A mount, see proc_pid_mounts(5): all empty when it is not known.
struct Mount
{
    QString point;
    QString type;
    QString source;
    QString options;
};

/// The mount that a path without links is on. Asks no file server.
Mount mountOf(const QString& path);
