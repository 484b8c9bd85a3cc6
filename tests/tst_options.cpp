// Settings, and command lines: the walk over them, the options of back-end programs
// and of the debugger helper.

#include "common/compatibility_simple/network/localhost.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QHostInfo>
#include <QTest>

#include <unistd.h>

namespace {

// Parses words with single blanks between them; what is said of them, or "ok".
QString parsed(Options& options, const QString& words)
{
    const MessageCollector messages;
    const bool ok = options.parse(text("program %1").arg(words).split(QLatin1Char(' ')));
    return ok ? text("ok") + messages.texts() : messages.texts();
}

// The names and values of what is not as without options.
QString state(const BackendOptions& o)
{
    QVariantList values;
    values << o.getMyName() << o.getLogFileName() << o.getClientLogFileName()
           << o.getSharedDirectory() << o.frontendHostNamesAndAddresses() << o.sessionFileName()
           << o.sessionCookie() << o.tarballFileName() << o.session() << o.port() << o.isDebug()
           << o.isVerbose() << o.isRoot() << o.isProgress() << o.isNoSessionCookie()
           << o.isWaitForTopologyFile();
    if (const auto* h = dynamic_cast<const ZORVDebuggerOptions*>(&o)) {
        values << h->attachPid() << h->count() << h->offset() << h->isExplicitTarget()
               << h->isManualLaunch() << h->isMpirun() << h->isForked() << h->ensureOnePerHost();
    }
    const QStringList names =
        list("yourname log clientlog shareddirectory host sessionfile sessioncookie tarball "
             "session port debug verbose root progress nosessioncookie waitfortopologyfile attach "
             "count offset explicit manual mpirun forked oneperhost");
    QStringList result;
    for (int i = 0; i < values.size(); ++i) {
        if (values.at(i) != QVariant(values.at(i).metaType())) {
            result << names.at(i) << values.at(i).toString();
        }
    }
    return result.join(QLatin1Char(' '));
}

} // namespace

class OptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearSettings({"SHARED_DIRECTORY", "MANUAL_LAUNCH", "DEBUG", "LOGS",
                       "DEBUGGER_MULTIPLEXER_DEBUG", "DEBUGGER_MULTIPLEXER_VERBOSE",
                       "DEBUGGER_MULTIPLEXER_LOG", "DEBUGGER_MULTIPLEXER_CLIENT_LOG"});
    }

    // The first variable that is set counts, also when it is empty.
    void settings()
    {
        const char* const none = nullptr;
        // clang-format off
        const struct { const char *zorv, *pelk, *talvora; bool on; } rows[] = {
            {none, none, none, false}, {"", "no", "x", true}, {none, "no", "x", false},
            {none, none, "Disabled", false}, {"OFF", none, none, false}, {"0", none, none, false},
            {"00", none, none, true}, {"false", none, none, true}, {"\xc3\xa9", none, none, true},
        };
        // clang-format on
        const auto path = [](const char* absent) { return envPath("TST", text(absent)); };
        for (const auto& row : rows) {
            setSetting("ZORV_TST", row.zorv);
            setSetting("PELK_TST", row.pelk);
            setSetting("TALVORA_TST", row.talvora);
            const char* const first = row.zorv ? row.zorv : row.pelk ? row.pelk : row.talvora;
            QCOMPARE(envString("TST"), QString::fromUtf8(first));
            // The default is the caller's of the moment.
            QCOMPARE(path("x"), first ? QString::fromUtf8(first) : text("x"));
            QCOMPARE(path("y"), first ? QString::fromUtf8(first) : text("y"));
            QCOMPARE(envFlag("TST"), row.on);
            QCOMPARE(envIsSet("TST", false), first != nullptr);
        }
    }

    // Options that concern the session travel on, in their first spelling.
    void travel()
    {
        const QString travelling =
            text("--zorvshareddirectory f --zorvhost a,b --zorvsessionfile f --zorvsessioncookie c "
                 "--zorvtarball f --zorvsession -7 --zorvport 42 --zorvdebug --zorvverbose "
                 "--zorvprogress --zorvnosessioncookie --zorvwaitfortopologyfile");
        const QString otherwise = text(
            "-s f -host a,b --sessionfile f -sessioncookie c --tarball f --session -7 -port 042 "
            "-d -v --progress --zorvnosessioncookie --zorvwaitfortopologyfile");
        for (const QString& spelling : {travelling, otherwise}) {
            BackendOptions options;
            QCOMPARE(parsed(options, text("--log l -clientlog m -p p -r --yourname n ") + spelling),
                     text("ok"));
            QCOMPARE(options.backendArguments(false).join(QLatin1Char(' ')), travelling);
            QCOMPARE(options.backendArguments(true),
                     options.backendArguments(false) + list("--zorvyourname n"));
            QCOMPARE(state(options.selectiveCopy()),
                     text("shareddirectory f host a,b sessionfile f sessioncookie c tarball f "
                          "session -7 port 42 debug true verbose true progress true "
                          "nosessioncookie true waitfortopologyfile true"));
        }
    }

    // In file names, H is the host and P the process.
    void commandLines()
    {
        // clang-format off
        const struct { const char *settings, *words, *says, *state, *target; } rows[] = {
            {"", "--zorvport 4242 -np 2 a.out", "ok", "port 4242", "-np 2 a.out"},
            {"", "-np 2 a.out --zorvport 4242", "ok", "", "-np 2 a.out --zorvport 4242"},
            {"", "--zorvport=1", "ok", "", "--zorvport=1"},
            {"", "-- a.out", "ok", "", "-- a.out"},
            {"", "--zorvdebug --zorvlog", "<option '--zorvlog' requires an argument>", "debug true", ""},
            {"", "--zorvport 7 --zorvport 0x%1 -d", "<invalid --zorvport argument '0x%1'>", "", ""},
            {"", "--zorvhost ", "<invalid --zorvhost argument ''>", "", ""},
            {"", "--zorvattach 1 --zorvcount 3 --zorvoffset -4", "ok", "attach 1 count 3 offset -4", ""},
            {"", "--zorvexplicittarget --zorvmpirun --zorvensureoneperhost", "ok",
             "explicit true mpirun true oneperhost true", ""},
            {"", "--zorvmanuallaunch -a 5 -- -h", "ok", "attach 5 explicit true manual true", "-h"},
            {"MANUAL_LAUNCH=", "-host -- -attach 5 --", "ok", "host -- attach 5 manual true", ""},
            {"MANUAL_LAUNCH=no DEBUG=0", "-d", "ok", "debug true verbose true", "-d"},
            {"DEBUGGER_MULTIPLEXER_DEBUG=0", "--zorvroot", "ok", "debug true root true", ""},
            {"LOGS=/", "--zorvlog elsewhere", "ok",
             "log /zorv-debugger-multiplexer-H-P.log clientlog /zorv-debugger-multiplexer-client-H-P.log", ""},
            {"LOGS=/none", "-np", "ok", "", "-np"},
            {"LOGS=/ DEBUGGER_MULTIPLEXER_LOG=l.LOG DEBUGGER_MULTIPLEXER_CLIENT_LOG=c.log.log", "--zorvroot --zorvport x",
             "<invalid --zorvport argument 'x'>", "log l.LOG-root-H-P.log clientlog c.log-root-H-P.log root true", ""},
        };
        // clang-format on
        const QString process = text("-%1-%2.log").arg(QHostInfo::localHostName()).arg(getpid());
        for (const auto& row : rows) {
            init();
            for (const QString& setting : list(row.settings)) {
                const QStringList parts = setting.split(QLatin1Char('='));
                qputenv("ZORV_" + parts.first().toLatin1(), parts.last().toLatin1());
            }
            ZORVDebuggerOptions options;
            QCOMPARE(parsed(options, text(row.words)), text(row.says));
            QCOMPARE(state(options), text(row.state).replace(text("-H-P.log"), process));
            QCOMPARE(options.targetArguments(), list(row.target));
        }
        BackendOptions noTarget;
        QCOMPARE(parsed(noTarget, text("-d -- %1 x")), text("<unrecognised argument '%1'>"));
        QVERIFY(Options().parse({}));
    }

    void names()
    {
        const QStringList local = localHostNamesAndAddresses();
        BackendOptions options;
        const QString words = text("--yourname %1 --yourname b --yourname a").arg(local.last());
        QCOMPARE(parsed(options, words), text("ok"));
        QCOMPARE(options.myNamesAndAddresses(),
                 list("a b") + QStringList(local.last()) + local.mid(0, local.size() - 1));
    }
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "tst_options.moc"
