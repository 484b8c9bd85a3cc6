// The options of back-end programs and of the debugger helper.

#include "backend/backendoptions.h"
#include "common/compatibility_simple/localhost.h"
#include "common/env/zorvenv.h"
#include "common/logger.h"
#include "tests/support/installation.h"
#include "tests/support/network.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QHostInfo>
#include <QTest>

#include <string>

namespace {

QStringList messages;

// Parses back-end options in the mode that is asked for.
class Parsed : public BackendOptions
{
public:
    explicit Parsed(bool simple, const char* words)
    {
        setSimpleArguments(simple);
        accepted = parse(list("program") + text(words).split(QLatin1Char(' '), Qt::SkipEmptyParts));
    }
    bool accepted;
};

} // namespace

class BackendOptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void defaults();
    void spellings_data();
    void spellings();
    void values_data();
    void values();
    void names();
    void copies();
    void debuggerSpellings_data();
    void debuggerSpellings();
    void divides_data();
    void divides();
    void settings();
    void logFiles();
    void helpEndsTheLauncher_data();
    void helpEndsTheLauncher();
};

void BackendOptionsTest::initTestCase()
{
    Logger::installQtMsgHandler();
    Logger::addMsgHandler(
        [](QtMsgType, const char* message) { messages += QString::fromLocal8Bit(message); });
}

void BackendOptionsTest::init()
{
    messages.clear();
    for (const char* name : {"ZORV_SHARED_DIRECTORY", "ZORV_MANUAL_LAUNCH", "ZORV_DEBUG",
                             "ZORV_LOGS", "ZORV_DEBUGGER_MULTIPLEXER_VERBOSE"}) {
        qunsetenv(name);
    }
    discardEnvCache();
}

void BackendOptionsTest::defaults()
{
    qputenv("ZORV_SHARED_DIRECTORY", "/shared");
    const BackendOptions options;
    QVERIFY(options.isSimpleArguments());
    QVERIFY(options.getMyName().isNull());
    QCOMPARE(options.myNameWithFallback(), sc_hostname());
    QCOMPARE(options.myNamesAndAddresses(), localHostNamesAndAddresses());
    QCOMPARE(options.getSharedDirectory(), text("/shared"));
    QVERIFY(options.frontendHostNamesAndAddresses().isNull());
    QVERIFY(options.sessionCookie().isNull());
    QVERIFY(options.tarballFileName().isNull());
    QCOMPARE(options.session(), 0);
    QCOMPARE(options.port(), 0);
}

// Every spelling, by what it forwards or, where it forwards nothing, by the
// member that it sets.
void BackendOptionsTest::spellings_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<bool>("always");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QStringList>("forwarded");

    const char* const rows[][4] = {
        {"--zorvdebug", "-d -debug --debug", "", "--zorvdebug"},
        {"--zorvverbose", "-v -verbose --verbose", "", "--zorvverbose"},
        {"--zorvroot", "-r -root --root", "", ""},
        {"--zorvprogress", "-progress --progress", "", "--zorvprogress"},
        {"--zorvlog", "-log --log", "f", ""},
        {"--zorvclientlog", "-clientlog --clientlog", "f", ""},
        {"--zorvshareddirectory", "-s -shareddirectory --shareddirectory", "f",
         "--zorvshareddirectory f"},
        {"--zorvreplay", "-p -replay --replay", "f", ""},
        {"--zorvhost", "-zorvhost --host -host", "a,b", "--zorvhost a,b"},
        {"--zorvsessionfile", "-zorvsessionfile --sessionfile -sessionfile", "f",
         "--zorvsessionfile f"},
        {"--zorvsession", "-zorvsession --session -session", "007", "--zorvsession 7"},
        {"--zorvport", "-zorvport --port -port", "0042", "--zorvport 42"},
        {"--zorvsessioncookie", "-zorvsessioncookie --sessioncookie -sessioncookie", "c",
         "--zorvsessioncookie c"},
        {"--zorvtarball", "--tarball -tarball", "f", "--zorvtarball f"},
        {"--zorvnosessioncookie", "", "", "--zorvnosessioncookie"},
        {"--zorvwaitfortopologyfile", "", "", "--zorvwaitfortopologyfile"},
        {"--zorvyourname", "--yourname", "n", ""},
    };
    for (const auto& row : rows) {
        QTest::newRow(row[0]) << text(row[0]) << true << text(row[2]) << list(row[3]);
        for (const QString& name : list(row[1])) {
            QTest::newRow(qPrintable(name)) << name << false << text(row[2]) << list(row[3]);
        }
    }
}

void BackendOptionsTest::spellings()
{
    QFETCH(QString, option);
    QFETCH(bool, always);
    QFETCH(QString, value);
    const std::string words = (option + QLatin1Char(' ') + value).toStdString();
    const Parsed simple(true, words.c_str());
    QVERIFY(simple.accepted);
    QTEST(simple.backendArguments(false), "forwarded");

    const Parsed strict(false, words.c_str());
    QCOMPARE(strict.accepted, always);
    if (!always) {
        QCOMPARE(messages, QStringList(text("unrecognised argument '%1'").arg(option)));
    }
}

