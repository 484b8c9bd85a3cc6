// Writing files anew where other users may have put something at their names.

#pragma once

#include <QString>

/// What becomes of a symbolic link at the name of a file that is written anew.
enum class Links { Refused, FollowedWhenTrusted };

/// Opens a file for writing; it is made when it is missing and emptied otherwise.
/// Never waits, whatever is at its name.
///
/// Trusted is what belongs to this user or to the owner of the directory. All
/// else was put there by somebody else and is refused: a link, or a file that
/// would be overwritten. So is, in a directory that others can write, a file with
/// several names, which may be one of this user's own elsewhere, and everything
/// that is neither a regular file nor a character device.
///
/// Returns a descriptor, close-on-exec, for the caller to close; -1 with the cause
/// in `error` otherwise, and what was there is unchanged then.
int openToOverwrite(const QString& fileName, Links links, QString* error);
