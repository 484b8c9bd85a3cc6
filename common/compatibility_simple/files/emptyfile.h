// The empty files that tell the front end of the launcher.

#pragma once

#include <QString>

/// Creates an empty file, or empties the one that is there. Never follows a
/// symbolic link, never touches what somebody else has put there (see
/// openToOverwrite()), and never waits for the reader of a FIFO. False when it
/// cannot; that is reported as critical.
[[nodiscard]] bool createEmptyFile(const QString& fileName);
