// An input of a fuzz target, or of a campaign, as a file.

#pragma once

#include <QString>
#include <QTemporaryFile>

#include <cstdint>
#include <cstdlib>

/// Writes the input to a temporary file, the same for every input, and gives its
/// name; a file that cannot be made ends the target.
inline QString writeInputFile(const uint8_t* data, size_t size)
{
    static QTemporaryFile file;
    const auto length = static_cast<qint64>(size);
    if ((!file.isOpen() && !file.open()) || !file.seek(0) ||
        file.write(reinterpret_cast<const char*>(data), length) != length || !file.resize(length) ||
        !file.flush()) {
        abort();
    }
    return file.fileName();
}
