// Process and file helpers, with real processes and files.

#include "common/compatibility_simple/processhelpers.h"
#include "common/env/zorvenv.h"
#include "tests/support/descriptorlimit.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

QStringList messages;

// Collects what is logged while it lives.
class MessageCollector
{
public:
    MessageCollector()
    {
        messages.clear();
        mPrevious = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { messages += text; });
    }
    ~MessageCollector() { qInstallMessageHandler(mPrevious); }

private:
    QtMessageHandler mPrevious;
};

QString testchild(const char* actions)
{
    return QStringLiteral("\"" TESTCHILD "\" ") + QString::fromLatin1(actions);
}

bool hasChildren()
{
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

} // namespace

class ProcessHelpersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void killMayBeToldToDrop_data();
    void killMayBeToldToDrop();
    void helperLines_data();
    void helperLines();
    void helperOutputOfSeveralMebibytes();
    void helperThatDoesNotStart_data();
    void helperThatDoesNotStart();
    void helperThatRunsOn();
    void interpreterLine_data();
    void interpreterLine();
    void interpreterOfWhatIsNoFile();
    void modifiedTime_data();
    void modifiedTime();
    void openDescriptors();
    void brokenPipesAreIgnoredOnce();
    void sleepIsNotResumed();
};

void ProcessHelpersTest::cleanup()
{
    QVERIFY(!hasChildren());
}

void ProcessHelpersTest::killMayBeToldToDrop_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<int>("signo");
    QTest::addColumn<bool>("dropped");
    QTest::addColumn<QString>("logged");

    const auto l = [](const char* text) { return QString::fromLatin1(text); };
    QTest::newRow("no setting") << QByteArray() << SIGTERM << false << QString();
    QTest::newRow("named signal") << QByteArray("ignore{15}ignore{2}") << SIGTERM << true
                                  << l(" 15 ignore true");
    QTest::newRow("other signal") << QByteArray("ignore{15}ignore{2}") << SIGKILL << false
                                  << l(" 9 ignore false");
    QTest::newRow("1 is not in 15")
        << QByteArray("ignore{15}") << SIGHUP << false << l(" 1 ignore false");
}

void ProcessHelpersTest::killMayBeToldToDrop()
{
    QFETCH(QByteArray, setting);
    QFETCH(int, signo);
    QFETCH(bool, dropped);
    QFETCH(QString, logged);

    qputenv("ZORV_DEBUG_SC_KILL", setting);
    discardEnvCache();
    QProcess process;
    process.start(QStringLiteral(TESTCHILD), {QStringLiteral("--sleep")});
    QVERIFY(process.waitForStarted());
    const int child = static_cast<int>(process.processId());
    {
        const MessageCollector collector;
        QCOMPARE(sc_kill(child, 0), 0);
        QVERIFY(messages.isEmpty());
        QCOMPARE(sc_kill(child, signo), 0);
        QStringList expected;
        if (!logged.isNull()) {
            expected += QStringLiteral("sc_kill(pid,signo): %1%2").arg(child).arg(logged);
        }
        QCOMPARE(messages, expected);
    }
    if (dropped) {
        process.kill();
    }
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), dropped ? SIGKILL : signo);
    qunsetenv("ZORV_DEBUG_SC_KILL");
    discardEnvCache();
}

void ProcessHelpersTest::helperLines_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("merge");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QStringList>("expected");

    const auto l = [](const char* text) { return QString::fromLatin1(text); };
    const QByteArray none;
    QTest::newRow("separate") << testchild("--print a --print-error b --print c") << false << none
                              << QStringList{l("a"), l("c")};
    QTest::newRow("merged") << testchild("--print a --print-error b --print c") << true << none
                            << QStringList{l("a"), l("b"), l("c")};
    QTest::newRow("quoted argument")
        << testchild("--print \"a  b\"") << false << none << QStringList{l("a  b")};
    QTest::newRow("input file, empty lines, no line end at the end")
        << testchild("--cat") << false << QByteArray("a\n\n\r\nb")
        << QStringList{l("a"), QString(), l("\r"), l("b")};
    QTest::newRow("empty input") << testchild("--cat") << false << QByteArray("") << QStringList();
    QTest::newRow("--cat without input") << testchild("--cat") << false << none << QStringList();
    QTest::newRow("failure after output")
        << testchild("--print a --signal 9") << false << none << QStringList{l("a")};
    QTest::newRow("a descendant holds the output") << testchild("--print a --fork-sleep --print b")
                                                   << false << none << QStringList{l("a"), l("b")};
}