void BackendOptionsTest::values_data()
{
    QTest::addColumn<QString>("message");

    QTest::newRow("--zorvport abc") << text("invalid --zorvport argument 'abc'");
    QTest::newRow("--zorvport 99999999999") << text("invalid --zorvport argument '99999999999'");
    QTest::newRow("--zorvsession") << text("option '--zorvsession' requires an argument");
    QTest::newRow("--zorvlog") << text("option '--zorvlog' requires an argument");
    QTest::newRow("--zorvdebug x") << text("unrecognised argument 'x'");
    QTest::newRow("--zorvdebug --zorvDebug") << text("unrecognised argument '--zorvDebug'");
}

void BackendOptionsTest::values()
{
    const Parsed refused(true, QTest::currentDataTag());
    QVERIFY(!refused.accepted);
    QCOMPARE(refused.port(), 0);
    QFETCH(QString, message);
    QCOMPARE(messages, QStringList(message));

    messages.clear();
    BackendOptions empty;
    QVERIFY(!empty.parse({text("program"), text("--zorvlog"), text("")}));
    QCOMPARE(messages, QStringList(text("invalid --zorvlog argument ''")));
}

void BackendOptionsTest::names()
{
    const QStringList local = localHostNamesAndAddresses();
    const Parsed options(true,
                         "--yourname node1 --zorvdebug --yourname node2 --zorvport 1 --port 2");
    QCOMPARE(options.myNamesAndAddresses(), list("node2 node1") + local);
    QCOMPARE(options.myNameWithFallback(), text("node2"));
    QCOMPARE(options.backendArguments(false), list("--zorvdebug --zorvport 1 --zorvport 2"));
    QCOMPARE(options.backendArguments(true),
             list("--zorvdebug --zorvport 1 --zorvport 2 --zorvyourname node2"));
    const QByteArray again = "--yourname " + local.last().toLatin1();
    const Parsed known(true, again.constData());
    QCOMPARE(known.myNamesAndAddresses().count(local.last()), 1);
    QCOMPARE(known.myNamesAndAddresses().first(), local.last());
}

void BackendOptionsTest::copies()
{
    const Parsed options(true, "-d -v -r --progress --log l --clientlog c -s s -p r --host h "
                               "--sessionfile f --session 3 --port 4 --sessioncookie k --tarball t "
                               "--zorvnosessioncookie --zorvwaitfortopologyfile --yourname y");
    QVERIFY(options.accepted);
    const BackendOptions copy = options.selectiveCopy();
    QVERIFY(copy.isDebug() && copy.isVerbose() && copy.isProgress() && copy.isNoSessionCookie() &&
            copy.isWaitForTopologyFile());
    QCOMPARE(QStringList({copy.getSharedDirectory(), copy.frontendHostNamesAndAddresses(),
                          copy.sessionFileName(), copy.sessionCookie(), copy.tarballFileName()}),
             list("s h f k t"));
    QCOMPARE(copy.session(), 3);
    QCOMPARE(copy.port(), 4);
    QVERIFY(copy.getLogFileName().isNull() && copy.getClientLogFileName().isNull() &&
            copy.getReplayFileName().isNull() && copy.getMyName().isNull() && !copy.isRoot());
    QCOMPARE(copy.backendArguments(true), QStringList());
    QCOMPARE(ZORVDebuggerOptions(options).getReplayFileName(), text("r"));
}

void BackendOptionsTest::debuggerSpellings_data()
{
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QList<int>>("expected");

    // Attach, count, offset, explicit, manual, mpirun, forked, one per host.
    QTest::newRow("--zorvattach 12 --zorvcount 3 --zorvoffset -4")
        << true << QList<int>{12, 3, -4, 0, 0, 0, 0, 0};
    QTest::newRow("--zorvexplicittarget --zorvmpirun --zorvensureoneperhost")
        << true << QList<int>{0, 0, 0, 1, 0, 1, 0, 1};
    QTest::newRow("--zorvforked") << true << QList<int>{0, 0, 0, 1, 0, 0, 1, 0};
    QTest::newRow("--zorvmanuallaunch -attach 5") << true << QList<int>{5, 0, 0, 1, 1, 0, 0, 0};
    QTest::newRow("--zorvmanuallaunch -a 5 -- -h") << true << QList<int>{5, 0, 0, 1, 1, 0, 0, 0};
    QTest::newRow("-attach 5") << true << QList<int>{0, 0, 0, 0, 0, 0, 0, 0};
    QTest::newRow("--zorvattach x") << false << QList<int>{0, 0, 0, 0, 0, 0, 0, 0};
    QTest::newRow("--zorvcount") << false << QList<int>{0, 0, 0, 0, 0, 0, 0, 0};
}

void BackendOptionsTest::debuggerSpellings()
{
    ZORVDebuggerOptions options;
    const QStringList arguments = list("program") + list(QTest::currentDataTag());
    QTEST(options.parse(arguments), "accepted");
    const QList<int> found = {options.attachPid(),      options.count(),
                              options.offset(),         options.isExplicitTarget(),
                              options.isManualLaunch(), options.isMpirun(),
                              options.isForked(),       options.ensureOnePerHost()};
    QTEST(found, "expected");
    QCOMPARE(options.backendArguments(true), QStringList());
}

