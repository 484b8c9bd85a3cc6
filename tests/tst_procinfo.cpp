// The process table, with real processes.

#include "common/ProcInfo.h"

#include <QProcess>
#include <QTest>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

class ProcInfoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void family()
    {
        const QList<int> all = ProcInfo::getList(0);
        QVERIFY(all.contains(getpid()) && all.contains(1) && ProcInfo::getList(-1).contains(1));
        QStringList names;
        for (int pid : all) {
            names += QString::number(pid);
        }
        QVERIFY(std::is_sorted(names.begin(), names.end()));
        if (getuid() > 0) {
            QVERIFY(ProcInfo::getList(static_cast<int>(getuid())).contains(getpid()));
        }

        QCOMPARE(ProcInfo::getChild(getpid()), -1);
        QProcess process;
        // A name that looks like what is read, with what else a name may have.
        process.setChildProcessModifier([] { prctl(PR_SET_NAME, "Uid: (Z )\n9"); });
        process.start(QStringLiteral(TESTCHILD), {QStringLiteral("--sleep")});
        QVERIFY(process.waitForStarted());
        const int child = static_cast<int>(process.processId());
        QCOMPARE(ProcInfo::getParent(child), getpid());
        QCOMPARE(ProcInfo::getChild(getpid()), child);
        QCOMPARE(ProcInfo::getName(child), QStringLiteral(TESTCHILD));
        QCOMPARE(ProcInfo::getExe(child), QStringLiteral(TESTCHILD));
        QVERIFY(ProcInfo::exists(child) && ProcInfo::alive(child));
        // Nobody's: an id that no user has here.
        QCOMPARE(ProcInfo::getList(2123456789), QList<int>());
        process.kill();
        QVERIFY(process.waitForFinished());
    }

    void zombieAndNone()
    {
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_NAME, "PPid:\t1");
            _exit(0);
        }
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
        QVERIFY(ProcInfo::exists(child) && !ProcInfo::alive(child));
        QCOMPARE(ProcInfo::getParent(child), getpid());
        QCOMPARE(ProcInfo::getName(child), QString());
        QCOMPARE(ProcInfo::getExe(child), QString());
        waitpid(child, nullptr, 0);
        QVERIFY(!ProcInfo::exists(child) && !ProcInfo::alive(child));
        QCOMPARE(ProcInfo::getParent(child), -1);
        QVERIFY(ProcInfo::getName(child).isNull() && ProcInfo::getExe(child).isEmpty());
    }
};

QTEST_GUILESS_MAIN(ProcInfoTest)
#include "tst_procinfo.moc"
