#include "common/ProcInfo.h"

#include "common/compatibility_simple/process/signals.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace {

QString procFile(int pid, const char* name)
{
    return QStringLiteral("/proc/") + QString::number(pid) + QString::fromLatin1(name);
}

QString statusLine(int pid, const char* key)
{
    return ProcInfo::line(procFile(pid, "/status"), key);
}

QString afterFirstTab(const QString& line)
{
    return line.section(QLatin1Char('\t'), 1, -1);
}

bool belongsTo(int pid, int uid)
{
    bool ok = false;
    const uint realUid =
        afterFirstTab(statusLine(pid, "Uid:")).section(QLatin1Char('\t'), 0, 0).toUInt(&ok);
    return ok && realUid == static_cast<uint>(uid);
}

} // namespace

QString ProcInfo::line(const QString& fileName, const char* key)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        return QString();
    }
    QTextStream stream(&file);
    QString line;
    do {
        line = stream.readLine();
    } while (!line.isNull() && !line.startsWith(QLatin1String(key)));
    return line;
}

QList<int> ProcInfo::getList(int uid)
{
    QList<int> result;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& name : names) {
        bool ok = false;
        const int pid = name.toInt(&ok);
        if (ok && (uid <= 0 || belongsTo(pid, uid))) {
            result += pid;
        }
    }
    return result;
}

int ProcInfo::getParent(int pid)
{
    bool ok = false;
    const int parent = afterFirstTab(statusLine(pid, "PPid:")).toInt(&ok);
    return ok ? parent : -1;
}

int ProcInfo::getChild(int pid)
{
    // getParent() returns -1 for a process that has ended.
    if (pid < 0) {
        return -1;
    }
    const QList<int> candidates = getList(0);
    for (int candidate : candidates) {
        if (getParent(candidate) == pid) {
            return candidate;
        }
    }
    return -1;
}

QString ProcInfo::getName(int pid)
{
    QFile file(procFile(pid, "/cmdline"));
    if (!file.open(QIODevice::ReadOnly)) {
        return QString();
    }
    return QString::fromLocal8Bit(file.readAll().constData());
}

QString ProcInfo::getExe(int pid)
{
    return QFileInfo(procFile(pid, "/exe")).symLinkTarget();
}

bool ProcInfo::exists(int pid)
{
    return sc_kill(pid, 0) == 0;
}

bool ProcInfo::alive(int pid)
{
    const QString state = exists(pid) ? statusLine(pid, "State:") : QString();
    return !state.isNull() && !state.contains(QLatin1String("Z "));
}