void BackendOptionsTest::divides_data()
{
    QTest::addColumn<int>("port");
    QTest::addColumn<QStringList>("target");

    QTest::newRow("--zorvport 4242 -np 2 a.out") << 4242 << list("-np 2 a.out");
    QTest::newRow("-np 2 a.out --zorvport 4242") << 0 << list("-np 2 a.out --zorvport 4242");
    QTest::newRow("-h") << 0 << list("-h");
    QTest::newRow("-- a.out") << 0 << list("-- a.out");
    QTest::newRow("") << 0 << QStringList();
}

void BackendOptionsTest::divides()
{
    ZORVDebuggerOptions options;
    QVERIFY(options.parse(list("program") + list(QTest::currentDataTag())));
    QTEST(options.port(), "port");
    QTEST(options.targetArguments(), "target");
    options.setTarget(text("other"));
    QCOMPARE(options.targetArguments(), list("other"));
}

void BackendOptionsTest::settings()
{
    qputenv("ZORV_DEBUG", "0");
    ZORVDebuggerOptions options;
    QVERIFY(options.parse(list("program")));
    QVERIFY(options.isDebug() && options.isVerbose() && !options.isManualLaunch());
    qunsetenv("ZORV_DEBUG");
    qputenv("ZORV_DEBUGGER_MULTIPLEXER_VERBOSE", "no");
    qputenv("ZORV_MANUAL_LAUNCH", "");
    discardEnvCache();
    QVERIFY(options.parse(list("program -port 7 x")));
    QVERIFY(!options.isDebug() && options.isVerbose() && options.isManualLaunch());
    QCOMPARE(options.port(), 7);
}

void BackendOptionsTest::logFiles()
{
    const QTemporaryDir dir;
    qputenv("ZORV_LOGS", dir.path().toLocal8Bit());
    const QString ending = QStringLiteral("-%1-%2.log")
                               .arg(QHostInfo::localHostName())
                               .arg(QCoreApplication::applicationPid());
    const QString stem = dir.filePath(text("zorv-debugger-multiplexer"));
    ZORVDebuggerOptions options;
    QVERIFY(options.parse(list("program --zorvlog elsewhere")));
    QCOMPARE(options.getLogFileName(), stem + ending);
    QCOMPARE(options.getClientLogFileName(), stem + text("-client") + ending);
    QVERIFY(!options.parse(list("program --zorvroot --zorvport x")));
    QCOMPARE(options.getLogFileName(), stem + text("-root") + ending);
}

void BackendOptionsTest::helpEndsTheLauncher_data()
{
    QTest::addColumn<QList<QByteArray>>("arguments");
    QTest::addColumn<bool>("manual");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("output");

    const QByteArray usage =
        "Usage: zorv-client [OPTION]... [PROGRAM] [ARGUMENTS]...\n"
        "Helper daemon for manual launch mode. Note that this is not the remote client.\n"
        "Use \"kinnet\", \"zorv\", or \"pelk\" and use the \"Remote Launch\" box to connect to "
        "remote "
        "systems.\n"
        "For instructions on when to use this helper daemon see the\n"
        "\"Manual Launching of Multi-Process Non-MPI programs\" section in the userguide.\n\n"
        "  -host HOSTNAME         host name to connect to\n"
        "  -session SESSION       session to connect to\n"
        "  -attach PID            process id to attach to\n\n"
        "The TALVORA_HOST and TALVORA_SESSION environment variables may also be used\n"
        "to specify a host name and session if not supplied on the command line.\n"
        "If no host name is specified it will be read from ~/.talvora/session/latest\n"
        "which is automatically created by the front end.\n\n";
    QTest::newRow("help word") << QList<QByteArray>{"-h"} << true << 0 << usage;
    QTest::newRow("mode alone") << QList<QByteArray>{"--zorvmanuallaunch"} << false << 1 << usage;
    QTest::newRow("mode alone, in place of the MPI launcher")
        << QList<QByteArray>{"--zorvmpirun", "--zorvmanuallaunch"} << false << 1
        << QByteArray("zorv-mpirun [TOOL ARGUMENTS]... [MPIRUN ARGUMENTS]...\n\n");
}

void BackendOptionsTest::helpEndsTheLauncher()
{
    QFETCH(QList<QByteArray>, arguments);
    QFETCH(bool, manual);
    const Installation installation;
    Launch launch(installation.launcher());
    launch.setHelperActions(text("--append ") + installation.path(text("started")));
    if (manual) {
        launch.setVariable(text("ZORV_MANUAL_LAUNCH"), text("yes"));
    }
    launch.run(arguments);
    QTEST(launch.status(), "status");
    QTEST(launch.output(), "output");
    QCOMPARE(launch.errors(), QByteArray());
    QVERIFY(!QFile::exists(installation.path(text("started"))));
}

QTEST_GUILESS_MAIN(BackendOptionsTest)
#include "tst_backendoptions.moc"
