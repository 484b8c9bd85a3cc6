// Programs that are run for their output, and what starts a script.

#pragma once

#include <QString>
#include <QStringList>

/// The process id under which the system knows `pid`: the same, the hook for a
/// platform that translates them.
int convertPid(int pid);

/// Sleeps for a number of microseconds; an interrupted sleep is not resumed.
/// Always 0.
int sc_usleep(int microseconds);

/// Runs a command line (split as QProcess splits it) and returns the lines of
/// its standard output, without their line ends. `merge` adds its standard
/// error, which is discarded otherwise; its standard input is `inputFile`, the
/// null device when that is empty. A command that does not start within 30
/// seconds gives an empty list and, unless `quiet`, a warning. One that still runs
/// 30 seconds after the end of its output is killed, with a warning from QProcess.
QStringList sc_helper_exec(const QString& command, bool merge, bool quiet,
                           const QString& inputFile);

/// Whether the file begins with "#!"; false when it cannot be read.
bool sc_isScript(const QString& path);

/// The interpreter of a script and its arguments, from the first 1023 bytes of
/// the script's first line. Empty when the file cannot be read or does not
/// begin with "#!".
QStringList sc_getScriptBinaryPathAndArguments(const QString& path);
