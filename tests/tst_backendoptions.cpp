// The options of back-end programs and of the debugger helper.

#include "backend/backendoptions.h"
#include "common/compatibility_simple/localhost.h"
#include "common/logger.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QHostInfo>
#include <QTemporaryDir>
#include <QTest>

namespace {

QStringList messages;

// Parses back-end options in the mode that is asked for.
class Parsed : public BackendOptions
{
public:
    Parsed(bool simple, const QStringList& arguments)
    {
        setSimpleArguments(simple);
        accepted = parse(list("program") + arguments);
    }
    bool accepted;
};

} // namespace

class BackendOptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        Logger::installQtMsgHandler();
        Logger::addMsgHandler(
            [](QtMsgType, const char* message) { messages += QString::fromLocal8Bit(message); });
    }

    void init()
    {
        messages.clear();
        clearSettings({"SHARED_DIRECTORY", "MANUAL_LAUNCH", "DEBUG", "LOGS",
                       "DEBUGGER_MULTIPLEXER_VERBOSE", "DEBUGGER_MULTIPLEXER_DEBUG"});
    }

    // All spellings, and what is forwarded of them.
    void spellings()
    {
        const QStringList spellings = list(
            "-d -debug --debug -v -verbose --verbose -r -root --root -progress --progress "
            "-log=f --log=f -clientlog=f --clientlog=f -p=f -replay=f --replay=f "
            "-s=f -shareddirectory=f --shareddirectory=f -zorvhost=a,b --host=a,b -host=a,b "
            "-zorvsessionfile=f --sessionfile=f -sessionfile=f -zorvsession=007 --session=7 "
            "-session=7 -zorvport=0042 --port=42 -port=42 -zorvsessioncookie=c --sessioncookie=c "
            "-sessioncookie=c --tarball=f -tarball=f --yourname=n");
        QStringList forwarded;
        for (const QString& spelling : spellings) {
            const QStringList arguments = spelling.split(QLatin1Char('='));
            const Parsed simple(true, arguments);
            QVERIFY2(simple.accepted, qPrintable(spelling));
            forwarded += simple.backendArguments(false);
            // Where options may be the target's, these are not ours.
            messages.clear();
            QVERIFY2(!Parsed(false, arguments).accepted, qPrintable(spelling));
            QCOMPARE(messages,
                     QStringList(text("unrecognised argument '%1'").arg(arguments.first())));
        }
        const QStringList always =
            list("--zorvdebug --zorvverbose --zorvprogress --zorvshareddirectory f --zorvhost a,b "
                 "--zorvsessionfile f --zorvsession 7 --zorvport 42 --zorvsessioncookie c "
                 "--zorvtarball f --zorvnosessioncookie --zorvwaitfortopologyfile");
        const QStringList notForwarded =
            list("--zorvroot --zorvlog f --zorvclientlog f --zorvreplay f --zorvyourname n");
        const Parsed strict(false, always + notForwarded);
        QVERIFY(strict.accepted);
        QCOMPARE(strict.backendArguments(false), always);
        forwarded.removeDuplicates();
        QStringList expected = always.mid(0, always.size() - 2);
        expected.removeDuplicates();
        QCOMPARE(forwarded, expected);
    }

    void refuses()
    {
        const char* const rows[][2] = {
            {"--zorvport abc", "invalid --zorvport argument 'abc'"},
            {"--zorvport 99999999999", "invalid --zorvport argument '99999999999'"},
            {"--zorvsession", "option '--zorvsession' requires an argument"},
            {"--zorvlog", "option '--zorvlog' requires an argument"},
            {"--zorvdebug x", "unrecognised argument 'x'"},
            {"--zorvdebug --zorvDebug", "unrecognised argument '--zorvDebug'"},
        };
        for (const auto& [arguments, message] : rows) {
            messages.clear();
            QVERIFY2(!Parsed(true, list(arguments)).accepted, arguments);
            QCOMPARE(messages, QStringList(text(message)));
        }
        messages.clear();
        QVERIFY(!Parsed(true, {text("--zorvlog"), text("")}).accepted);
        QCOMPARE(messages, QStringList(text("invalid --zorvlog argument ''")));
    }

    void names()
    {
        const QStringList local = localHostNamesAndAddresses();
        QCOMPARE(BackendOptions().myNameWithFallback(), sc_hostname());
        QCOMPARE(BackendOptions().myNamesAndAddresses(), local);
        const Parsed options(
            true, list("--yourname node1 --zorvdebug --yourname node2 --zorvport 1 --port 2"));
        QCOMPARE(options.myNamesAndAddresses(), list("node2 node1") + local);
        QCOMPARE(options.myNameWithFallback(), text("node2"));
        const QStringList forwarded = list("--zorvdebug --zorvport 1 --zorvport 2");
        QCOMPARE(options.backendArguments(false), forwarded);
        QCOMPARE(options.backendArguments(true), forwarded + list("--zorvyourname node2"));
        const Parsed known(true, {text("--yourname"), local.last()});
        QCOMPARE(known.myNamesAndAddresses().count(local.last()), 1);
        QCOMPARE(known.myNamesAndAddresses().first(), local.last());
    }

    void copies()
    {
        setSetting("ZORV_SHARED_DIRECTORY", "/shared");
        QCOMPARE(BackendOptions().getSharedDirectory(), text("/shared"));
        const Parsed options(
            true, list("-d -v -r --progress --log l --clientlog c -s s -p r --host h "
                       "--sessionfile f --session 3 --port 4 --sessioncookie k --tarball t "
                       "--zorvnosessioncookie --zorvwaitfortopologyfile --yourname y"));
        QVERIFY(options.accepted);
        const BackendOptions copy = options.selectiveCopy();
        QVERIFY(copy.isDebug() && copy.isVerbose() && copy.isProgress() &&
                copy.isNoSessionCookie() && copy.isWaitForTopologyFile());
        QCOMPARE(
            QStringList({copy.getSharedDirectory(), copy.frontendHostNamesAndAddresses(),
                         copy.sessionFileName(), copy.sessionCookie(), copy.tarballFileName()}),
            list("s h f k t"));
        QVERIFY(copy.session() == 3 && copy.port() == 4);
        QVERIFY(copy.getLogFileName().isNull() && copy.getClientLogFileName().isNull() &&
                copy.getReplayFileName().isNull() && copy.getMyName().isNull() && !copy.isRoot());
        QCOMPARE(copy.backendArguments(true), QStringList());
        QCOMPARE(ZORVDebuggerOptions(options).getReplayFileName(), text("r"));
    }

    void debuggerOptions()
    {
        // The values: attach, count, offset, explicit, manual, mpirun, forked, one per
        // host, port.
        // clang-format off
        const struct { const char* arguments; bool accepted; QList<int> values; const char* target; } rows[] = {
            {"--zorvattach 12 --zorvcount 3 --zorvoffset -4", true, {12, 3, -4, 0, 0, 0, 0, 0, 0}, ""},
            {"--zorvexplicittarget --zorvmpirun --zorvensureoneperhost", true, {0, 0, 0, 1, 0, 1, 0, 1, 0}, ""},
            {"--zorvforked", true, {0, 0, 0, 1, 0, 0, 1, 0, 0}, ""},
            {"--zorvmanuallaunch -attach 5", true, {5, 0, 0, 1, 1, 0, 0, 0, 0}, ""},
            {"--zorvmanuallaunch -a 5 -- -h", true, {5, 0, 0, 1, 1, 0, 0, 0, 0}, "-h"},
            {"-attach 5", true, {0, 0, 0, 0, 0, 0, 0, 0, 0}, "-attach 5"},
            {"--zorvattach x", false, {0, 0, 0, 0, 0, 0, 0, 0, 0}, ""},
            {"--zorvcount", false, {0, 0, 0, 0, 0, 0, 0, 0, 0}, ""},
            {"--zorvport 4242 -np 2 a.out", true, {0, 0, 0, 0, 0, 0, 0, 0, 4242}, "-np 2 a.out"},
            {"-np 2 a.out --zorvport 4242", true, {0, 0, 0, 0, 0, 0, 0, 0, 0}, "-np 2 a.out --zorvport 4242"},
            {"-h", true, {0, 0, 0, 0, 0, 0, 0, 0, 0}, "-h"},
            {"-- a.out", true, {0, 0, 0, 0, 0, 0, 0, 0, 0}, "-- a.out"},
        };
        // clang-format on
        for (const auto& row : rows) {
            ZORVDebuggerOptions options;
            QVERIFY2(options.parse(list("program") + list(row.arguments)) == row.accepted,
                     row.arguments);
            // clang-format off
            const QList<int> found = {
                options.attachPid(), options.count(), options.offset(), options.isExplicitTarget(), options.isManualLaunch(),
                options.isMpirun(), options.isForked(), options.ensureOnePerHost(), options.port()};
            // clang-format on
            QCOMPARE(found, row.values);
            QCOMPARE(options.targetArguments(), list(row.target));
        }
    }

    void settings()
    {
        setSetting("ZORV_DEBUG", "0");
        ZORVDebuggerOptions options;
        QVERIFY(options.parse(list("program")));
        QVERIFY(options.isDebug() && options.isVerbose() && !options.isManualLaunch());
        setSetting("ZORV_DEBUG", QByteArray());
        setSetting("ZORV_DEBUGGER_MULTIPLEXER_VERBOSE", "no");
        setSetting("ZORV_MANUAL_LAUNCH", "");
        QVERIFY(options.parse(list("program -port 7 x")));
        QVERIFY(!options.isDebug() && options.isVerbose() && options.isManualLaunch());
        QCOMPARE(options.port(), 7);

        const QTemporaryDir dir;
        setSetting("ZORV_LOGS", dir.path().toLocal8Bit());
        const QString ending = text("-%1-%2.log")
                                   .arg(QHostInfo::localHostName())
                                   .arg(QCoreApplication::applicationPid());
        const QString stem = dir.filePath(text("zorv-debugger-multiplexer"));
        QVERIFY(options.parse(list("program --zorvlog elsewhere")));
        QCOMPARE(options.getLogFileName(), stem + ending);
        QCOMPARE(options.getClientLogFileName(), stem + text("-client") + ending);
        QVERIFY(!options.parse(list("program --zorvroot --zorvport x")));
        QCOMPARE(options.getLogFileName(), stem + text("-root") + ending);
    }
};

QTEST_GUILESS_MAIN(BackendOptionsTest)
#include "tst_backendoptions.moc"
