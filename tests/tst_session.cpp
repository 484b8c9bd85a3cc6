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

class SessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mLaunch.reset();
        mInstallation = std::make_unique<Installation>();
        mLaunch = std::make_unique<Launch>(mInstallation->launcher());
        mLaunch->setVariable(text("ZORV_SESSION_PATH"), path("session"));
        mLaunch->setVariable(text("ZORV_HOST"), text("alpha"));
        mLaunch->setVariable(text("PELK_SESSION"), text("3"));
    }

    void restartProtocol()
    {
        start("--wait-file go");
        QVERIFY(helpersStarted(1));
        QVERIFY(exists("session/restart-supported") && !exists("session/restart-hold"));
        QCOMPARE(content("session/restart-supported"), QByteArray());

        // The first helper ends and the second is started; it ends at once, and the
        // launcher waits for the hold that it has left.
        QVERIFY(touch("session/restart") && touch("go"));
        QVERIFY(helpersStarted(2));
        QVERIFY(!exists("session/restart") && exists("session/restart-hold"));
        QCOMPARE(content("session/restart-hold"), QByteArray());

        // A request made during the hold counts when the hold is released.
        QVERIFY(touch("session/restart") && QFile::remove(path("session/restart-hold")));
        QVERIFY(helpersStarted(3));
        QVERIFY(QFile::remove(path("session/restart-hold")));
        QVERIFY(endsWith(0, ""));
        QVERIFY(helpersStarted(3));
        QVERIFY(exists("session/restart-supported"));
    }

    void holdIsADirectory()
    {
        QVERIFY(QDir().mkdir(path("session/restart-hold")) && touch("session/restart"));
        start("--exit 0");
        QVERIFY(helpersStarted(1));
        QVERIFY(exists("session/restart"));
        QVERIFY(QDir().rmdir(path("session/restart-hold")));
        QVERIFY(helpersStarted(2));
        QVERIFY(QFile::remove(path("session/restart-hold")));
        QVERIFY(endsWith(0, ""));
    }

    // A link that leads nowhere holds nothing and is not followed.
    void holdThatCannotBeMade()
    {
        QVERIFY(QFile::link(path("victim"), path("session/restart-hold")));
        QVERIFY(touch("session/restart"));
        start("--exit 0");
        QVERIFY(endsWith(0, "session/restart-hold: Too many levels of symbolic links\n"));
        QVERIFY(helpersStarted(1) && !exists("victim"));
    }

    void restartWithoutAHelper()
    {
        start("--wait-file go");
        QVERIFY(helpersStarted(1));
        QVERIFY(QFile::remove(mInstallation->helper()));
        QVERIFY(touch("session/restart") && touch("go"));
        QVERIFY(mLaunch->waitForEnd());
        QCOMPARE(mLaunch->status(), 1);
        const QByteArray errors = mLaunch->errors();
        QVERIFY2(errors.count('\n') == 1 && errors.endsWith("No such file or directory\n") &&
                     errors.startsWith(QFile::encodeName(mInstallation->helper()) + ": "),
                 errors);
    }

    void markerThatCannotBeMade()
    {
        mLaunch->setVariable(text("ZORV_SESSION_PATH"), path("missing"));
        start("--exit 0");
        QVERIFY(endsWith(0, "missing/restart-supported: No such file or directory\n"));
        QVERIFY(helpersStarted(1));
    }

    void noMarkerWithoutAValidSession()
    {
        // clang-format off
        const struct { const char* variable; const char* value; QList<QByteArray> arguments; QByteArray error; } rows[] = {
            {"ZORV_HOST", "", {}, ""},
            {"ZORV_PORT", "65536", {}, ""},
            {"X", "", {"--zorvport", "x", "program"}, "invalid --zorvport argument 'x'\n"},
            {"X", "", {"--zorvsession"}, "option '--zorvsession' requires an argument\n"},
        };
        // clang-format on
        for (const auto& row : rows) {
            init();
            QVERIFY(touch("session/restart"));
            mLaunch->setVariable(text(row.variable), text(row.value));
            mLaunch->setHelperActions(text("--append ") + path("pids"));
            mLaunch->run(row.arguments);
            const int status = row.error.isEmpty() ? 0 : 1;
            QCOMPARE(mLaunch->errors(), row.error);
            QCOMPARE(mLaunch->status(), status);
            // The request of a session that is not ours stays.
            QCOMPARE(QDir(path("session")).entryList(QDir::Files), list("restart"));
            QCOMPARE(lineCount("pids"), 1 - status);
        }
    }

    void logsToAFile()
    {
        const QString log = text("log-") + QHostInfo::localHostName() + text(".log");
        mLaunch->setVariable(text("TALVORA_MPIRUN_LOG"), path("log.log"));
        QVERIFY(QFile::remove(mInstallation->helper()));
        mLaunch->run();
        QCOMPARE(mLaunch->status(), 1);
        QCOMPARE(content(qPrintable(log)), mLaunch->errors());
        QVERIFY(mLaunch->errors().startsWith(QFile::encodeName(mInstallation->helper())));
    }

    void signals_data()
    {
        QTest::addColumn<int>("signo");
        QTest::addColumn<QString>("state");
        for (int signo : {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP}) {
            for (const char* state : {"no session", "session", "after a restart", "in the hold"}) {
                QTest::addRow("%d, %s", signo, state) << signo << text(state);
            }
        }
    }

    void signals()
    {
        QFETCH(int, signo);
        QFETCH(QString, state);
        const bool plain = state == text("no session");
        const bool restarted = state == text("after a restart");
        const bool held = state == text("in the hold");
        const int helpers = restarted || held ? 2 : 1;
        if (plain) {
            mLaunch->setVariable(text("ZORV_HOST"), text(""));
        }
        // In the hold both helpers end on their own, before a restart the first is ended.
        start(held ? "--wait-file go" : "--record-signal signal --append ready --sleep");
        const pid_t launcher = pid_t(mLaunch->process().processId());
        QVERIFY(held ? helpersStarted(1) : hasLines("ready", 1));
        if (helpers == 2) {
            QVERIFY(touch("session/restart") && touch("go"));
            QVERIFY(held || kill(content("pids").split('\n').value(0).toInt(), SIGKILL) == 0);
            QVERIFY(helpersStarted(2));
        }
        const QString children = text("/proc/%1/task/%1/children").arg(launcher);
        QVERIFY(held ? QTest::qWaitFor([&] { return readFile(children).isEmpty(); }, 30000)
                     : hasLines("ready", helpers));

        QCOMPARE(exists("session/restart-supported"), !plain);
        QVERIFY(kill(launcher, signo) == 0);
        QVERIFY(endsWith(-signo, ""));
        QVERIFY(!exists("session/restart-supported"));
        if (!held) {
            QVERIFY(QTest::qWaitFor([&] { return exists("signal"); }, 30000));
            QCOMPARE(content("signal"), QByteArray::number(signo));
        }
        QCOMPARE(lineCount("pids"), helpers);
    }

    // As nohup starts it: the launcher handles the signal all the same, the helper
    // goes on ignoring it.
    void signalIgnoredAtTheStart()
    {
        mLaunch->setBeforeExec([] { signal(SIGHUP, SIG_IGN); });
        start("--record-state state --wait-file go --append after");
        QVERIFY(helpersStarted(1) && QTest::qWaitFor([&] { return exists("state"); }, 30000));
        QVERIFY(content("state").contains("ignored 1\n"));
        QVERIFY(kill(static_cast<pid_t>(mLaunch->process().processId()), SIGHUP) == 0);
        QVERIFY(touch("go"));
        QVERIFY(endsWith(-SIGHUP, ""));
        QVERIFY(hasLines("after", 1));
        QVERIFY(!exists("session/restart-supported"));
    }

