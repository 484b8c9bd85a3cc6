#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/process/processhelpers_p.h"
#include "common/compatibility_simple/process/signals.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class ProcessTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir mDir;
    const QString mFile = mDir.filePath(u"file"_s);
    const QString mTestchild = u"\"" TESTCHILD "\" "_s;

private Q_SLOTS:
    void init() { clearSettings({"DEBUG_SC_KILL", "ALLOW_NEWLINE_IN_ARGS"}); }

    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void commandGivesTheLinesOfItsOutput_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<bool>("merge");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("standard error is discarded")
            << u"--print a --print-error b --print \"c  d\""_s << false << QByteArray()
            << list({"a", "c  d"});
        QTest::newRow("standard error is merged") << u"--print a --print-error b --print c"_s
                                                  << true << QByteArray() << list({"a", "b", "c"});
        QTest::newRow("input file")
            << u"--cat"_s << false << QByteArray("a\n\n\r\nb") << list({"a", "", "\r", "b"});
        QTest::newRow("no input") << u"--cat"_s << false << QByteArray() << QStringList();
        QTest::newRow("crash") << u"--print a --signal 9"_s << false << QByteArray() << list({"a"});
        QTest::newRow("a descendant holds the output")
            << u"--print a --fork-sleep --print b"_s << false << QByteArray() << list({"a", "b"});
        QTest::newRow("much output") << u"--flood-error 4000000 --flood 5000000"_s << false
                                     << QByteArray() << QStringList(50000, QString(99, u'x'));
    }

    void commandGivesTheLinesOfItsOutput()
    {
        QFETCH(QString, arguments);
        QFETCH(bool, merge);
        QFETCH(QByteArray, input);
        QVERIFY(writeFile(mFile, input));
        const MessageCollector messages;
        QTEST(sc_helper_exec(mTestchild + arguments, merge, false,
                             input.isNull() ? QString() : mFile),
              "lines");
        QCOMPARE(messages.texts(), QStringList());
    }

    void commandThatDoesNotStart_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("quiet");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("missing") << u"/nonexistent x"_s << false
                                 << list({"Failed to run '/nonexistent x'"});
        QTest::newRow("missing, quiet") << u"/nonexistent x"_s << true << QStringList();
        QTest::newRow("no words") << u"  "_s << false << list({"Failed to run '  '"});
    }

    void commandThatDoesNotStart()
    {
        QFETCH(QString, command);
        QFETCH(bool, quiet);
        const MessageCollector messages;
        QCOMPARE(sc_helper_exec(command, false, quiet, QString()), QStringList());
        QTEST(messages.texts(), "messages");
    }

    void commandThatOutlivesItsOutputIsKilled()
    {
        const QString command = mTestchild + u"--print a --close-output --sleep"_s;
        QCOMPARE(ProcessHelpers::outputLines(command, false, false, QString(), 1000), list({"a"}));
    }

    void scriptNamesItsInterpreter_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("isScript");
        QTest::addColumn<QStringList>("interpreter");
        QTest::newRow("with an argument, and a carriage return")
            << QByteArray("#! /bin/sh -e\r\necho") << true << list({"/bin/sh", "-e\r"});
        QTest::newRow("line longer than 1023 bytes")
            << "#!" + QByteArray(5000, 'x') << true << QStringList(QString(1021, u'x'));
        QTest::newRow("not in the first line")
            << QByteArray("/bin/sh\n#!/bin\n") << false << QStringList();
        QTest::newRow("one byte") << QByteArray("#") << false << QStringList();
    }

    void scriptNamesItsInterpreter()
    {
        QFETCH(QByteArray, content);
        QVERIFY(writeFile(mFile, content));
        QTEST(sc_isScript(mFile), "isScript");
        QTEST(sc_getScriptBinaryPathAndArguments(mFile), "interpreter");
    }

    void fifoIsNoScript()
    {
        const QString fifo = mDir.filePath(u"fifo"_s);
        QCOMPARE(sc_mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        QVERIFY(!sc_isScript(fifo));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(fifo), QStringList());
    }

    void killIsTracedAndDropsSignals_data()
    {
        QTest::addColumn<QByteArray>("setting");
        QTest::addColumn<int>("signo");
        QTest::addColumn<bool>("isSent");
        QTest::addColumn<QString>("trace");
        QTest::newRow("not set") << QByteArray() << SIGTERM << true << QString();
        QTest::newRow("signal to drop") << QByteArray("ignore{15}ignore{2}") << SIGTERM << false
                                        << u"sc_kill(pid,signo): %1 15 ignore true"_s;
        QTest::newRow("another signal") << QByteArray("ignore{15}") << SIGHUP << true
                                        << u"sc_kill(pid,signo): %1 1 ignore false"_s;
        QTest::newRow("probe") << QByteArray("ignore{0}") << 0 << false << QString();
    }

    void killIsTracedAndDropsSignals()
    {
        QFETCH(QByteArray, setting);
        QFETCH(int, signo);
        QFETCH(bool, isSent);
        QFETCH(QString, trace);
        setSetting("ZORV_DEBUG_SC_KILL", setting);
        // The child ends with the number of the first signal, the lowest one if there are
        // several.
        sigset_t all;
        sigset_t previous;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, &previous);
        const pid_t child = fork();
        if (child == 0) {
            int first = 0;
            sigwait(&all, &first);
            _exit(first);
        }
        sigprocmask(SIG_SETMASK, &previous, nullptr);
        const MessageCollector messages;
        QCOMPARE(sc_kill(child, signo), 0);
        QCOMPARE(messages.texts(), trace.isNull() ? QStringList() : QStringList(trace.arg(child)));
        kill(child, SIGRTMIN);
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QCOMPARE(WEXITSTATUS(status), isSent ? signo : SIGRTMIN);
        QCOMPARE(sc_kill(child, 0), -1);
    }
};

QTEST_GUILESS_MAIN(ProcessTest)
#include "tst_process.moc"
