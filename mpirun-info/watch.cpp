#include "mpirun-info/watch.h"

#include "mpirun-info/probe.h"
#include "mpirun-info/request.h"
#include "mpirun-info/restartfiles.h"

#include "backend/backenduserdata.h"
#include "branding/filenames.h"
#include "common/ProcInfo.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr useconds_t pauseUs = 200 * 1000;
constexpr int looksOfScreen = 5;

// A thing that is shown: what it is, its state, and its age in seconds or -1.
QJsonArray entry(const QString& name, const QString& state, qint64 age)
{
    return {name, state, age};
}

QJsonArray entryOf(const char* name, const RestartFile& file)
{
    return entry(QLatin1String(name),
                 file.exists ? QStringLiteral("present") : QStringLiteral("absent"), file.age);
}

struct ProcessLook
{
    int parent = -1;
    QString state;
    qint64 age = -1;
};

QString stateText(char letter)
{
    switch (letter) {
    case 'R':
        return QStringLiteral("running");
    case 'S':
        return QStringLiteral("sleeping");
    case 'D':
        return QStringLiteral("waiting for a device or server");
    case 'T':
    case 't':
        return QStringLiteral("stopped");
    case 'Z':
        return QStringLiteral("ended");
    default:
        return QString(QLatin1Char(letter));
    }
}

// From /proc/PID/stat, see proc(5); the name in parentheses may hold anything.
ProcessLook lookAtProcess(int pid)
{
    const QByteArray stat = systemFile(QStringLiteral("/proc/%1/stat").arg(pid));
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    ProcessLook look;
    if (fields.size() > 19) {
        const double uptime =
            systemFile(QStringLiteral("/proc/uptime")).split(' ').first().toDouble();
        const double started = fields.at(19).toDouble() / double(sysconf(_SC_CLK_TCK));
        look = {fields.at(1).toInt(), stateText(fields.at(0).at(0)), qint64(uptime - started)};
    }
    return look;
}

void addHelpers(QJsonArray* entries, int launcher, const QList<int>& pids)
{
    for (int pid : pids) {
        const ProcessLook look = lookAtProcess(pid);
        if (look.parent == launcher) {
            entries->append(entry(QStringLiteral("helper %1").arg(pid), look.state, look.age));
        }
    }
}

void addProcesses(QJsonArray* entries)
{
    const QString launcher =
        QFileInfo(QDir(QCoreApplication::applicationDirPath()).filePath(FileName::zorvMpirun))
            .canonicalFilePath();
    const QList<int> pids = ProcInfo::getList(int(geteuid()));
    for (int pid : pids) {
        if (ProcInfo::getExe(pid) == launcher) {
            const ProcessLook look = lookAtProcess(pid);
            entries->append(entry(QStringLiteral("launcher %1").arg(pid), look.state, look.age));
            addHelpers(entries, pid, pids);
        }
    }
}

// Undefined without a session.
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
        const auto age = qint64(entry[2].toDouble());
        texts += entry[0].toString() + QLatin1Char(' ') + entry[1].toString() +
                 (withAges && age >= 0 ? QStringLiteral(" (%1)").arg(ageText(age)) : QString());
    }
    return texts;
}

QJsonArray lookWithinLimit(const Request& request)
{
    Probe probe([&] { return look(request); });
    return probe.wait() == Probe::Outcome::Answered
               ? probe.answer().toArray()
               : QJsonArray{
                     entry(QStringLiteral("session directory"), QStringLiteral("no answer"), -1)};
}

bool show(const QString& text)
{
    return fputs(text.toLocal8Bit().constData(), stdout) != EOF && fflush(stdout) != EOF;
}

QString timeText()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss"));
}

// Clears the screen and begins at its top.
bool showScreen(const QJsonArray& entries)
{
    return show(QStringLiteral("\033[H\033[2J%1\n%2\n")
                    .arg(timeText(), textsOf(entries, true).join(QLatin1Char('\n'))));
}

bool showLine(const QJsonArray& entries)
{
    return show(timeText() + QLatin1Char(' ') + textsOf(entries, true).join(QStringLiteral(", ")) +
                QLatin1Char('\n'));
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
        const bool isChanged = states != shown;
        if ((isScreen && (isChanged || looks % looksOfScreen == 0) && !showScreen(entries)) ||
            (!isScreen && isChanged && !showLine(entries))) {
            return 2;
        }
        shown = states;
        usleep(pauseUs);
    }
}
