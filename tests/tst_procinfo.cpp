#include "common/ProcInfo.h"

#include <QProcess>
#include <QTest>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class ProcInfoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsTheProcessesOfAUser()
    {
        QVERIFY(ProcInfo::getList(0).contains(1));
        QVERIFY(ProcInfo::getList(static_cast<int>(getuid())).contains(getpid()));
        // An id that no user has here.
        QCOMPARE(ProcInfo::getList(2123456789), QList<int>());
    }

    void describesARunningChild()
    {
        QCOMPARE(ProcInfo::getChild(getpid()), -1);
        QProcess process;
        process.start(u"" TESTCHILD ""_s, {u"--sleep"_s});
        QVERIFY(process.waitForStarted());
        const int pid = ProcInfo::getChild(getpid());
        QCOMPARE(pid, process.processId());
        QCOMPARE(ProcInfo::getParent(pid), getpid());
        QCOMPARE(ProcInfo::getName(pid), u"" TESTCHILD ""_s);
        QCOMPARE(ProcInfo::getExe(pid), u"" TESTCHILD ""_s);
        QVERIFY(ProcInfo::exists(pid));
        QVERIFY(ProcInfo::alive(pid));
        process.close();
    }

    void zombieExistsAndIsNotAlive()
    {
        const pid_t pid = fork();
        if (pid == 0) {
            // A name that looks like a line of the status file.
            prctl(PR_SET_NAME, "PPid:\t1");
            _exit(0);
        }
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
        QVERIFY(ProcInfo::exists(pid));
        QVERIFY(!ProcInfo::alive(pid));
        QCOMPARE(ProcInfo::getParent(pid), getpid());
        QCOMPARE(ProcInfo::getName(pid), u""_s);
        waitpid(pid, nullptr, 0);
        QVERIFY(!ProcInfo::exists(pid));
        QVERIFY(!ProcInfo::alive(pid));
        QCOMPARE(ProcInfo::getParent(pid), -1);
        QVERIFY(ProcInfo::getName(pid).isNull());
    }
};

QTEST_GUILESS_MAIN(ProcInfoTest)
#include "tst_procinfo.moc"
