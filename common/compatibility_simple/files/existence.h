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
/// Opens and closes the directory first: a client of a network file system that caches
/// names asks the server at an open, see close-to-open consistency in nfs(5).
Existence existenceOf(const QString& fileName);
