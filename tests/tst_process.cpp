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

private Q_SLOTS:
    void init() { clearSettings({"DEBUG_SC_KILL", "ALLOW_NEWLINE_IN_ARGS"}); }

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
        const MessageCollector messages;
        QTEST(sc_helper_exec(u"sh -c \"%1\""_s.arg(script), merge, false, mFile), "lines");
        QCOMPARE(messages.texts(), QStringList());
    }

    void commandHasNoInput()
    {
        QCOMPARE(sc_helper_exec(u"cat"_s, false, false, {}), QStringList());
    }

    void commandThatDoesNotStartIsReported()
    {
        const MessageCollector messages;
        QCOMPARE(sc_helper_exec(u"/nonexistent x"_s, false, false, {}), QStringList());
        QCOMPARE(sc_helper_exec(u"/nonexistent x"_s, false, true, {}), QStringList());
        QCOMPARE(sc_helper_exec(u"  "_s, false, false, {}), QStringList());
        QCOMPARE(messages.texts(), list({"Failed to run '/nonexistent x'", "Failed to run '  '"}));
    }

    void commandThatOutlivesItsOutputIsKilled()
    {
        const QString command = u"sh -c \"echo a; exec >&- 2>&-; exec sleep 60\""_s;
        QCOMPARE(ProcessHelpers::outputLines(command, false, false, {}, 1000), list({"a"}));
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
    }

    void scriptNamesItsInterpreter()
    {
        QFETCH(QByteArray, content);
        QVERIFY(writeFile(mFile, content));
        QTEST(sc_isScript(mFile), "isScript");
        QTEST(sc_getScriptBinaryPathAndArguments(mFile), "interpreter");
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
