// A file of any content: it is a script exactly when it begins with "#!".

#include "common/compatibility_simple/process/processhelpers.h"
#include "fuzz/inputfile.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString fileName = writeInputFile(data, size);
    const bool script = size >= 2 && memcmp(data, "#!", 2) == 0;
    const QStringList line = sc_getScriptBinaryPathAndArguments(fileName);
    if (sc_isScript(fileName) != script || (!script && !line.isEmpty()) ||
        line.join(QLatin1Char(' ')).contains(QLatin1Char('\n'))) {
        abort();
    }
    return 0;
}
