// The empty files that tell the front end of the launcher.

#include "common/compatibility_simple/files/emptyfile.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/overwrite.h"

bool createEmptyFile(const QString& fileName)
{
    QString error;
    const int fd = openToOverwrite(fileName, Links::Refused, &error);
    if (fd == -1) {
        qCritical("%s: %s", fileName.toLocal8Bit().constData(), error.toLocal8Bit().constData());
        return false;
    }
    sc_close(fd);
    return true;
}
