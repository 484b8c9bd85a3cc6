#include "common/ProcInfo.h"

#include <QTest>

#include <csignal>
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

    void describesThisProcessAndAChildUntilThatIsGone()
    {
        QCOMPARE(ProcInfo::getName(getpid()), QCoreApplication::arguments().first());
        QCOMPARE(ProcInfo::getExe(getpid()), QCoreApplication::applicationFilePath());
        QCOMPARE(ProcInfo::getChild(getpid()), -1);
        // The child inherits a name that looks like a line of the status file.
        prctl(PR_SET_NAME, "PPid:\t1");
        const pid_t pid = fork();
        if (pid == 0) {
            alarm(30);
            pause();
        }
        QCOMPARE(ProcInfo::getChild(getpid()), pid);
        QCOMPARE(ProcInfo::getParent(pid), getpid());
        QVERIFY(ProcInfo::alive(pid));

        kill(pid, SIGKILL);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
        QVERIFY(ProcInfo::exists(pid));
        QVERIFY(!ProcInfo::alive(pid));
        QCOMPARE(ProcInfo::getName(pid), u""_s);

        waitpid(pid, nullptr, 0);
        QVERIFY(!ProcInfo::exists(pid));
        QCOMPARE(ProcInfo::getParent(pid), -1);
        QVERIFY(ProcInfo::getName(pid).isNull());
    }
};

QTEST_GUILESS_MAIN(ProcInfoTest)
#include "tst_procinfo.moc"
