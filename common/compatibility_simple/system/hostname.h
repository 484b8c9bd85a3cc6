// What this host is called.

#pragma once

#include <QString>

/// The system's name of this host, else the variable HOSTNAME, else
/// "localhost".
QString sc_hostname();