void ProcessHelpersTest::helperLines()
{
    QFETCH(QString, command);
    QFETCH(bool, merge);
    QFETCH(QByteArray, input);

    const QTemporaryDir dir;
    QString inputFile;
    if (!input.isNull()) {
        inputFile = dir.filePath(QStringLiteral("input"));
        QFile file(inputFile);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(input);
    }
    const MessageCollector collector;
    QTEST(sc_helper_exec(command, merge, false, inputFile), "expected");
    QCOMPARE(messages, QStringList());
}

void ProcessHelpersTest::helperOutputOfSeveralMebibytes()
{
    const QStringList lines =
        sc_helper_exec(testchild("--flood-error 4000000 --flood 5000000"), false, false, QString());
    QCOMPARE(lines.size(), 50000);
    QCOMPARE(lines.at(49999), QString(99, QLatin1Char('x')));
}

void ProcessHelpersTest::helperThatDoesNotStart_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("inputFile");

    QTest::newRow("no such program") << QStringLiteral("/nonexistent/command -d") << QString();
    QTest::newRow("empty") << QStringLiteral("") << QString();
    QTest::newRow("blank") << QStringLiteral("  ") << QString();
    QTest::newRow("no such input file") << testchild("--cat") << QStringLiteral("/nonexistent/in");
}

void ProcessHelpersTest::helperThatDoesNotStart()
{
    QFETCH(QString, command);
    QFETCH(QString, inputFile);
    const MessageCollector collector;
    QCOMPARE(sc_helper_exec(command, false, true, inputFile), QStringList());
    QCOMPARE(messages, QStringList());
    QCOMPARE(sc_helper_exec(command, false, false, inputFile), QStringList());
    QCOMPARE(messages, QStringList{QStringLiteral("Failed to run '%1'").arg(command)});
}

void ProcessHelpersTest::helperThatRunsOn()
{
    // A child that outlives the wait is killed: cleanup() finds none.
    const MessageCollector collector;
    QCOMPARE(sc_helper_exec(testchild("--print a --close-output --sleep"), false, false, QString(),
                            1000),
             QStringList{QStringLiteral("a")});
}

void ProcessHelpersTest::interpreterLine_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("script");
    QTest::addColumn<QStringList>("expected");

    const auto l = [](const char* text) { return QString::fromLatin1(text); };
    QTest::newRow("interpreter and argument")
        << QByteArray("#! /bin/sh -e\necho") << true << QStringList{l("/bin/sh"), l("-e")};
    QTest::newRow("no line end") << QByteArray("#!/bin/sh") << true << QStringList{l("/bin/sh")};
    QTest::newRow("carriage return stays")
        << QByteArray("#!/bin/sh -e\r\n") << true << QStringList{l("/bin/sh"), l("-e\r")};
    QTest::newRow("no script") << QByteArray("/bin/sh\n#!/bin/sh\n") << false << QStringList();
    QTest::newRow("empty") << QByteArray() << false << QStringList();
    QTest::newRow("one byte") << QByteArray("#") << false << QStringList();
    QTest::newRow("mark alone") << QByteArray("#!") << true << QStringList();
    QTest::newRow("line of 5 000 bytes")
        << "#!" + QByteArray(5000, 'x') << true << QStringList{QString(1021, QLatin1Char('x'))};
}

