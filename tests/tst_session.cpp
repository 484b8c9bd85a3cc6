// The launcher with a session, from outside: the marker, the log, restarts that
// a front end asks for through files, and signals in every state.

#include "tests/support/installation.h"
#include "tests/support/network.h"

#include <QDir>
#include <QFile>
#include <QHostInfo>
#include <QTest>

#include <csignal>
#include <memory>
#include <unistd.h>

namespace {

enum State { Plain, WithSession, AfterRestart, InHold };

bool touch(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly);
}

int lineCount(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? static_cast<int>(file.readAll().count('\n')) : 0;
}

QByteArray content(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class SessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void restartProtocol();
    void holdIsADirectory();
    void holdThatCannotBeMade();
    void restartWithoutAHelper();
    void markerThatCannotBeMade();
    void noMarkerWithoutAValidSession_data();
    void noMarkerWithoutAValidSession();
    void logsToAFile();
    void signals_data();
    void signals();
    void signalIgnoredAtTheStart();

private:
    QString path(const char* name) const { return mInstallation->path(text(name)); }
    QString session(const char* name) const { return path("session/") + text(name); }
    // Starts the launcher; its helper writes a line to "pids" at each start and
    // then does as it is told.
    void start(const QString& actions);
    bool helpersStarted(int count) const;

    std::unique_ptr<Installation> mInstallation;
    std::unique_ptr<Launch> mLaunch;
};

void SessionTest::init()
{
    mLaunch.reset();
    mInstallation = std::make_unique<Installation>();
    mLaunch = std::make_unique<Launch>(mInstallation->launcher());
    mLaunch->setVariable(text("ZORV_SESSION_PATH"), path("session"));
    mLaunch->setVariable(text("ZORV_HOST"), text("alpha"));
    mLaunch->setVariable(text("PELK_SESSION"), text("3"));
}

void SessionTest::start(const QString& actions)
{
    mLaunch->setHelperActions(text("--append ") + path("pids") + QLatin1Char(' ') + actions);
    mLaunch->start();
}

bool SessionTest::helpersStarted(int count) const
{
    return QTest::qWaitFor([&] { return lineCount(path("pids")) == count; }, 30000);
}

void SessionTest::restartProtocol()
{
    start(text("--wait-file ") + path("go"));
    QVERIFY(helpersStarted(1));
    QCOMPARE(content(session("restart-supported")), QByteArray());
    QVERIFY(QFile::exists(session("restart-supported")));
    QVERIFY(!QFile::exists(session("restart-hold")));

    // The first helper ends and the second is started; it ends at once, and the
    // launcher waits for the hold that it has left.
    QVERIFY(touch(session("restart")));
    QVERIFY(touch(path("go")));
    QVERIFY(helpersStarted(2));
    QVERIFY(!QFile::exists(session("restart")));
    QCOMPARE(content(session("restart-hold")), QByteArray());
    QVERIFY(QFile::exists(session("restart-hold")));

    // A request made during the hold counts when the hold is released.
    QVERIFY(touch(session("restart")));
    QVERIFY(QFile::remove(session("restart-hold")));
    QVERIFY(helpersStarted(3));
    QVERIFY(QFile::remove(session("restart-hold")));
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->errors(), QByteArray());
    QCOMPARE(lineCount(path("pids")), 3);
    QVERIFY(QFile::exists(session("restart-supported")));
}

void SessionTest::holdIsADirectory()
{
    QVERIFY(QDir().mkdir(session("restart-hold")));
    QVERIFY(touch(session("restart")));
    start(text("--exit 0"));
    QVERIFY(helpersStarted(1));
    QVERIFY(QFile::exists(session("restart")));
    QVERIFY(QDir().rmdir(session("restart-hold")));
    QVERIFY(helpersStarted(2));
    QVERIFY(QFile::remove(session("restart-hold")));
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), 0);
}

// A link that leads nowhere holds nothing and is not followed.
void SessionTest::holdThatCannotBeMade()
{
    QVERIFY(QFile::link(path("victim"), session("restart-hold")));
    QVERIFY(touch(session("restart")));
    start(text("--exit 0"));
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->errors(),
             QFile::encodeName(session("restart-hold")) + ": Too many levels of symbolic links\n");
    QCOMPARE(lineCount(path("pids")), 1);
    QVERIFY(!QFile::exists(path("victim")));
}

void SessionTest::restartWithoutAHelper()
{
    start(text("--wait-file ") + path("go"));
    QVERIFY(helpersStarted(1));
    QVERIFY(QFile::remove(mInstallation->helper()));
    QVERIFY(touch(session("restart")));
    QVERIFY(touch(path("go")));
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), 1);
    QCOMPARE(mLaunch->errors().count('\n'), 1);
    QVERIFY(mLaunch->errors().startsWith(QFile::encodeName(mInstallation->helper()) + ": "));
    QVERIFY(mLaunch->errors().endsWith("No such file or directory\n"));
}

void SessionTest::markerThatCannotBeMade()
{
    mLaunch->setVariable(text("ZORV_SESSION_PATH"), path("missing"));
    start(text("--exit 0"));
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->errors(), QFile::encodeName(path("missing/restart-supported")) +
                                    ": No such file or directory\n");
    QCOMPARE(lineCount(path("pids")), 1);
}

