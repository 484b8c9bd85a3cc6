// A session file of any content: one that is not well-formed changes nothing.

#include "backend/userdata.h"
#include "fuzz/inputfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString fileName = writeInputFile(data, size);

    UserData record;
    const bool loaded = record.load(fileName);
    if (record.sessionFileName() != fileName) {
        abort();
    }
    // A refused file may have set the fields before the one that is refused,
    // which is 0 then; nothing else.
    if (!loaded && record.getSession() != 0 &&
        (record.getPort() != 0 || record.isExplicitPort() || record.isValid() ||
         !record.sessionCookie().isNull())) {
        abort();
    }

    const auto* const bytes = reinterpret_cast<const char*>(data);
    UserData().load(fileName, QString::fromUtf8(bytes, static_cast<qsizetype>(size)));
    return 0;
}
