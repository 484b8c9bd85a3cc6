#pragma once

#include <QByteArray>
#include <QString>

// Both functions create the entry under a temporary name in the same directory and rename
// it, so that a reader finds either the old entry or the complete new one. They replace a
// symbolic link at the path and do not follow it.

/// Writes a file with the mode 0600, whatever the umask. Nobody can read it before it is
/// complete and on the disk. Returns false when it cannot be written; the old file is
/// unchanged then.
[[nodiscard]] bool replaceFile(const QString& fileName, const QByteArray& content);

/// Creates a symbolic link with the text `target`. Returns false when that fails; the old
/// entry is unchanged then.
bool replaceLink(const QString& target, const QString& link);
