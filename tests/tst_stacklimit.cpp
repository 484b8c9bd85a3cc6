// The stack limit that the launcher runs under and the one that its helper gets.

#include "tests/support/installation.h"
#include "tests/support/network.h"

#include <QFile>
#include <QTest>

#include <sys/resource.h>

namespace {

constexpr rlim_t mebibyte = 1024 * 1024;

// What the helper found, as lines.
QStringList stateOfHelper(Launch& launch, const Installation& installation)
{
    const QString file = installation.path(text("state"));
    launch.setHelperActions(text("--record-state ") + file);
    launch.run();
    QFile state(file);
    if (!state.open(QIODevice::ReadOnly)) {
        return QStringList();
    }
    return QString::fromLocal8Bit(state.readAll()).split(QLatin1Char('\n'));
}

void setLimits(rlim_t soft, rlim_t hard)
{
    const rlimit limits = {soft, hard};
    setrlimit(RLIMIT_STACK, &limits);
}

} // namespace

class StackLimitTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void helperGetsTheUsersLimit_data();
    void helperGetsTheUsersLimit();
    void limitThatCannotBeRaised();
    void rememberedLimit_data();
    void rememberedLimit();
};

// The process is replaced when it is seen to execute itself a second time.
void StackLimitTest::helperGetsTheUsersLimit_data()
{
    QTest::addColumn<rlim_t>("soft");
    QTest::addColumn<QString>("ignore");
    QTest::addColumn<bool>("replaced");

    QTest::newRow("512 KiB") << mebibyte / 2 << QString() << true;
    QTest::newRow("4 MiB") << 4 * mebibyte << QString() << true;
    QTest::newRow("just below 8 MiB") << 8 * mebibyte - 1 << QString() << true;
    QTest::newRow("8 MiB") << 8 * mebibyte << QString() << false;
    QTest::newRow("64 MiB") << 64 * mebibyte << QString() << false;
    QTest::newRow("just above 64 MiB") << 64 * mebibyte + 1 << QString() << true;
    QTest::newRow("128 MiB") << 128 * mebibyte << QString() << true;
    QTest::newRow("unlimited") << rlim_t(RLIM_INFINITY) << QString() << false;
    QTest::newRow("4 MiB, ignored") << 4 * mebibyte << text("") << false;
    QTest::newRow("4 MiB, not ignored") << 4 * mebibyte << text("Off") << true;
}

void StackLimitTest::helperGetsTheUsersLimit()
{
    QFETCH(rlim_t, soft);
    QFETCH(QString, ignore);
    QFETCH(bool, replaced);
    rlimit own;
    getrlimit(RLIMIT_STACK, &own);
    if (own.rlim_max != RLIM_INFINITY && soft > own.rlim_max) {
        QSKIP("The hard limit is below this");
    }
    const Installation installation;
    const QString trace = installation.path(text("trace"));
    Launch launch(text("/usr/bin/strace"));
    launch.setBeforeExec([&] { setLimits(soft, own.rlim_max); });
    if (!ignore.isNull()) {
        launch.setVariable(text("ZORV_IGNORE_STACK_LIMIT"), ignore);
    }
    launch.setHelperActions(text("--record-state ") + installation.path(text("state")));
    launch.run({"-e", "trace=execve", "-o", QFile::encodeName(trace),
                QFile::encodeName(installation.launcher()), "argument"});
    QCOMPARE(launch.errors(), QByteArray());

    QFile state(installation.path(text("state")));
    QVERIFY(state.open(QIODevice::ReadOnly));
    const QString found = QString::fromLocal8Bit(state.readAll());
    QVERIFY(found.contains(text("\nstack %1\n").arg(soft)));
    QVERIFY(!found.contains(text("OLD_STACK_LIMIT")));
    QFile executions(trace);
    QVERIFY(executions.open(QIODevice::ReadOnly));
    QCOMPARE(executions.readAll().count("execve("), replaced ? 2 : 1);
}

void StackLimitTest::limitThatCannotBeRaised()
{
    const Installation installation;
    Launch launch(installation.launcher());
    launch.setBeforeExec([] { setLimits(4 * mebibyte, 10 * mebibyte); });
    const QStringList state = stateOfHelper(launch, installation);
    QCOMPARE(launch.errors(), QByteArray("setrlimit: Invalid argument\n"));
    QVERIFY(state.contains(text("stack 4194304")));
    QVERIFY(state.contains(text("variable TALVORA_OLD_STACK_LIMIT=4194304")));
}

void StackLimitTest::rememberedLimit_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<rlim_t>("expected");

    const rlim_t own = 8 * mebibyte;
    QTest::newRow("number") << text("4194304") << 4 * mebibyte;
    QTest::newRow("leading zeros") << text("0004194304") << 4 * mebibyte;
    for (const char* value :
         {"", "-1", "+4194304", " 4194304", "4194304k", "0x400000", "99999999999999999999"}) {
        QTest::newRow(*value ? value : "empty") << text(value) << own;
    }
}

void StackLimitTest::rememberedLimit()
{
    QFETCH(QString, value);
    QFETCH(rlim_t, expected);
    const Installation installation;
    Launch launch(installation.launcher());
    launch.setBeforeExec([] { setLimits(8 * mebibyte, RLIM_INFINITY); });
    launch.setVariable(text("TALVORA_OLD_STACK_LIMIT"), value);
    const QStringList state = stateOfHelper(launch, installation);
    QCOMPARE(launch.errors(), QByteArray());
    QVERIFY(state.contains(text("stack %1").arg(expected)));
    QVERIFY(state.filter(text("OLD_STACK_LIMIT")).isEmpty());
}

QTEST_GUILESS_MAIN(StackLimitTest)
#include "tst_stacklimit.moc"
