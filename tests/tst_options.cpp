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
        const QStringList given =
            list({"-s", "f", "-host", "a,b", "--sessionfile", "g", "-sessioncookie", "c",
                  "--tarball", "t", "--session", "-7", "-port", "042", "-d", "-v", "--progress",
                  "--zorvnosessioncookie", "--zorvwaitfortopologyfile"});
        const QStringList travelling =
            list({"--zorvshareddirectory", "f", "--zorvhost", "a,b", "--zorvsessionfile", "g",
                  "--zorvsessioncookie", "c", "--zorvtarball", "t", "--zorvsession", "-7",
                  "--zorvport", "42", "--zorvdebug", "--zorvverbose", "--zorvprogress",
                  "--zorvnosessioncookie", "--zorvwaitfortopologyfile"});
        for (const QStringList& arguments : {given, travelling}) {
            BackendOptions all;
            QVERIFY(all.parse(program + arguments));
            QCOMPARE(all.backendArguments(true), travelling);
            for (const BackendOptions& options : {all, all.selectiveCopy()}) {
                QCOMPARE(options.getSharedDirectory(), u"f"_s);
                QCOMPARE(options.frontendHostNamesAndAddresses(), u"a,b"_s);
                QCOMPARE(options.sessionFileName(), u"g"_s);
                QCOMPARE(options.sessionCookie(), u"c"_s);
                QCOMPARE(options.tarballFileName(), u"t"_s);
                QCOMPARE(options.session(), -7);
                QCOMPARE(options.port(), 42);
                QVERIFY(options.isDebug());
                QVERIFY(options.isVerbose());
                QVERIFY(options.isProgress());
                QVERIFY(options.isNoSessionCookie());
                QVERIFY(options.isWaitForTopologyFile());
            }
        }
    }

    void otherOptionsStay()
    {
        BackendOptions options;
        QVERIFY(options.parse(
            program + list({"--log", "l", "-clientlog", "m", "-p", "p", "-r", "--yourname", "n"})));
        QCOMPARE(options.getLogFileName(), u"l"_s);
        QCOMPARE(options.getClientLogFileName(), u"m"_s);
        QCOMPARE(options.getReplayFileName(), u"p"_s);
        QCOMPARE(options.getMyName(), u"n"_s);
        QVERIFY(options.isRoot());
        const BackendOptions copy = options.selectiveCopy();
        QVERIFY(copy.getLogFileName().isNull() && copy.getClientLogFileName().isNull());
        QVERIFY(copy.getReplayFileName().isNull() && copy.getMyName().isNull() && !copy.isRoot());
        QCOMPARE(options.backendArguments(false), QStringList());
        QCOMPARE(options.backendArguments(true), list({"--zorvyourname", "n"}));
    }

    void nothingIsSetWithoutOptions()
    {
        const ZORVDebuggerOptions options = parsed({});
        QVERIFY(options.count() == 0 && options.offset() == 0 && options.attachPid() == 0);
        QVERIFY(!options.ensureOnePerHost() && !options.isWaitForTopologyFile());
    }

    void targetBeginsAtTheFirstWordThatIsNoOption()
    {
        const ZORVDebuggerOptions options =
            parsed(list({"--zorvcount", "3", "--zorvoffset", "-4", "--zorvmpirun",
                         "--zorvensureoneperhost", "-np", "a.out", "--zorvport", "1"}));
        QCOMPARE(options.count(), 3);
        QCOMPARE(options.offset(), -4);
        QVERIFY(options.isMpirun() && options.ensureOnePerHost() && !options.isExplicitTarget());
        QCOMPARE(options.port(), 0);
        QCOMPARE(options.targetArguments(), list({"-np", "a.out", "--zorvport", "1"}));
        QCOMPARE(parsed(list({"--", "a.out"})).targetArguments(), list({"--", "a.out"}));
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
        QCOMPARE(options.attachPid(), 5);
        QCOMPARE(options.targetArguments(), list({"-h"}));
    }

    void manualLaunchByASetting()
    {
        setSetting("ZORV_MANUAL_LAUNCH", "");
        const ZORVDebuggerOptions options =
            parsed(list({"-host", "--", "-attach", "5", "--", "-np"}));
        QVERIFY(options.isManualLaunch() && !options.isExplicitTarget());
        QCOMPARE(options.frontendHostNamesAndAddresses(), u"--"_s);
        QCOMPARE(options.attachPid(), 5);
        QCOMPARE(options.targetArguments(), list({"-np"}));
    }

    void debugSettingStandsForTwoThatAreNotSet()
    {
        setSetting("ZORV_MANUAL_LAUNCH", "no");
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_DEBUG", "0");
        QVERIFY(parsed({}).isDebug() && !parsed({}).isVerbose());
        clearSettings();
        setSetting("ZORV_DEBUG", "0");
        QVERIFY(parsed({}).isDebug() && parsed({}).isVerbose());
        QCOMPARE(parsed(list({"-d"})).targetArguments(), list({"-d"}));
    }

    // Whatever the options.
    void logFilesHaveTheNamesOfHostAndProcess()
    {
        const QString process =
            u"-%1-%2.log"_s.arg(QSysInfo::machineHostName(), QString::number(getpid()));
        setSetting("ZORV_LOGS", "/none");
        QCOMPARE(parsed(list({"--zorvlog", "elsewhere"})).getLogFileName(), QString());
        setSetting("ZORV_LOGS", "/");
        ZORVDebuggerOptions options = parsed(list({"--zorvlog", "elsewhere"}));
        QCOMPARE(options.getLogFileName(), u"/zorv-debugger-multiplexer"_s + process);
        QCOMPARE(options.getClientLogFileName(), u"/zorv-debugger-multiplexer-client"_s + process);
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_LOG", "l.LOG");
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_CLIENT_LOG", "c.log.log");
        QTest::ignoreMessage(QtWarningMsg, "invalid --zorvport argument 'x'");
        QVERIFY(!options.parse(program + list({"--zorvroot", "--zorvport", "x"})));
        QCOMPARE(options.getLogFileName(), u"l.LOG-root"_s + process);
        QCOMPARE(options.getClientLogFileName(), u"c.log-root"_s + process);
    }

    void rejectedOptionIsNamedAndSetsNothing()
    {
        ZORVDebuggerOptions options;
        QTest::ignoreMessage(QtWarningMsg, "invalid --zorvport argument '0x%1'");
        QVERIFY(!options.parse(program + list({"--zorvport", "0x%1", "-d"})));
        QVERIFY(options.port() == 0 && !options.isDebug());
        QCOMPARE(options.targetArguments(), QStringList());
        QTest::ignoreMessage(QtWarningMsg, "invalid --zorvhost argument ''");
        QVERIFY(!options.parse(program + list({"--zorvhost", ""})));
    }

    void argumentsThatAreNoOptionsAreRejectedWithoutATarget()
    {
        QTest::ignoreMessage(QtWarningMsg, "unrecognised argument '%1'");
        BackendOptions options;
        QVERIFY(!options.parse(program + list({"-d", "--", "%1", "x"})));
    }

    void givenNamesComeFirst()
    {
        const QStringList local = localHostNamesAndAddresses();
        BackendOptions options;
        QVERIFY(options.parse(program + list({"--yourname"}) + QStringList(local.last()) +
                              list({"--yourname", "b", "--yourname", "a"})));
        QCOMPARE(options.myNamesAndAddresses(),
                 list({"a", "b"}) + QStringList(local.last()) + local.mid(0, local.size() - 1));
    }
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "tst_options.moc"
