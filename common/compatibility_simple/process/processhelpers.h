#pragma once

#include <QString>
#include <QStringList>

/// Translates a process id into the one that the system uses. Returns `pid` on Linux.
int convertPid(int pid);

/// Sleeps for a number of microseconds, or until a signal handler has run. Always returns
/// 0.
int sc_usleep(int microseconds);

/// Runs a command line, split as QProcess::splitCommand() splits it, and returns the lines
/// of its standard output without their line ends. With `merge`, also the lines of its
/// standard error, which is /dev/null otherwise. Standard input is `inputFile`, or
/// /dev/null when that is empty. A command that does not start within `limitMs` milliseconds
/// gives an empty list and, unless `quiet`, a warning. With Qt before 6.6, the limit does
/// not count while the kernel loads the program: the caller is blocked in vfork(2). A command
/// that still runs that long after the end of its output is killed, with a warning from
/// QProcess.
QStringList sc_helper_exec(const QString& command, bool merge, bool quiet, const QString& inputFile,
                           int limitMs = 30000);

/// Whether a file begins with "#!"; false when it cannot be read.
bool sc_isScript(const QString& path);

/// The interpreter of a script and its arguments, from the first 1023 bytes of its first
/// line, split as parseArgs() splits it. Empty when the file cannot be read or is no
/// script.
QStringList sc_getScriptBinaryPathAndArguments(const QString& path);
