// Processes: helpers for them and their files, their table, and their restarts.

#include "common/ProcInfo.h"
#include "common/compatibility_simple/processhelpers.h"
#include "mpirun/restartableprocess.h"
#include "tests/support/descriptorlimit.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

static volatile sig_atomic_t signalCount = 0;

class ProcessesTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir mDir;
    const QString mFile = mDir.filePath(u"file"_s);
    const QString mTestchild = u"\"" TESTCHILD "\" "_s;

private Q_SLOTS:
    void init() { clearSettings({"DEBUG_SC_KILL"}); }
    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void table()
    {
        QStringList names;
        for (int pid : ProcInfo::getList(-1)) {
            names += QString::number(pid);
        }
        QVERIFY(names.contains(u"1"_s) && std::is_sorted(names.begin(), names.end()));
        // An id that no user has here.
        QCOMPARE(ProcInfo::getList(2123456789), QList<int>());
        QVERIFY(ProcInfo::getList(static_cast<int>(getuid())).contains(getpid()));
        QCOMPARE(ProcInfo::getChild(getpid()), -1);

        const auto seen = [](int pid) {
            return bracketed({QString::number(ProcInfo::getParent(pid)), ProcInfo::getName(pid),
                              ProcInfo::getExe(pid),
                              ProcInfo::exists(pid) ? u"exists"_s : u"none"_s,
                              ProcInfo::alive(pid) ? u"alive"_s : u"dead"_s});
        };
        const QString parent = u'<' + QString::number(getpid()) + u'>';
        QProcess process;
        // A name that looks like what is read, with what else a name may have.
        process.setChildProcessModifier([] { prctl(PR_SET_NAME, "Uid: (Z )\n9"); });
        process.start(QStringLiteral(TESTCHILD), {u"--sleep"_s});
        QVERIFY(process.waitForStarted());
        const int running = ProcInfo::getChild(getpid());
        QCOMPARE(running, process.processId());
        QCOMPARE(seen(running), parent + u"<" TESTCHILD "><" TESTCHILD "><exists><alive>"_s);
        process.kill();
        QVERIFY(process.waitForFinished());
        const pid_t zombie = fork();
        if (zombie == 0) {
            prctl(PR_SET_NAME, "PPid:\t1");
            _exit(0);
        }
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT);
        QCOMPARE(seen(zombie), parent + u"<><><exists><dead>"_s);
        waitpid(zombie, nullptr, 0);
        QCOMPARE(seen(zombie), u"<-1>null<><none><dead>"_s);
    }

    void signalsMayBeDropped()
    {
        signal(SIGHUP, [](int) { signalCount = signalCount + 1; });
        for (const char* setting : {"ignore{12}ignore{1}", "ignore{12}"}) {
            setSetting("ZORV_DEBUG_SC_KILL", setting);
            const MessageCollector messages;
            QCOMPARE(sc_kill(getpid(), 0) + sc_kill(getpid(), SIGHUP), 0);
            const bool dropped = signalCount == 0;
            QCOMPARE(dropped, QByteArray(setting).contains("{1}"));
            QCOMPARE(messages.texts(), u"<sc_kill(pid,signo): %1 1 ignore %2>"_s.arg(getpid()).arg(
                                           dropped ? u"true"_s : u"false"_s));
        }
        QCOMPARE(ignoreSigPipe(), 0);
        QVERIFY(signal(SIGPIPE, SIG_DFL) == SIG_IGN);
        QCOMPARE(ignoreSigPipe(), 0);
        QVERIFY(signal(SIGPIPE, SIG_DFL) == SIG_DFL);
        // A sleep that a signal has ended is not resumed.
        signal(SIGALRM, [](int) {});
        alarm(1);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(sc_usleep(100 * 1000 * 1000), 0);
        QVERIFY(timer.elapsed() < 50 * 1000);
    }

    void helperLines()
    {
        const QString noCommand = u"/nonexistent/command -d"_s;
        // clang-format off
        const struct { QString command; bool merge; QByteArray input; QString expected; } rows[] = {
            {mTestchild + u"--print a --print-error b --print \"c  d\""_s, false, {}, u"<a><c  d>"_s},
            {mTestchild + u"--print a --print-error b --print c"_s, true, {}, u"<a><b><c>"_s},
            {mTestchild + u"--cat"_s, false, "a\n\n\r\nb", u"<a><><\r><b>"_s},
            {mTestchild + u"--print a --signal 9"_s, false, {}, u"<a>"_s},
            // A descendant holds the output.
            {mTestchild + u"--print a --fork-sleep --print b"_s, false, {}, u"<a><b>"_s},
            {noCommand, false, {}, u"<Failed to run '/nonexistent/command -d'>"_s},
            {u"  "_s, false, {}, u"<Failed to run '  '>"_s},
        };
        // clang-format on
        for (const auto& row : rows) {
            QVERIFY(writeFile(mFile, row.input));
            const QString input = row.input.isNull() ? QString() : mFile;
            const MessageCollector messages;
            const QStringList lines = sc_helper_exec(row.command, row.merge, false, input);
            QCOMPARE(bracketed(lines) + messages.texts(), row.expected);
        }
        const MessageCollector messages;
        QCOMPARE(sc_helper_exec(noCommand, false, true, QString()), QStringList());
        QCOMPARE(sc_helper_exec(mTestchild, false, true, noCommand), QStringList());
        const QString flood = mTestchild + u"--flood-error 4000000 --flood 5000000"_s;
        const QStringList lines = sc_helper_exec(flood, false, false, QString());
        QCOMPARE(lines, QStringList(50000, QString(99, u'x')));
        QCOMPARE(messages.texts(), QString());
        // A child that outlives its output is killed.
        const QString sleeper = mTestchild + u"--print a --close-output --sleep"_s;
        QCOMPARE(bracketed(sc_helper_exec(sleeper, false, false, QString(), 1000)), u"<a>"_s);
    }

    void interpreterLine()
    {
        const QString fifo = mDir.filePath(u"fifo"_s);
        QCOMPARE(sc_mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        // clang-format off
        const struct { QString file; QByteArray content; bool script; QString expected; } rows[] = {
            {mFile, "#! /bin/sh -e\r\necho", true, u"</bin/sh><-e\r>"_s},
            {mFile, "#!" + QByteArray(5000, 'x'), true, u'<' + QString(1021, u'x') + u'>'},
            {mFile, "/bin/sh\n#!/bin\n", false, {}}, {mFile, "#", false, {}},
            {fifo, {}, false, {}}, {mDir.path(), {}, false, {}},
        };
        // clang-format on
        for (const auto& row : rows) {
            QVERIFY(row.content.isNull() || writeFile(row.file, row.content));
            QVERIFY2(sc_isScript(row.file) == row.script, row.content);
            QCOMPARE(bracketed(sc_getScriptBinaryPathAndArguments(row.file)), row.expected);
        }
    }

    // With fractions of seconds, and before 1970.
    void modifiedTime()
    {
        QFile file(mFile);
        QVERIFY(file.open(QIODevice::ReadWrite));
        const auto time = [](qint64 ms) { return QDateTime::fromMSecsSinceEpoch(ms); };
        QVERIFY(file.setFileTime(time(1000007), QFileDevice::FileAccessTime));
        QVERIFY(sc_setModifiedTime(mFile, time(-1501)));
        QCOMPARE(QFileInfo(mFile).lastModified(), time(-1501));
        QCOMPARE(QFileInfo(mFile).lastRead(), time(1000007));
        QVERIFY(!sc_setModifiedTime(u"/nonexistent"_s, time(0)));
    }

    void openDescriptors()
    {
        int ends[2];
        QCOMPARE(pipe(ends), 0);
        // A number that no descriptor set of select(2) has.
        if (!allowDescriptor(1500) || fcntl(ends[0], F_DUPFD, 1500) != 1500) {
            QSKIP("the hard limit on descriptors is too low");
        }
        for (const int fd : {ends[0], 1500, ends[1]}) {
            const auto mode = fd == ends[1] ? QIODevice::WriteOnly : QIODevice::ReadOnly;
            QVERIFY(sc_isFileDescriptorOpen(fd, mode));
            close(fd);
            QVERIFY(!sc_isFileDescriptorOpen(fd, mode));
        }
        QVERIFY(!sc_isFileDescriptorOpen(-1, QIODevice::ReadOnly));
    }

    void restartsAsLastStarted()
    {
        RestartableProcess process;
        const auto runAndRestart = [&](QIODevice::OpenMode mode, const QByteArray& output) {
            for (int i = 0; i < 2; ++i) {
                QCOMPARE(process.openMode(), mode);
                QVERIFY(process.waitForFinished());
                QCOMPARE(process.readAll(), output);
                process.restart();
            }
            QVERIFY(process.waitForFinished());
        };
        const QStringList arguments = {u"<%s>"_s, u"a b"_s, u""_s, u"\"c\""_s};
        for (int round = 0; round < 2; ++round) {
            process.start(u"printf"_s, arguments, QIODevice::ReadOnly);
            runAndRestart(QIODevice::ReadOnly, "<a b><><\"c\">");
            process.start(u"printf \"<%s>\" \"a  b\" c"_s, QIODevice::ReadWrite);
            runAndRestart(QIODevice::ReadWrite, "<a  b><c>");
        }
        process.start(u"  "_s, QIODevice::ReadOnly);
        QCOMPARE(process.error(), QProcess::FailedToStart);
    }
};

QTEST_GUILESS_MAIN(ProcessesTest)
#include "tst_processes.moc"
