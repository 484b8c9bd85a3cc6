#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/process/processhelpers_p.h"
#include "common/compatibility_simple/process/signals.h"
#include "tests/support/helpers.h"
#include "zorv-util/qblockingprocess.h"

#include <QRegularExpression>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class ProcessTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearSettings();
        enterEmptyDirectory();
    }

    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void commandGivesTheLinesOfItsOutput_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<bool>("merge");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("standard error is discarded")
            << u"echo a; echo b >&2; echo c  d"_s << false << list({"a", "c d"});
        QTest::newRow("standard error is merged")
            << u"echo a; echo b >&2; echo c"_s << true << list({"a", "b", "c"});
        QTest::newRow("input file") << u"cat"_s << false << list({"1", "", "\r", "2"});
        QTest::newRow("a descendant holds the output")
            << u"echo a; sleep 60 & echo b"_s << false << list({"a", "b"});
        QTest::newRow("much output")
            << u"yes | head -n 500000"_s << false << QStringList(500000, u"y"_s);
    }

    void commandGivesTheLinesOfItsOutput()
    {
        QFETCH(QString, script);
        QFETCH(bool, merge);
        QVERIFY(writeFile(u"file"_s, "1\n\n\r\n2"));
        QTEST(sc_helper_exec(u"sh -c \"%1\""_s.arg(script), merge, false, u"file"_s), "lines");
    }

    void commandThatDoesNotStartIsReported()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QTest::ignoreMessage(QtWarningMsg, "Failed to run '/nonexistent x'");
        QCOMPARE(sc_helper_exec(u"/nonexistent x"_s, false, false, {}), QStringList());
        QCOMPARE(sc_helper_exec(u"/nonexistent x"_s, false, true, {}), QStringList());
    }

    void commandThatOutlivesItsOutputIsKilled()
    {
        const QString command = u"sh -c \"echo a; exec >&- 2>&-; exec sleep 60\""_s;
        QCOMPARE(ProcessHelpers::outputLines(command, false, false, {}, 1000), list({"a"}));
    }

    void readsWaitForALineOrTheEndOfTheOutput()
    {
        QBlockingProcess process;
        process.start(u"sh"_s,
                      {u"-c"_s, u"printf o; sleep 0.1; echo ne; sleep 0.1; echo error >&2; "
                                "printf two; exec >&- 2>&-; exec sleep 60"_s});
        QCOMPARE(process.readLine(), "one\n");
        QCOMPARE(process.readAll(), "two");
        QCOMPARE(process.readAllStandardError(), "error\n");
        QCOMPARE(process.state(), QProcess::Running);
        process.close();
    }

    void scriptNamesItsInterpreter()
    {
        QVERIFY(writeFile(u"file"_s, "#! /bin/sh -e\r\necho"));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(u"file"_s), list({"/bin/sh", "-e\r"}));
        QVERIFY(writeFile(u"file"_s, "/bin/sh\n#!/bin\n"));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(u"file"_s), QStringList());
    }

    void killIsTracedAndDropsSignals()
    {
        QProcess process;
        process.start(u"sleep"_s, {u"60"_s});
        QVERIFY(process.waitForStarted());
        const auto pid = static_cast<pid_t>(process.processId());
        const QString trace = u"sc_kill(pid,signo): %1 %2 ignore %3"_s.arg(pid);
        setSetting("ZORV_DEBUG_SC_KILL", "ignore{0}ignore{10}ignore{120}");
        QTest::ignoreMessage(QtDebugMsg, trace.arg(10).arg(u"true"_s).toLatin1().constData());
        QCOMPARE(sc_kill(pid, SIGUSR1), 0);
        QTest::ignoreMessage(QtDebugMsg, trace.arg(12).arg(u"false"_s).toLatin1().constData());
        QCOMPARE(sc_kill(pid, SIGUSR2), 0);
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), SIGUSR2);
        QCOMPARE(sc_kill(pid, 0), -1);
    }
};

QTEST_GUILESS_MAIN(ProcessTest)
#include "tst_process.moc"
