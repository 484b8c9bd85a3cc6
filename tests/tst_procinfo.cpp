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
    void list();
    void family();
    void zombie();
    void noSuchProcess();
};

void ProcInfoTest::list()
{
    const QList<int> all = ProcInfo::getList(0);
    QVERIFY(all.contains(getpid()) && all.contains(1));
    QStringList names;
    for (int pid : all) {
        names += QString::number(pid);
    }
    QStringList sorted = names;
    sorted.sort();
    QCOMPARE(names, sorted);
    QCOMPARE(ProcInfo::getList(-1).contains(1), true);
    // Nobody's: an id that no user has here.
    QCOMPARE(ProcInfo::getList(2123456789), QList<int>());
    if (getuid() > 0) {
        QVERIFY(ProcInfo::getList(static_cast<int>(getuid())).contains(getpid()));
    }
}

void ProcInfoTest::family()
{
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
    QVERIFY(!ProcInfo::getList(2123456789).contains(child));
    process.kill();
    QVERIFY(process.waitForFinished());
}

void ProcInfoTest::zombie()
{
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "PPid:\t1");
        _exit(0);
    }
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    QVERIFY(ProcInfo::exists(child));
    QVERIFY(!ProcInfo::alive(child));
    QCOMPARE(ProcInfo::getParent(child), getpid());
    QCOMPARE(ProcInfo::getName(child), QString());
    QCOMPARE(ProcInfo::getExe(child), QString());
    waitpid(child, nullptr, 0);
    QVERIFY(!ProcInfo::exists(child));
}

void ProcInfoTest::noSuchProcess()
{
    const int none = 2123456789;
    QVERIFY(!ProcInfo::exists(none) && !ProcInfo::alive(none));
    QCOMPARE(ProcInfo::getParent(none), -1);
    QVERIFY(ProcInfo::getName(none).isNull());
    QVERIFY(ProcInfo::getExe(none).isEmpty());
}

QTEST_GUILESS_MAIN(ProcInfoTest)
#include "tst_procinfo.moc"
