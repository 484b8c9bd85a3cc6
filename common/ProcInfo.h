// What the kernel tells of processes, see proc(5).

#pragma once

#include <QList>
#include <QString>

/// Questions about the processes of this host. The answers are snapshots of a
/// table that changes underneath: what is asked of a process that ends
/// meanwhile is answered as if it had not been there.
class ProcInfo
{
public:
    /// All process ids, in the order of their names ("10" before "9"); with a
    /// positive `uid` those whose real user id it is.
    static QList<int> getList(int uid);
    /// The parent's process id, -1 when there is no such process.
    static int getParent(int pid);
    /// The first child in the order of getList(), -1 when there is none.
    static int getChild(int pid);
    /// The first element of the process's argument vector; null when there is
    /// no such process.
    static QString getName(int pid);
    /// The path of the executable; empty when there is no such process or it
    /// is not ours to look at.
    static QString getExe(int pid);
    /// Whether a signal could be sent to the process.
    static bool exists(int pid);
    /// Whether the process exists and is no zombie.
    static bool alive(int pid);
    /// The first line that begins with `key` of a file such as /proc/self/status; null
    /// when there is none. The key counts at the start of a line only: a process may
    /// call itself by one, and its name comes first in proc_pid_status(5).
    static QString line(const QString& fileName, const char* key);
};
