#include "common/compatibility_simple/network/localhost.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QMap>
#include <QSysInfo>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

// Settings without a prefix; options that are not as they are without arguments.
using Settings = QMap<QByteArray, QByteArray>;
using State = QVariantMap;

namespace {

const QStringList program = {u"program"_s};

State stateOf(const BackendOptions& options)
{
    State state = {
        {u"yourname"_s, options.getMyName()},
        {u"log"_s, options.getLogFileName()},
        {u"clientlog"_s, options.getClientLogFileName()},
        {u"shareddirectory"_s, options.getSharedDirectory()},
        {u"replay"_s, options.getReplayFileName()},
        {u"host"_s, options.frontendHostNamesAndAddresses()},
        {u"sessionfile"_s, options.sessionFileName()},
        {u"sessioncookie"_s, options.sessionCookie()},
        {u"tarball"_s, options.tarballFileName()},
        {u"session"_s, options.session()},
        {u"port"_s, options.port()},
        {u"debug"_s, options.isDebug()},
        {u"verbose"_s, options.isVerbose()},
        {u"root"_s, options.isRoot()},
        {u"progress"_s, options.isProgress()},
        {u"nosessioncookie"_s, options.isNoSessionCookie()},
        {u"waitfortopologyfile"_s, options.isWaitForTopologyFile()},
    };
    if (const auto* helper = dynamic_cast<const ZORVDebuggerOptions*>(&options)) {
        state[u"attach"_s] = helper->attachPid();
        state[u"count"_s] = helper->count();
        state[u"offset"_s] = helper->offset();
        state[u"explicittarget"_s] = helper->isExplicitTarget();
        state[u"manuallaunch"_s] = helper->isManualLaunch();
        state[u"mpirun"_s] = helper->isMpirun();
        state[u"forked"_s] = helper->isForked();
        state[u"ensureoneperhost"_s] = helper->ensureOnePerHost();
    }
    state.removeIf(
        [](State::iterator entry) { return entry.value() == QVariant(entry.value().metaType()); });
    return state;
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
            list({"-s", "f", "-host", "a,b", "--sessionfile", "f", "-sessioncookie", "c",
                  "--tarball", "f", "--session", "-7", "-port", "042", "-d", "-v", "--progress",
                  "--zorvnosessioncookie", "--zorvwaitfortopologyfile"});
        const QStringList travelling =
            list({"--zorvshareddirectory", "f", "--zorvhost", "a,b", "--zorvsessionfile", "f",
                  "--zorvsessioncookie", "c", "--zorvtarball", "f", "--zorvsession", "-7",
                  "--zorvport", "42", "--zorvdebug", "--zorvverbose", "--zorvprogress",
                  "--zorvnosessioncookie", "--zorvwaitfortopologyfile"});
        const State state = {{u"shareddirectory"_s, u"f"_s},
                             {u"host"_s, u"a,b"_s},
                             {u"sessionfile"_s, u"f"_s},
                             {u"sessioncookie"_s, u"c"_s},
                             {u"tarball"_s, u"f"_s},
                             {u"session"_s, -7},
                             {u"port"_s, 42},
                             {u"debug"_s, true},
                             {u"verbose"_s, true},
                             {u"progress"_s, true},
                             {u"nosessioncookie"_s, true},
                             {u"waitfortopologyfile"_s, true}};
        for (const QStringList& arguments : {given, travelling}) {
            BackendOptions options;
            QVERIFY(options.parse(program + arguments));
            QCOMPARE(options.backendArguments(true), travelling);
            QCOMPARE(stateOf(options), state);
            QCOMPARE(stateOf(options.selectiveCopy()), state);
        }
    }

    void otherOptionsStay()
    {
        BackendOptions options;
        QVERIFY(options.parse(
            program + list({"--log", "l", "-clientlog", "m", "-p", "p", "-r", "--yourname", "n"})));
        const State state = {{u"log"_s, u"l"_s},
                             {u"clientlog"_s, u"m"_s},
                             {u"replay"_s, u"p"_s},
                             {u"root"_s, true},
                             {u"yourname"_s, u"n"_s}};
        QCOMPARE(stateOf(options), state);
        QCOMPARE(stateOf(options.selectiveCopy()), State());
        QCOMPARE(options.backendArguments(false), QStringList());
        QCOMPARE(options.backendArguments(true), list({"--zorvyourname", "n"}));
    }

