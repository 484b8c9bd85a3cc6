#pragma once

#include <QString>

/// The name of this host: QSysInfo::machineHostName(), or else the variable HOSTNAME, or
/// else "localhost". Never null.
QString sc_hostname();
