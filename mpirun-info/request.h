// The request of the user, and the state of the process at its start.

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <sys/resource.h>
#include <vector>

class BackendUserData;
class ZORVDebuggerOptions;

/// The process as the launcher would find it. Create it first in main, before Qt or the
/// program changes it.
struct Start
{
    static Start ofThisProcess();

    /// The value of a line of /proc/self/status, see proc_pid_status(5); null without one.
    QString value(const char* key) const;
    /// Whether a signal is among those of a line such as "SigBlk".
    bool hasSignal(const char* line, int signo) const;

    QByteArray status;
    rlimit limits[RLIM_NLIMITS];
    QString standardInput;
};

struct Request
{
    bool json = false;
    bool help = false;
    bool version = false;
    bool codes = false;
    bool watch = false;
    /// The file of the archive, and the hosts to look up; null without the option.
    QString bundle;
    QString host;
    /// The launcher's command line with its name, and the same as bytes without the name.
    QStringList commandLine;
    std::vector<const char*> arguments;
    Start start;
};

/// The canonical path of the launcher beside this program; empty if there is none.
QString launcherPath();

/// The launcher's log file; null if none is wanted.
QString launcherLogFileName();

/// The trimmed content of a small file, such as one in /proc; empty if it cannot be read.
QByteArray systemFile(const QString& path);

/// Parses the launcher's command line as the launcher does. `messages` receives the messages
/// of the parser. May end the process, as the launcher does: with status 0 for help, and 1
/// for the usage. Unsets LOGS, so that no log directory is examined.
bool parseCommandLine(const Request& request, ZORVDebuggerOptions* options, QString* messages);

/// Finds the session as the launcher does; see parseCommandLine(). Returns false if the
/// command line is rejected or there is no session.
bool findSession(const Request& request, BackendUserData* session);
