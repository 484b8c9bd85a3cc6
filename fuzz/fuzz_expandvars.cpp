// A text and an environment of any content, split at the first line feeds: what needs
// no expansion is left alone.

#include "common/compatibility_simple/system/pathexpansion.h"

#include <QByteArray>
#include <QList>

#include <cstdint>
#include <cstdlib>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto length = static_cast<qsizetype>(qMin<size_t>(size, 128));
    QList<QByteArray> lines = QByteArray(reinterpret_cast<const char*>(data), length).split('\n');
    const QString text = QString::fromUtf8(lines.takeFirst());
    // With so many in so few bytes, the text stays below a few million characters.
    constexpr qsizetype mostVariables = 8;
    std::vector<char*> entries(mostVariables + 1);
    for (qsizetype i = 0; i < qMin(lines.size(), mostVariables); ++i) {
        entries[size_t(i)] = lines[i].data();
    }
    char** const previous = environ;
    environ = entries.data();
    if (const QString expanded = expandVars(text);
        !containsEnvVarOrTilde(text) && expanded != text.trimmed()) {
        abort();
    }
    environ = previous;
    return 0;
}
