#include "common/compatibility_simple/network/localhost.h"
#include "tests/support/helpers.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QSysInfo>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QStringList program = {u"program"_s};

ZORVDebuggerOptions parsed(const QStringList& arguments)
{
    ZORVDebuggerOptions options;
    [&] { QVERIFY(options.parse(program + arguments)); }();
    return options;
}

} // namespace

class OptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings(); }

    void sessionOptionsTravelInTheirFirstSpelling()
    {
        BackendOptions all;
        QVERIFY(all.parse(
            program + list({"-s", "f", "-host", "a,b", "--sessionfile", "g", "-sessioncookie", "c",
                            "--tarball", "t", "--session", "-7", "-port", "042", "-d", "-v",
                            "--progress", "--zorvnosessioncookie", "--zorvwaitfortopologyfile"})));
        QCOMPARE(all.backendArguments(true),
                 list({"--zorvshareddirectory", "f", "--zorvhost", "a,b", "--zorvsessionfile", "g",
                       "--zorvsessioncookie", "c", "--zorvtarball", "t", "--zorvsession", "-7",
                       "--zorvport", "42", "--zorvdebug", "--zorvverbose", "--zorvprogress",
                       "--zorvnosessioncookie", "--zorvwaitfortopologyfile"}));
        const BackendOptions copy = all.selectiveCopy();
        QCOMPARE(copy.getSharedDirectory(), u"f"_s);
        QCOMPARE(copy.frontendHostNamesAndAddresses(), u"a,b"_s);
        QCOMPARE(copy.sessionFileName(), u"g"_s);
        QCOMPARE(copy.sessionCookie(), u"c"_s);
        QCOMPARE(copy.tarballFileName(), u"t"_s);
        QCOMPARE(copy.session(), -7);
        QCOMPARE(copy.port(), 42);
        QVERIFY(copy.isDebug());
        QVERIFY(copy.isVerbose());
        QVERIFY(copy.isProgress());
        QVERIFY(copy.isNoSessionCookie());
        QVERIFY(copy.isWaitForTopologyFile());
    }

    void otherOptionsStay()
    {
        BackendOptions options;
        QVERIFY(options.parse(
            program + list({"--log", "l", "-clientlog", "m", "-p", "p", "--yourname", "n"})));
        QCOMPARE(options.getLogFileName(), u"l"_s);
        QCOMPARE(options.getClientLogFileName(), u"m"_s);
        QCOMPARE(options.getReplayFileName(), u"p"_s);
        QCOMPARE(options.getMyName(), u"n"_s);
        const BackendOptions copy = options.selectiveCopy();
        QVERIFY(copy.getLogFileName().isNull() && copy.getClientLogFileName().isNull());
        QVERIFY(copy.getReplayFileName().isNull() && copy.getMyName().isNull());
        QCOMPARE(options.backendArguments(false), QStringList());
        QCOMPARE(options.backendArguments(true), list({"--zorvyourname", "n"}));
    }

    void targetBeginsAtTheFirstWordThatIsNoOption()
    {
        const ZORVDebuggerOptions options =
            parsed(list({"--zorvcount", "3", "--zorvoffset", "-4", "--zorvmpirun",
                         "--zorvensureoneperhost", "-np", "a.out", "--zorvport", "1"}));
        QCOMPARE(options.count(), 3);
        QCOMPARE(options.offset(), -4);
        QVERIFY(options.isMpirun() && options.ensureOnePerHost() && !options.isExplicitTarget());
        QVERIFY(!parsed({}).ensureOnePerHost());
        QCOMPARE(options.targetArguments(), list({"-np", "a.out", "--zorvport", "1"}));
        // Options of manual-launch mode alone.
        for (const QStringList& target : {list({"--", "a.out"}), list({"-d"})}) {
            QCOMPARE(parsed(target).targetArguments(), target);
        }
    }

    void explicitTarget()
    {
        QVERIFY(parsed(list({"--zorvexplicittarget"})).isExplicitTarget());
        const ZORVDebuggerOptions forked = parsed(list({"--zorvforked"}));
        QVERIFY(forked.isForked() && forked.isExplicitTarget());
    }

    void manualLaunchFromTheOptionOn()
    {
        const ZORVDebuggerOptions options =
            parsed(list({"--zorvmanuallaunch", "-a", "5", "--", "-h"}));
        QVERIFY(options.isManualLaunch() && options.isExplicitTarget());
        QCOMPARE(options.targetArguments(), list({"-h"}));
    }

    void manualLaunchByASetting()
    {
        setSetting("ZORV_MANUAL_LAUNCH", "");
        const ZORVDebuggerOptions options = parsed(list({"-attach", "5", "--", "-np"}));
        QVERIFY(options.isManualLaunch() && !options.isExplicitTarget());
        QCOMPARE(options.attachPid(), 5);
        QCOMPARE(options.targetArguments(), list({"-np"}));
    }

    void debugSettingStandsForTwoThatAreNotSet()
    {
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_DEBUG", "0");
        QVERIFY(parsed({}).isDebug() && !parsed({}).isVerbose());
        clearSettings();
        setSetting("ZORV_DEBUG", "0");
        QVERIFY(parsed({}).isDebug() && parsed({}).isVerbose());
    }

    // Whatever the options.
    void logFilesHaveTheNamesOfHostAndProcess()
    {
        const QString process =
            u"-%1-%2.log"_s.arg(QSysInfo::machineHostName(), QString::number(getpid()));
        setSetting("ZORV_LOGS", "/");
        const ZORVDebuggerOptions inLogs = parsed(list({"--zorvlog", "elsewhere"}));
        QCOMPARE(inLogs.getLogFileName(), u"/zorv-debugger-multiplexer"_s + process);
        QCOMPARE(inLogs.getClientLogFileName(), u"/zorv-debugger-multiplexer-client"_s + process);
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_LOG", "l.LOG");
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_CLIENT_LOG", "c.log.log");
        const ZORVDebuggerOptions root = parsed(list({"--zorvroot"}));
        QCOMPARE(root.getLogFileName(), u"l.LOG-root"_s + process);
        QCOMPARE(root.getClientLogFileName(), u"c.log-root"_s + process);
    }

    void rejectedArgumentIsNamed()
    {
        BackendOptions options;
        QTest::ignoreMessage(QtWarningMsg, "invalid --zorvport argument '0x%1'");
        QVERIFY(!options.parse(program + list({"--zorvport", "0x%1"})));
        QTest::ignoreMessage(QtWarningMsg, "invalid --zorvhost argument ''");
        QVERIFY(!options.parse(program + list({"--zorvhost", ""})));
        // This parser has no target.
        QTest::ignoreMessage(QtWarningMsg, "unrecognised argument '%1'");
        QVERIFY(!options.parse(program + list({"-d", "--", "%1", "x"})));
    }

    void givenNamesComeFirst()
    {
        const ZORVDebuggerOptions options =
            parsed(list({"--zorvyourname", "b", "--zorvyourname", "a"}));
        QCOMPARE(options.myNamesAndAddresses(), list({"a", "b"}) + localHostNamesAndAddresses());
    }
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "tst_options.moc"
