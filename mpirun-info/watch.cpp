// The live view of a session.

#include "mpirun-info/probe.h"
#include "mpirun-info/request.h"
#include "mpirun-info/restartfiles.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "branding/filenames.h"
#include "common/ProcInfo.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTime>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr useconds_t pauseUs = 200 * 1000;
constexpr int looksOfScreen = 5;

// One entry of the view: its name and state, and its age in seconds or -1.
QJsonArray entry(const QString& state, qint64 age)
{
    return {state, age};
}

QJsonArray entryOf(const char* name, const RestartFile& file)
{
    return entry(QLatin1String(name) +
                     (file.exists ? QLatin1String(" present") : QLatin1String(" absent")),
                 file.age);
}

// From /proc/PID/stat, see proc(5); the name in parentheses may hold anything.
qint64 ageOfProcess(int pid)
{
    const QByteArray stat = systemFile(QStringLiteral("/proc/%1/stat").arg(pid));
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const double uptime = systemFile(QStringLiteral("/proc/uptime")).split(' ').first().toDouble();
    return qint64(uptime - fields.value(19).toDouble() / double(sysconf(_SC_CLK_TCK)));
}

// The kernel writes the state as "S (sleeping)".
QJsonArray entryOf(const char* name, int pid)
{
    const QString line = ProcInfo::line(QStringLiteral("/proc/%1/status").arg(pid), "State:");
    const QString state = line.section(QLatin1Char('('), 1).section(QLatin1Char(')'), 0, 0);
    return entry(QStringLiteral("%1 %2 %3").arg(QLatin1String(name)).arg(pid).arg(state),
                 ageOfProcess(pid));
}

void addProcesses(QJsonArray* entries)
{
    const QString launcher =
        QFileInfo(QDir(QCoreApplication::applicationDirPath()).filePath(FileName::zorvMpirun))
            .canonicalFilePath();
    const QList<int> pids = ProcInfo::getList(int(geteuid()));
    for (int pid : pids) {
        if (ProcInfo::getExe(pid) == launcher) {
            entries->append(entryOf("launcher", pid));
            const int helper = ProcInfo::getChild(pid);
            if (helper != -1) {
                entries->append(entryOf("helper", helper));
            }
        }
    }
}

// Null without a session.
QJsonValue look(const Request& request)
{
    BackendUserData session;
    if (!findSession(request, &session)) {
        return QJsonValue();
    }
    const RestartFiles files(session);
    QJsonArray entries = {entryOf("marker", files.marker), entryOf("request", files.request),
                          entryOf("hold", files.hold)};
    addProcesses(&entries);
    return entries;
}

// The entries with their ages, or the states alone.
QStringList textsOf(const QJsonArray& entries, bool withAges)
{
    QStringList texts;
    for (const auto& entry : entries) {
        const auto age = qint64(entry[1].toDouble());
        texts += entry[0].toString() +
                 (withAges && age >= 0 ? QStringLiteral(" (%1)").arg(ageText(age)) : QString());
    }
    return texts;
}

QJsonArray lookWithinLimit(const Request& request)
{
    Probe probe([&] { return look(request); });
    return probe.wait() == Probe::Outcome::NoAnswer
               ? QJsonArray{entry(QStringLiteral("session directory: no answer"), -1)}
               : probe.answer().toArray();
}

// Prints a screen, or a line.
bool show(const QJsonArray& entries, bool isScreen)
{
    const QString form =
        isScreen ? QStringLiteral("\033[H\033[2J%1\n%2\n") : QStringLiteral("%1 %2\n");
    const QString text =
        form.arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")),
                 textsOf(entries, true).join(isScreen ? QLatin1String("\n") : QLatin1String(", ")));
    return fputs(text.toLocal8Bit().constData(), stdout) != EOF && fflush(stdout) != EOF;
}

} // namespace

int watch(const Request& request)
{
    const bool isScreen = isatty(STDOUT_FILENO);
    QStringList shown;
    for (int looks = 0;; ++looks) {
        const QJsonArray entries = lookWithinLimit(request);
        if (entries.isEmpty()) {
            fputs("there is no session to watch\n", stderr);
            return 1;
        }
        const QStringList states = textsOf(entries, false);
        const bool isDue = states != shown || (isScreen && looks % looksOfScreen == 0);
        if (isDue && !show(entries, isScreen)) {
            return 2;
        }
        shown = states;
        usleep(pauseUs);
    }
}
