// A file of any content: it is a script exactly when it begins with "#!".

#include "common/compatibility_simple/processhelpers.h"

#include <QTemporaryFile>

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryFile* const file = [] {
        auto* created = new QTemporaryFile;
        return created->open() ? created : nullptr;
    }();
    file->seek(0);
    file->write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    file->resize(static_cast<qint64>(size));
    file->flush();

    const bool script = size >= 2 && memcmp(data, "#!", 2) == 0;
    const QStringList line = sc_getScriptBinaryPathAndArguments(file->fileName());
    if (sc_isScript(file->fileName()) != script || (!script && !line.isEmpty())) {
        abort();
    }
    for (const QString& part : line) {
        if (part.contains(QLatin1Char('\n'))) {
            abort();
        }
    }
    return 0;
}
