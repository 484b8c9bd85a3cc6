// Process and file helpers, and the restarts that the launcher makes with them.

#include "common/compatibility_simple/processhelpers.h"
#include "mpirun/restartableprocess.h"
#include "mpirun/restartwatcher.h"
#include "tests/support/descriptorlimit.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

static volatile sig_atomic_t signalCount = 0;

class ProcessHelpersTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir mDir;
    const QString mFile = mDir.filePath(u"file"_s);
    const QString mTestchild = u"\"" TESTCHILD "\" "_s;

private Q_SLOTS:
    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void killMayBeToldToDrop()
    {
        // clang-format off
        const struct { const char* setting; int killed; const char* logged; } rows[] = {
            {"", 1, ""},
            {"ignore{12}ignore{1}", 0, "<sc_kill(pid,signo): %1 1 ignore true>"},
            {"ignore{12}", 1, "<sc_kill(pid,signo): %1 1 ignore false>"},
        };
        // clang-format on
        signal(SIGHUP, [](int) { signalCount = signalCount + 1; });
        for (const auto& row : rows) {
            clearSettings({"DEBUG_SC_KILL"});
            qputenv("ZORV_DEBUG_SC_KILL", row.setting);
            signalCount = 0;
            const MessageCollector messages;
            QCOMPARE(sc_kill(getpid(), 0), 0);
            QCOMPARE(sc_kill(getpid(), SIGHUP), 0);
            QCOMPARE(signalCount, row.killed);
            QCOMPARE(messages.texts(),
                     QString::fromLatin1(row.logged).replace(u"%1"_s, QString::number(getpid())));
        }
        signal(SIGHUP, SIG_DFL);
    }

    void helperLines()
    {
        // clang-format off
        const struct { const char* actions; bool merge; const char *input, *expected; } rows[] = {
            {"--print a --print-error b --print c", false, nullptr, "<a><c>"},
            {"--print a --print-error b --print c", true, nullptr, "<a><b><c>"},
            {"--print \"a  b\"", false, nullptr, "<a  b>"},
            {"--cat", false, "a\n\n\r\nb", "<a><><\r><b>"}, {"--cat", false, nullptr, ""},
            {"--print a --signal 9", false, nullptr, "<a>"},
            // A descendant holds the output.
            {"--print a --fork-sleep --print b", false, nullptr, "<a><b>"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QVERIFY(writeFile(mFile, row.input));
            const QString command = mTestchild + QString::fromLatin1(row.actions);
            const MessageCollector messages;
            const QStringList lines =
                sc_helper_exec(command, row.merge, false, row.input ? mFile : QString());
            QCOMPARE(command + bracketed(lines) + messages.texts(),
                     command + QString::fromLatin1(row.expected));
        }
        // A child that outlives its output is killed.
        const QString sleeper = mTestchild + u"--print a --close-output --sleep"_s;
        QCOMPARE(bracketed(sc_helper_exec(sleeper, false, false, QString(), 1000)), u"<a>"_s);
        const QStringList lines = sc_helper_exec(
            mTestchild + u"--flood-error 4000000 --flood 5000000"_s, false, false, QString());
        QCOMPARE(lines.size(), 50000);
        QCOMPARE(lines.last(), QString(99, u'x'));
    }

    void helperThatDoesNotStart()
    {
        for (const QString& command : {u"/nonexistent/command -d"_s, u""_s, u"  "_s, mTestchild}) {
            const QString input = command == mTestchild ? u"/nonexistent/in"_s : QString();
            const MessageCollector messages;
            QCOMPARE(sc_helper_exec(command, false, true, input), QStringList());
            QCOMPARE(messages.texts(), QString());
            QCOMPARE(sc_helper_exec(command, false, false, input), QStringList());
            QCOMPARE(messages.texts(), u"<Failed to run '%1'>"_s.arg(command));
        }
    }

    void interpreterLine()
    {
        // clang-format off
        const struct { QByteArray content; bool script; QString expected; } rows[] = {
            {"#! /bin/sh -e\necho", true, u"</bin/sh><-e>"_s},
            {"#!/bin/sh -e\r\n", true, u"</bin/sh><-e\r>"_s},
            {"/bin/sh\n#!/bin\n", false, {}}, {"", false, {}}, {"#", false, {}}, {"#!", true, {}},
            {"#!" + QByteArray(5000, 'x'), true, u'<' + QString(1021, u'x') + u'>'},
        };
        // clang-format on
        for (const auto& row : rows) {
            QVERIFY(writeFile(mFile, row.content));
            QVERIFY2(sc_isScript(mFile) == row.script, row.content);
            QCOMPARE(bracketed(sc_getScriptBinaryPathAndArguments(mFile)), row.expected);
        }
        const QString fifo = mDir.filePath(u"fifo"_s);
        QCOMPARE(sc_mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        for (const QString& name : {fifo, mDir.path(), u"/nonexistent"_s}) {
            QVERIFY2(!sc_isScript(name), qPrintable(name));
            QCOMPARE(sc_getScriptBinaryPathAndArguments(name), QStringList());
        }
    }

    void modifiedTime()
    {
        QVERIFY(writeFile(mFile, "x"));
        const QByteArray name = QFile::encodeName(mFile);
        const timespec times[2] = {{1000, 7000}, {2000, 0}};
        QCOMPARE(utimensat(AT_FDCWD, name.constData(), times, 0), 0);
        // With milliseconds, and before 1970.
        QVERIFY(sc_setModifiedTime(mFile, QDateTime::fromMSecsSinceEpoch(-1501)));
        struct stat status;
        QCOMPARE(stat(name.constData(), &status), 0);
        QCOMPARE(status.st_mtim.tv_sec * 1000 + status.st_mtim.tv_nsec / 1000000, -1501);
        QCOMPARE(status.st_atim.tv_sec * 1000000 + status.st_atim.tv_nsec / 1000, 1000000007);
        QVERIFY(!sc_setModifiedTime(u"/nonexistent"_s, QDateTime::currentDateTime()));
    }

    void openDescriptors()
    {
        int ends[2];
        if (!allowDescriptor(1500)) {
            QSKIP("the hard limit on descriptors is too low");
        }
        QCOMPARE(pipe(ends), 0);
        // A number that no descriptor set of select(2) has.
        QCOMPARE(fcntl(ends[0], F_DUPFD, 1500), 1500);
        for (const int fd : {ends[0], 1500, ends[1]}) {
            const auto mode = fd == ends[1] ? QIODevice::WriteOnly : QIODevice::ReadOnly;
            QVERIFY(sc_isFileDescriptorOpen(fd, mode));
            close(fd);
            QVERIFY(!sc_isFileDescriptorOpen(fd, mode));
        }
        QVERIFY(!sc_isFileDescriptorOpen(-1, QIODevice::ReadOnly));
    }

    void signalsAndCalls()
    {
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

    void restartsAsLastStarted()
    {
        RestartableProcess process;
        const auto checkAndRestart = [&](QIODevice::OpenMode mode, const QByteArray& output) {
            for (int i = 0; i < 3; ++i) {
                QCOMPARE(process.openMode(), mode);
                QVERIFY(process.waitForFinished());
                QCOMPARE(process.readAll(), output);
                process.restart();
            }
            QVERIFY(process.waitForFinished());
        };
        for (int round = 0; round < 2; ++round) {
            process.start(u"printf"_s, {u"<%s>"_s, u"a b"_s, u""_s, u"\"c\""_s},
                          QIODevice::ReadOnly);
            checkAndRestart(QIODevice::ReadOnly, "<a b><><\"c\">");
            process.start(u"printf \"<%s>\" \"a  b\" c"_s, QIODevice::ReadWrite);
            checkAndRestart(QIODevice::ReadWrite, "<a  b><c>");
        }
    }

    // The request is made once the watcher sleeps: one that did not wait misses it.
    void restartWaitsForAHold()
    {
        const QString hold = mDir.filePath(u"hold"_s);
        const QString state = u"/proc/self/task/%1/stat"_s.arg(gettid());
        QFile::remove(mFile);
        QVERIFY(QDir().mkdir(hold));
        std::thread frontEnd([&] {
            QFile file(state);
            while (!file.open(QIODevice::ReadOnly) || !file.readAll().contains(") S ")) {
                file.close();
            }
            QFile(mFile).open(QIODevice::WriteOnly);
            QDir().rmdir(hold);
        });
        RestartWatcher watcher;
        QSignalSpy restarts(&watcher, &RestartWatcher::restart);
        watcher.setRestartFileName(mFile);
        watcher.setRestartHoldFileName(hold);
        watcher.checkForQuickRestart();
        frontEnd.join();
        QCOMPARE(restarts.count(), 1);
    }

    void commandLineWithoutWords()
    {
        for (const QString& commandLine : {QString(), u"  "_s}) {
            RestartableProcess process;
            QSignalSpy failed(&process, &QProcess::errorOccurred);
            process.start(commandLine, QIODevice::ReadOnly);
            process.restart();
            QCOMPARE(failed.count(), 2);
            QCOMPARE(process.error(), QProcess::FailedToStart);
        }
    }
};

QTEST_GUILESS_MAIN(ProcessHelpersTest)
#include "tst_processhelpers.moc"
