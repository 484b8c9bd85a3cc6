#pragma once

#include <QList>
#include <QString>

/// Information about the processes of this host, from proc(5). Each answer is a snapshot:
/// the process may have ended since. One that ends during the call counts as missing.
class ProcInfo
{
public:
    /// The ids of all processes, or with a positive `uid` of those with that real user id.
    /// Sorted as texts: 10 comes before 9.
    static QList<int> getList(int uid);
    /// The process id of the parent; -1 when there is no such process.
    static int getParent(int pid);
    /// The first child in the order of getList(); -1 when there is none.
    static int getChild(int pid);
    /// The first element of the argument vector; null when there is no such process.
    static QString getName(int pid);
    /// The path of the executable; empty when there is no such process or this user may not
    /// read the link.
    static QString getExe(int pid);
    /// Whether this process may send the process a signal. False when it does not exist, or
    /// belongs to another user and this process is not privileged.
    static bool exists(int pid);
    /// Whether exists() is true and the process is no zombie.
    static bool alive(int pid);
    /// The first line that begins with `key` in a file such as /proc/self/status; null when
    /// there is none or the file cannot be read. A key inside a line does not count: the
    /// first line of proc_pid_status(5) has a name that the process has chosen.
    static QString line(const QString& fileName, const char* key);
};
