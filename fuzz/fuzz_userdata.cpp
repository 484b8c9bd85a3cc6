// A session file of any content: one that is not well-formed changes nothing.

#include "backend/userdata.h"

#include <QTemporaryFile>

#include <cstdint>
#include <cstdlib>

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

    UserData record;
    const bool loaded = record.load(file->fileName());
    if (record.sessionFileName() != file->fileName()) {
        abort();
    }
    // A refused file may have set the fields before the one that is refused,
    // which is 0 then; nothing else.
    if (!loaded && record.getSession() != 0 &&
        (record.getPort() != 0 || record.isExplicitPort() || record.isValid() ||
         !record.sessionCookie().isNull())) {
        abort();
    }

    UserData fromText;
    if (fromText.load(file->fileName(), QString::fromUtf8(reinterpret_cast<const char*>(data),
                                                          static_cast<qsizetype>(size)))) {
        fromText.getCanonicalHostName();
    }
    return 0;
}
