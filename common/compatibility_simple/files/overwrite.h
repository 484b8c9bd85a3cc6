#pragma once

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/result.h"

#include <QString>

/// Opens a file for writing. Creates it when it is missing and empties it otherwise, as
/// open(2) does with O_CREAT and O_TRUNC, and follows a symbolic link. Never waits for
/// the reader of a FIFO: one without a reader is an error.
///
/// In a directory that others can write, another user may have planted the entry, to
/// read what is written or to have one of this user's own files overwritten. Refused
/// there are
/// - in a sticky directory, an entry of another user, as the kernel refuses it with
///   fs.protected_regular and fs.protected_fifos
///   (Documentation/admin-guide/sysctl/fs.rst);
/// - a symbolic link of another user;
/// - an existing file with several names.
/// Root and the owner of the directory count as this user. What is refused is left
/// unchanged.
///
/// The descriptor is close-on-exec and blocks.
Result<Descriptor> openToOverwrite(const QString& fileName);