private:
    // Files are named relative to the installation.
    QString path(const char* name) const { return mInstallation->path(text(name)); }
    bool exists(const char* name) const { return QFile::exists(path(name)); }
    QByteArray content(const char* name) const { return readFile(path(name)); }
    int lineCount(const char* name) const { return int(content(name).count('\n')); }
    bool touch(const char* name) const { return QFile(path(name)).open(QIODevice::WriteOnly); }

    // Starts the launcher; its helper writes a line to "pids" at each start and
    // then does as it is told, in the installation.
    void start(const char* actions)
    {
        mLaunch->process().setWorkingDirectory(path(""));
        mLaunch->setHelperActions(text("--append pids ") + text(actions));
        mLaunch->start();
    }

    bool hasLines(const char* name, int count) const
    {
        return QTest::qWaitFor([&] { return lineCount(name) == count; }, 30000);
    }
    bool helpersStarted(int count) const { return hasLines("pids", count); }

    // Whether the launcher ends so; its message begins with the installation's path.
    bool endsWith(int status, const QByteArray& message)
    {
        const bool ended = mLaunch->waitForEnd();
        const QByteArray prefix = message.isEmpty() ? "" : QFile::encodeName(path("")) + '/';
        const bool asExpected =
            ended && mLaunch->status() == status && mLaunch->errors() == prefix + message;
        if (!asExpected) {
            qWarning("ended: %d, with %d: '%s'", ended, mLaunch->status(),
                     mLaunch->errors().data());
        }
        return asExpected;
    }

    std::unique_ptr<Installation> mInstallation;
    std::unique_ptr<Launch> mLaunch;
};

QTEST_GUILESS_MAIN(SessionTest)
#include "tst_session.moc"
