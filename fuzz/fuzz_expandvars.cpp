// A text and an environment of any content, split at the first line feeds: the
// references are those that the regular expressions of the names would find.

#include "common/compatibility_simple/pathexpansion.h"

#include <QByteArray>
#include <QList>

#include <cstdint>
#include <cstdlib>
#include <unistd.h>
#include <vector>

namespace {

// Values double the text at worst, each.
constexpr qsizetype mostVariables = 8;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QList<QByteArray> lines = QByteArray(reinterpret_cast<const char*>(data),
                                         static_cast<qsizetype>(qMin<size_t>(size, 256)))
                                  .split('\n');
    const QString text = QString::fromUtf8(lines.takeFirst());
    std::vector<char*> entries;
    for (qsizetype i = 0; i < qMin(lines.size(), mostVariables); ++i) {
        entries.push_back(lines[i].data());
    }
    entries.push_back(nullptr);

    char** const previous = environ;
    environ = entries.data();
    const QString expanded = expandVars(text);
    if (!containsEnvVarOrTilde(text) && expanded != text.trimmed()) {
        abort();
    }
    environ = previous;
    return 0;
}