void SessionTest::noMarkerWithoutAValidSession_data()
{
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QList<QByteArray>>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("error");

    const QList<QByteArray> none;
    QTest::newRow("no host") << text("ZORV_HOST") << text("") << none << 0 << QByteArray();
    QTest::newRow("port") << text("ZORV_PORT") << text("65536") << none << 0 << QByteArray();
    QTest::newRow("options rejected")
        << text("X") << text("") << QList<QByteArray>{"--zorvport", "x", "program"} << 1
        << QByteArray("invalid --zorvport argument 'x'\n");
    QTest::newRow("value missing")
        << text("X") << text("") << QList<QByteArray>{"--zorvsession"} << 1
        << QByteArray("option '--zorvsession' requires an argument\n");
}

void SessionTest::noMarkerWithoutAValidSession()
{
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QFETCH(QList<QByteArray>, arguments);
    QFETCH(int, status);
    QVERIFY(touch(session("restart")));
    mLaunch->setVariable(variable, value);
    mLaunch->setHelperActions(text("--append ") + path("pids"));
    mLaunch->run(arguments);
    QCOMPARE(mLaunch->status(), status);
    QTEST(mLaunch->errors(), "error");
    // The request of a session that is not ours stays.
    QCOMPARE(QDir(path("session")).entryList(QDir::Files), list("restart"));
    QCOMPARE(lineCount(path("pids")), status == 0 ? 1 : 0);
}

void SessionTest::logsToAFile()
{
    const QString log = path("log-") + QHostInfo::localHostName() + text(".log");
    mLaunch->setVariable(text("TALVORA_MPIRUN_LOG"), path("log.log"));
    QVERIFY(QFile::remove(mInstallation->helper()));
    mLaunch->run();
    QCOMPARE(mLaunch->status(), 1);
    QCOMPARE(content(log), mLaunch->errors());
    QVERIFY(content(log).startsWith(QFile::encodeName(mInstallation->helper())));
}

void SessionTest::signals_data()
{
    QTest::addColumn<int>("signo");
    QTest::addColumn<int>("state");
    const char* const states[] = {"no session", "session", "after a restart", "in the hold"};
    for (int signo : {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP}) {
        for (int state : {Plain, WithSession, AfterRestart, InHold}) {
            QTest::addRow("%d, %s", signo, states[state]) << signo << state;
        }
    }
}

void SessionTest::signals()
{
    QFETCH(int, signo);
    QFETCH(int, state);
    if (state == Plain) {
        mLaunch->setVariable(text("ZORV_HOST"), text(""));
    }
    // The first helper ends on its own where there is to be a restart.
    const QString end = text("--wait-file ") + path("go");
    const QString sleep = text("--record-signal ") + path("signal") + text(" --append ") +
                          path("ready") + text(" --sleep");
    start(state == AfterRestart ? end + QLatin1Char(' ') + sleep : state == InHold ? end : sleep);
    QVERIFY(helpersStarted(1));
    const int helpers = state == AfterRestart || state == InHold ? 2 : 1;
    if (helpers == 2) {
        QVERIFY(touch(session("restart")));
        QVERIFY(touch(path("go")));
        if (state == AfterRestart) {
            // The first is at "--sleep" too: it is to end.
            QVERIFY(QTest::qWaitFor([&] { return lineCount(path("ready")) == 1; }, 30000));
            QVERIFY(kill(content(path("pids")).split('\n').value(0).toInt(), SIGKILL) == 0);
        }
        QVERIFY(helpersStarted(2));
    }
    if (state == InHold) {
        const QString child = text("/proc/%1/task/%1/children").arg(mLaunch->process().processId());
        QVERIFY(QTest::qWaitFor([&] { return content(child).isEmpty(); }, 30000));
    } else {
        const int ready = state == AfterRestart ? 2 : 1;
        QVERIFY(QTest::qWaitFor([&] { return lineCount(path("ready")) == ready; }, 30000));
    }

    QCOMPARE(QFile::exists(session("restart-supported")), state != Plain);
    QVERIFY(kill(static_cast<pid_t>(mLaunch->process().processId()), signo) == 0);
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), -signo);
    QVERIFY(!QFile::exists(session("restart-supported")));
    if (state != InHold) {
        QVERIFY(QTest::qWaitFor([&] { return QFile::exists(path("signal")); }, 30000));
        QCOMPARE(content(path("signal")), QByteArray::number(signo));
    }
    QCOMPARE(lineCount(path("pids")), helpers);
}

// As nohup starts it: the launcher handles the signal all the same, the helper
// goes on ignoring it.
void SessionTest::signalIgnoredAtTheStart()
{
    mLaunch->setBeforeExec([] { signal(SIGHUP, SIG_IGN); });
    start(text("--record-state ") + path("state") + text(" --wait-file ") + path("go") +
          text(" --append ") + path("after"));
    QVERIFY(QTest::qWaitFor([&] { return QFile::exists(path("state")); }, 30000));
    QVERIFY(content(path("state")).contains("ignored 1\n"));
    QVERIFY(kill(static_cast<pid_t>(mLaunch->process().processId()), SIGHUP) == 0);
    QVERIFY(touch(path("go")));
    QVERIFY(mLaunch->waitForEnd());
    QCOMPARE(mLaunch->status(), -SIGHUP);
    QVERIFY(QTest::qWaitFor([&] { return lineCount(path("after")) == 1; }, 30000));
    QVERIFY(!QFile::exists(session("restart-supported")));
}

QTEST_GUILESS_MAIN(SessionTest)
#include "tst_session.moc"
