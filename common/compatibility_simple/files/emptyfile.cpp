#include "common/compatibility_simple/files/emptyfile.h"

#include "common/compatibility_simple/files/overwrite.h"

bool createEmptyFile(const QString& fileName)
{
    const Result<Descriptor> file = openToOverwrite(fileName);
    if (!file) {
        qCritical("%s: %s", fileName.toLocal8Bit().constData(),
                  file.error().text().toLocal8Bit().constData());
    }
    return bool(file);
}