    void commandLineIsAccepted_data()
    {
        QTest::addColumn<Settings>("settings");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<State>("state");
        QTest::addColumn<QStringList>("target");
        const Settings none;
        QTest::newRow("options, then the target")
            << none
            << list({"--zorvcount", "3", "--zorvoffset", "-4", "--zorvmpirun",
                     "--zorvensureoneperhost", "-np", "a.out", "--zorvport", "1"})
            << State{{u"count"_s, 3},
                     {u"offset"_s, -4},
                     {u"mpirun"_s, true},
                     {u"ensureoneperhost"_s, true}}
            << list({"-np", "a.out", "--zorvport", "1"});
        QTest::newRow("two dashes are no option")
            << none << list({"--", "a.out"}) << State() << list({"--", "a.out"});
        QTest::newRow("explicit target") << none << list({"--zorvexplicittarget"})
                                         << State{{u"explicittarget"_s, true}} << QStringList();
        QTest::newRow("forked has a target")
            << none << list({"--zorvforked"})
            << State{{u"forked"_s, true}, {u"explicittarget"_s, true}} << QStringList();
        QTest::newRow("manual launch from here on")
            << none << list({"--zorvmanuallaunch", "-a", "5", "--", "-h"})
            << State{{u"attach"_s, 5}, {u"explicittarget"_s, true}, {u"manuallaunch"_s, true}}
            << list({"-h"});
        QTest::newRow("manual launch by a setting")
            << Settings{{"MANUAL_LAUNCH", ""}} << list({"-host", "--", "-attach", "5", "--"})
            << State{{u"host"_s, u"--"_s}, {u"attach"_s, 5}, {u"manuallaunch"_s, true}}
            << QStringList();
        QTest::newRow("DEBUG stands for both settings that are not set")
            << Settings{{"MANUAL_LAUNCH", "no"}, {"DEBUG", "0"}} << list({"-d"})
            << State{{u"debug"_s, true}, {u"verbose"_s, true}} << list({"-d"});
        QTest::newRow("debug by its own setting")
            << Settings{{"DEBUGGER_MULTIPLEXER_DEBUG", "0"}} << QStringList()
            << State{{u"debug"_s, true}} << QStringList();
        QTest::newRow("log files are not in a missing directory")
            << Settings{{"LOGS", "/none"}} << list({"--zorvlog", "elsewhere"}) << State()
            << QStringList();
    }

    void commandLineIsAccepted()
    {
        QFETCH(Settings, settings);
        QFETCH(QStringList, arguments);
        for (auto setting = settings.cbegin(); setting != settings.cend(); ++setting) {
            qputenv("ZORV_" + setting.key(), setting.value());
        }
        ZORVDebuggerOptions options;
        QVERIFY(options.parse(program + arguments));
        QTEST(stateOf(options), "state");
        QTEST(options.targetArguments(), "target");
    }

    // Whatever the options.
    void logFilesHaveTheNamesOfHostAndProcess()
    {
        const QString process =
            u"-%1-%2.log"_s.arg(QSysInfo::machineHostName(), QString::number(getpid()));
        setSetting("ZORV_LOGS", "/");
        ZORVDebuggerOptions options;
        QVERIFY(options.parse(program + list({"--zorvlog", "elsewhere"})));
        QCOMPARE(options.getLogFileName(), u"/zorv-debugger-multiplexer"_s + process);
        QCOMPARE(options.getClientLogFileName(), u"/zorv-debugger-multiplexer-client"_s + process);
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_LOG", "l.LOG");
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_CLIENT_LOG", "c.log.log");
        QTest::ignoreMessage(QtWarningMsg, "invalid --zorvport argument 'x'");
        QVERIFY(!options.parse(program + list({"--zorvroot", "--zorvport", "x"})));
        QCOMPARE(options.getLogFileName(), u"l.LOG-root"_s + process);
        QCOMPARE(options.getClientLogFileName(), u"c.log-root"_s + process);
    }

    void rejectedOptionIsNamedAndSetsNothing_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::newRow("no number") << u"--zorvport"_s << u"0x%1"_s;
        QTest::newRow("empty") << u"--zorvhost"_s << QString();
    }

    void rejectedOptionIsNamedAndSetsNothing()
    {
        QFETCH(QString, name);
        QFETCH(QString, value);
        const QString message = u"invalid %1 argument '%2'"_s.arg(name, value);
        QTest::ignoreMessage(QtWarningMsg, message.toLatin1().constData());
        ZORVDebuggerOptions options;
        QVERIFY(!options.parse(program + QStringList({name, value, u"-d"_s})));
        QCOMPARE(stateOf(options), State());
        QCOMPARE(options.targetArguments(), QStringList());
    }

    void argumentsThatAreNoOptionsAreRejectedWithoutATarget()
    {
        QTest::ignoreMessage(QtWarningMsg, "unrecognised argument '%1'");
        BackendOptions options;
        QVERIFY(!options.parse(program + list({"-d", "--", "%1", "x"})));
        QVERIFY(Options().parse({}));
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