void ProcessHelpersTest::interpreterLine()
{
    QFETCH(QByteArray, content);
    const QTemporaryDir dir;
    const QString name = dir.filePath(QStringLiteral("script"));
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
    file.close();
    QTEST(sc_isScript(name), "script");
    QTEST(sc_getScriptBinaryPathAndArguments(name), "expected");
}

void ProcessHelpersTest::interpreterOfWhatIsNoFile()
{
    const QTemporaryDir dir;
    const QString fifo = dir.filePath(QStringLiteral("fifo"));
    QCOMPARE(sc_mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    for (const QString& name : {fifo, dir.path(), QStringLiteral("/nonexistent")}) {
        QVERIFY(!sc_isScript(name));
        QCOMPARE(sc_getScriptBinaryPathAndArguments(name), QStringList());
    }
}

void ProcessHelpersTest::modifiedTime_data()
{
    QTest::addColumn<qint64>("milliseconds");
    QTest::newRow("with milliseconds") << qint64(1234567890123);
    QTest::newRow("before 1970") << qint64(-1500);
}

void ProcessHelpersTest::modifiedTime()
{
    QFETCH(qint64, milliseconds);
    const QTemporaryDir dir;
    const QString name = dir.filePath(QStringLiteral("file"));
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    const timespec times[2] = {{1000, 7000}, {2000, 0}};
    futimens(file.handle(), times);
    QVERIFY(sc_setModifiedTime(name, QDateTime::fromMSecsSinceEpoch(milliseconds)));
    struct stat status;
    QCOMPARE(stat(QFile::encodeName(name).constData(), &status), 0);
    QCOMPARE(qint64(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000, milliseconds);
    QCOMPARE(status.st_atim.tv_sec, 1000);
    QCOMPARE(status.st_atim.tv_nsec, 7000);
    QVERIFY(!sc_setModifiedTime(name + QLatin1Char('x'), QDateTime::currentDateTime()));
}

void ProcessHelpersTest::openDescriptors()
{
    if (!allowDescriptor(1500)) {
        QSKIP("the hard limit on descriptors is too low");
    }
    int ends[2];
    QCOMPARE(pipe(ends), 0);
    const int high = fcntl(ends[0], F_DUPFD, 1500);
    QCOMPARE(high, 1500);
    QVERIFY(sc_isFileDescriptorOpen(ends[0], QIODevice::ReadOnly));
    QVERIFY(sc_isFileDescriptorOpen(ends[1], QIODevice::WriteOnly));
    QVERIFY(sc_isFileDescriptorOpen(high, QIODevice::ReadOnly));
    QVERIFY(!sc_isFileDescriptorOpen(-1, QIODevice::ReadOnly));
    close(high);
    close(ends[0]);
    close(ends[1]);
    QVERIFY(!sc_isFileDescriptorOpen(high, QIODevice::ReadOnly));
    QVERIFY(!sc_isFileDescriptorOpen(ends[1], QIODevice::WriteOnly));
}

void ProcessHelpersTest::brokenPipesAreIgnoredOnce()
{
    QCOMPARE(ignoreSigPipe(), 0);
    struct sigaction action;
    sigaction(SIGPIPE, nullptr, &action);
    QVERIFY(action.sa_handler == SIG_IGN);
    signal(SIGPIPE, SIG_DFL);
    QCOMPARE(ignoreSigPipe(), 0);
    sigaction(SIGPIPE, nullptr, &action);
    QVERIFY(action.sa_handler == SIG_DFL);
}

void ProcessHelpersTest::sleepIsNotResumed()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    struct sigaction previous;
    sigaction(SIGALRM, &action, &previous);
    alarm(1);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(sc_usleep(100 * 1000 * 1000), 0);
    QVERIFY(timer.elapsed() < 50 * 1000);
    sigaction(SIGALRM, &previous, nullptr);
}

QTEST_GUILESS_MAIN(ProcessHelpersTest)
#include "tst_processhelpers.moc"
