#pragma once

#include <QString>

/// What the system says of a file.
struct Existence
{
    bool exists = false;
    /// 0 if the answer is certain, or the errno of the call that failed.
    int error = 0;
};

/// Whether anything exists at a path. Symbolic links are followed, and one that leads
/// nowhere does not exist, as for QFile::exists(). An empty path names no file.
///
/// Asks the file server rather than the caches of a network mount, as far as the mount
/// permits that. Opens the directory first: an NFS client then checks the names that it
/// has cached, see close-to-open cache consistency in nfs(5).
Existence existenceOf(const QString& fileName);
