#pragma once

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/result.h"

#include <QString>

/// Opens a file for writing. Creates it when it is missing and empties it otherwise, as
/// open(2) does with O_CREAT and O_TRUNC, and follows a symbolic link. Never waits for
/// the reader of a FIFO: one without a reader is an error.
///
/// In a directory that others can write, another user may have planted the entry, to
/// read what is written or to overwrite one of this user's files. There, the function
/// refuses
/// - in a sticky directory, an entry of another user, as the kernel does with
///   fs.protected_regular and fs.protected_fifos
///   (Documentation/admin-guide/sysctl/fs.rst);
/// - a symbolic link of another user;
/// - an existing file with several hard links.
/// Root and the owner of the directory count as this user. An entry that is refused
/// stays unchanged.
///
/// The descriptor is close-on-exec and blocking. The error is that of open(2), with a
/// reason in words for what is refused.
Result<Descriptor> openToOverwrite(const QString& fileName);
