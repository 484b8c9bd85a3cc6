#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/process/signals.h"
#include "tests/support/helpers.h"

#include <QRegularExpression>
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

private Q_SLOTS:
    void init() { clearSettings(); }

    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void commandGivesTheLinesOfItsOutput_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<bool>("merge");
        QTest::addColumn<QStringList>("lines");
        const QString line(99, u'x');
        QTest::newRow("standard error is discarded")
            << u"echo a; echo b >&2; echo c  d"_s << false << list({"a", "c d"});
        QTest::newRow("standard error is merged")
            << u"echo a; echo b >&2; echo c"_s << true << list({"a", "b", "c"});
        QTest::newRow("input file") << u"cat"_s << false << list({"1", "", "\r", "2"});
        QTest::newRow("crash") << u"echo a; kill -KILL $$"_s << false << list({"a"});
        QTest::newRow("a descendant holds the output")
            << u"echo a; sleep 60 & echo b"_s << false << list({"a", "b"});
        QTest::newRow("much output")
            << u"yes e | head -c 4000000 >&2; yes %1 | head -n 50000"_s.arg(line) << false
            << QStringList(50000, line);
    }

    void commandGivesTheLinesOfItsOutput()
    {
        QFETCH(QString, script);
        QFETCH(bool, merge);
        QVERIFY(writeFile(mFile, "1\n\n\r\n2"));
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QTEST(sc_helper_exec(u"sh -c \"%1\""_s.arg(script), merge, false, mFile), "lines");
    }

    void commandHasNoInput()
    {
        QCOMPARE(sc_helper_exec(u"cat"_s, false, false, {}), QStringList());
    }

    void commandThatDoesNotStartIsReported()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QTest::ignoreMessage(QtWarningMsg, "Failed to run '/nonexistent x'");
        QCOMPARE(sc_helper_exec(u"/nonexistent x"_s, false, false, {}), QStringList());
        QCOMPARE(sc_helper_exec(u"/nonexistent x"_s, false, true, {}), QStringList());
        QTest::ignoreMessage(QtWarningMsg, "Failed to run '  '");
        QCOMPARE(sc_helper_exec(u"  "_s, false, false, {}), QStringList());
    }

    void commandThatOutlivesItsOutputIsKilled()
    {
        const QString command = u"sh -c \"echo a; exec >&- 2>&-; exec sleep 60\""_s;
        QCOMPARE(sc_helper_exec(command, false, false, {}, 1000), list({"a"}));
    }

    void scriptNamesItsInterpreter()
    {
        QVERIFY(writeFile(mFile, "#! /bin/sh -e\r\necho"));
        QVERIFY(sc_isScript(mFile));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(mFile), list({"/bin/sh", "-e\r"}));
        QVERIFY(writeFile(mFile, "#!" + QByteArray(5000, 'x')));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(mFile), QStringList(QString(1021, u'x')));
        QVERIFY(writeFile(mFile, "/bin/sh\n#!/bin\n"));
        QVERIFY(!sc_isScript(mFile));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(mFile), QStringList());
    }

    void killIsTracedAndDropsSignals_data()
    {
        QTest::addColumn<QByteArray>("setting");
        QTest::addColumn<QString>("trace");
        QTest::addColumn<int>("end");
        QTest::newRow("not set") << QByteArray() << QString() << SIGUSR1;
        QTest::newRow("signal to drop") << QByteArray("ignore{0}ignore{10}")
                                        << u"sc_kill(pid,signo): %1 10 ignore true"_s << SIGKILL;
        QTest::newRow("another signal")
            << QByteArray("ignore{1}") << u"sc_kill(pid,signo): %1 10 ignore false"_s << SIGUSR1;
    }

    void killIsTracedAndDropsSignals()
    {
        QFETCH(QByteArray, setting);
        QFETCH(QString, trace);
        setSetting("ZORV_DEBUG_SC_KILL", setting);
        const pid_t child = fork();
        while (child == 0) {
            pause();
        }
        if (!trace.isEmpty()) {
            QTest::ignoreMessage(QtDebugMsg, trace.arg(child).toLatin1().constData());
        }
        QCOMPARE(sc_kill(child, 0), 0);
        QCOMPARE(sc_kill(child, SIGUSR1), 0);
        // Two signals that wait would not arrive in their order.
        QFETCH(int, end);
        if (end == SIGKILL) {
            kill(child, SIGKILL);
        }
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QCOMPARE(WTERMSIG(status), end);
        QCOMPARE(sc_kill(child, 0), -1);
    }
};

QTEST_GUILESS_MAIN(ProcessTest)
#include "tst_process.moc"
