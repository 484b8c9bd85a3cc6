#include "common/compatibility_simple/system/hostname.h"

#include <QSysInfo>

QString sc_hostname()
{
    QString name = QSysInfo::machineHostName();
    if (name.isNull()) {
        name = qEnvironmentVariable("HOSTNAME");
    }
    return name.isNull() ? QStringLiteral("localhost") : name;
}
