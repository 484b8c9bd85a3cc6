#pragma once

#include <QString>

/// Creates an empty file, or empties the one that exists, as openToOverwrite() opens it.
/// On failure, reports the file's name and the cause as critical, and returns false.
[[nodiscard]] bool createEmptyFile(const QString& fileName);
