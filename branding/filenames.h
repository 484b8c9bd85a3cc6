#pragma once

#include <QString>

/// The names of the suite's programs and files, without a directory, and of what is in
/// them. Initialized before main.
namespace FileName {

#define COMMON_FILE_NAME(name, ...) extern const QString name;
#define SUITE_FILE_NAME COMMON_FILE_NAME
#include "branding/filenames.def"

} // namespace FileName
