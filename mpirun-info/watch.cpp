// The live view of a session.

#include "mpirun-info/probe.h"
#include "mpirun-info/restartfiles.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "common/ProcInfo.h"

#include <QRegularExpression>
#include <QTime>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr useconds_t pauseUs = 200 * 1000;
constexpr int looksOfScreen = 5;

// One entry of the view, with its age unless that is negative.
QString entry(const QString& state, qint64 age)
{
    return age < 0 ? state : filled("%1 (%2)", state, ageText(age));
}

QString entryOf(const char* name, const RestartFile& file)
{
    return entry(
        filled("%1 %2", QLatin1String(name), QLatin1String(file.exists ? "present" : "absent")),
        file.age);
}

// From /proc/PID/stat, see proc(5); the name in parentheses may hold anything.
qint64 ageOfProcess(int pid)
{
    const QByteArray stat = systemFile(filled("/proc/%1/stat", pid));
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const double uptime = systemFile(QStringLiteral("/proc/uptime")).split(' ').first().toDouble();
    return qint64(uptime - fields.value(19).toDouble() / double(sysconf(_SC_CLK_TCK)));
}

// The kernel writes the state as "S (sleeping)".
QString entryOf(const char* name, int pid)
{
    const QString line = ProcInfo::line(filled("/proc/%1/status", pid), "State:");
    const QString state = line.section(QLatin1Char('('), 1).section(QLatin1Char(')'), 0, 0);
    return entry(filled("%1 %2 %3", QLatin1String(name), pid, state), ageOfProcess(pid));
}

void addProcesses(QJsonArray* entries)
{
    const QString launcher = launcherPath();
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

QStringList lookWithinLimit(const Request& request)
{
    Probe probe([&] { return look(request); });
    return probe.wait() == Probe::Outcome::NoAnswer
               ? QStringList(QStringLiteral("session directory: no answer"))
               : probe.answer().toVariant().toStringList();
}

// Prints a screen, or a line.
bool show(const QStringList& entries, bool isScreen)
{
    const QString text = filled(isScreen ? "\033[H\033[2J%1\n%2\n" : "%1 %2\n",
                                QTime::currentTime().toString(QStringLiteral("HH:mm:ss")),
                                entries.join(QLatin1String(isScreen ? "\n" : ", ")));
    return fputs(qPrintable(text), stdout) != EOF && fflush(stdout) != EOF;
}

} // namespace

int watch(const Request& request)
{
    static const QRegularExpression ages(QStringLiteral(" \\(.*\\)$"));
    const bool isScreen = isatty(STDOUT_FILENO);
    QStringList shown;
    for (int looks = 0;; ++looks) {
        const QStringList entries = lookWithinLimit(request);
        if (entries.isEmpty()) {
            fputs("there is no session to watch\n", stderr);
            return 1;
        }
        QStringList states = entries;
        states.replaceInStrings(ages, QString());
        const bool isDue = states != shown || (isScreen && looks % looksOfScreen == 0);
        if (isDue && !show(entries, isScreen)) {
            return 2;
        }
        shown = states;
        usleep(pauseUs);
    }
}
