// What the program is asked, and what it was started with.

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <sys/resource.h>
#include <vector>

class BackendUserData;
class ZORVDebuggerOptions;

/// What a launcher would find in this program's place. Recorded first in main, before
/// Qt and the program itself change it.
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
    /// The file to bundle into, and the host to look up; null without.
    QString bundle;
    QString host;
    /// The launcher's command line, its name first: as the options take it, and the
    /// bytes without the name.
    QStringList commandLine;
    std::vector<const char*> arguments;
    Start start;
};

/// The launcher's log file; null when there is to be none.
QString launcherLogFileName();

/// The content of a small file of the system's, without blanks around it; empty when it
/// cannot be read.
QByteArray systemFile(const QString& path);

/// Parses the launcher's command line as the launcher does. `messages` gets what it says
/// of it. May end the process, as the launcher does: with status 0 for a help word, and
/// 1 for the usage. Looks at no directory for logs: the variables of LOGS are gone then.
bool parseCommandLine(const Request& request, ZORVDebuggerOptions* options, QString* messages);

/// Resolves the session as the launcher does, from its place and its command line; see
/// parseCommandLine(). False if the command line is rejected or there is no session.
bool findSession(const Request& request, BackendUserData* session);
