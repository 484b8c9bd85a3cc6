#pragma once

#include <QString>

/// Creates an empty file or empties an existing one, under the rules of
/// openToOverwrite(). On failure, reports the path and the cause as critical and returns
/// false.
[[nodiscard]] bool createEmptyFile(const QString& fileName);
