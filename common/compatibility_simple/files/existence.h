#pragma once

#include <QString>

/// The result of existenceOf().
struct Existence
{
    bool exists = false;
    /// 0 if the answer is certain, or the errno of the call that failed.
    int error = 0;
};

/// Whether a file of any type exists at a path. Follows symbolic links: a dangling one
/// counts as missing, as for QFile::exists(). An empty path counts as missing.
///
/// Asks the file server rather than the caches of a network mount, as far as the mount
/// permits that. Opens the directory first, so that an NFS client checks the names in
/// its cache, see close-to-open cache consistency in nfs(5).
Existence existenceOf(const QString& fileName);
