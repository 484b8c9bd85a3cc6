#pragma once

#include <QByteArray>
#include <QString>

// Entries that readers look for are made under a temporary name in the same directory
// and renamed: a reader finds the old entry or the new one, whole, at any time. An entry
// at that name is replaced and not followed when it is a link.

/// Writes a file with the permission bits 0600, whatever the umask. Nobody can read it
/// before it is complete and on the disk. False when it cannot be written; the old file
/// is unchanged then.
[[nodiscard]] bool replaceFile(const QString& fileName, const QByteArray& content);

/// Makes a symbolic link. `target` is its text. False when it cannot be made; the old
/// entry is unchanged then.
bool replaceLink(const QString& target, const QString& link);
