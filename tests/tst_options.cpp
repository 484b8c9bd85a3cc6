// Command lines: the walk over them, the options of back-end programs and of the
// debugger helper.

#include "common/compatibility_simple/localhost.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QHostInfo>
#include <QTest>

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Takes each argument for a request for help; help that is given adds 42 to the status.
class AskedForHelp : public Options
{
    ParseResult parseOption(const QString&, QStringList::const_iterator&,
                            QStringList::const_iterator) override
    {
        return Help;
    }
    void printHelp() override
    {
        on_exit([](int status, void*) { _exit(status + 42); }, nullptr);
    }
};

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
           << o.getSharedDirectory() << o.getReplayFileName() << o.frontendHostNamesAndAddresses()
           << o.sessionFileName() << o.sessionCookie() << o.tarballFileName() << o.session()
           << o.port() << o.isDebug() << o.isVerbose() << o.isRoot() << o.isProgress()
           << o.isNoSessionCookie() << o.isWaitForTopologyFile();
    if (const auto* h = dynamic_cast<const ZORVDebuggerOptions*>(&o)) {
        values << h->attachPid() << h->count() << h->offset() << h->isExplicitTarget()
               << h->isManualLaunch() << h->isMpirun() << h->isForked() << h->ensureOnePerHost();
    }
    const QStringList names =
        list("yourname log clientlog shareddirectory replay host sessionfile sessioncookie tarball "
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

    // The first spelling, which is also the one that is forwarded, is accepted always.
    // Where options may be the target's, the others are not ours.
    void spellings()
    {
        const bool travels = true;
        // clang-format off
        const struct { const char *names, *value; bool travels; } rows[] = {
            {"--zorvyourname --yourname", " n", false},
            {"--zorvdebug -d -debug --debug", "", travels},
            {"--zorvverbose -v -verbose --verbose", "", travels},
            {"--zorvroot -r -root --root", "", false},
            {"--zorvprogress -progress --progress", "", travels},
            {"--zorvlog -log --log", " f", false},
            {"--zorvclientlog -clientlog --clientlog", " f", false},
            {"--zorvshareddirectory -s -shareddirectory --shareddirectory", " f", travels},
            {"--zorvreplay -p -replay --replay", " f", false},
            {"--zorvhost -zorvhost --host -host", " a,b", travels},
            {"--zorvsessionfile -zorvsessionfile --sessionfile -sessionfile", " f", travels},
            {"--zorvsession -zorvsession --session -session", " -7", travels},
            {"--zorvport -zorvport --port -port", " 42", travels},
            {"--zorvsessioncookie -zorvsessioncookie --sessioncookie -sessioncookie", " c", travels},
            {"--zorvtarball --tarball -tarball", " f", travels},
            {"--zorvnosessioncookie", "", travels},
            {"--zorvwaitfortopologyfile", "", travels},
        };
        // clang-format on
        for (const auto& row : rows) {
            const QString name = list(row.names).first();
            const QString expected = name.mid(6) + text(*row.value ? row.value : " true");
            for (const QString& spelling : list(row.names)) {
                BackendOptions options;
                QCOMPARE(parsed(options, spelling + text(row.value)), text("ok"));
                QCOMPARE(state(options), expected);
                const QString forwarded = row.travels ? name + text(row.value) : QString();
                QCOMPARE(options.backendArguments(false).join(QLatin1Char(' ')), forwarded);
                const BackendOptions copy = options.selectiveCopy();
                QCOMPARE(state(copy), row.travels ? expected : QString());
                QCOMPARE(copy.backendArguments(true), QStringList());
                BackendOptions strict;
                strict.setSimpleArguments(false);
                const QString refused = text("<unrecognised argument '%1'>").arg(spelling);
                QCOMPARE(parsed(strict, spelling + text(row.value)),
                         spelling == name ? text("ok") : refused);
            }
        }
    }

    // In file names, H is the host and P the process.
    void commandLines()
    {
        // clang-format off
        const struct { const char *settings, *words, *says, *state, *target; } rows[] = {
            {"", "--zorvport 4242 -np 2 a.out", "ok", "port 4242", "-np 2 a.out"},
            {"", "-np 2 a.out --zorvport 4242", "ok", "", "-np 2 a.out --zorvport 4242"},
            {"", "--zorvdebug --zorvDebug", "ok", "debug true", "--zorvDebug"},
            {"", "--zorvport=1", "ok", "", "--zorvport=1"},
            {"", "-attach 5", "ok", "", "-attach 5"},
            {"", "-- a.out", "ok", "", "-- a.out"},
            {"", "--zorvdebug --zorvlog", "<option '--zorvlog' requires an argument>", "debug true", ""},
            {"", "--zorvport 7 --zorvport 0x%1 -d", "<invalid --zorvport argument '0x%1'>", "", ""},
            {"", "--zorvhost ", "<invalid --zorvhost argument ''>", "", ""},
            {"", "--zorvattach 1 --zorvcount 3 --zorvoffset -4", "ok", "attach 1 count 3 offset -4", ""},
            {"", "--zorvexplicittarget --zorvmpirun --zorvensureoneperhost", "ok",
             "explicit true mpirun true oneperhost true", ""},
            {"", "--zorvforked", "ok", "explicit true forked true", ""},
            {"", "--zorvmanuallaunch -a 5 -- -h", "ok", "attach 5 explicit true manual true", "-h"},
            {"MANUAL_LAUNCH=", "-attach 5 --attach 6 --count 7", "ok", "attach 6 manual true", "--count 7"},
            {"MANUAL_LAUNCH=", "-host -- --", "ok", "host -- manual true", ""},
            {"MANUAL_LAUNCH=no DEBUG=0", "-d", "ok", "debug true verbose true", "-d"},
            {"DEBUGGER_MULTIPLEXER_DEBUG=0", "--zorvroot", "ok", "debug true root true", ""},
            {"DEBUGGER_MULTIPLEXER_VERBOSE=no", "--zorvroot", "ok", "verbose true root true", ""},
            {"LOGS=/", "--zorvlog elsewhere --zorvroot", "ok",
             "log /zorv-debugger-multiplexer-root-H-P.log clientlog /zorv-debugger-multiplexer-client-root-H-P.log root true", ""},
            {"DEBUGGER_MULTIPLEXER_LOG=l DEBUGGER_MULTIPLEXER_CLIENT_LOG=c", "--zorvport x",
             "<invalid --zorvport argument 'x'>", "log l-H-P.log clientlog c-H-P.log", ""},
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

    void helpWordsEndTheProcess()
    {
        for (const char* word : {"-h", "--help", "-?"}) {
            for (const bool simple : {true, false}) {
                const pid_t child = fork();
                if (child == 0) {
                    AskedForHelp options;
                    options.setSimpleArguments(simple);
                    _exit(parsed(options, text(word)).isEmpty() ? 1 : 2);
                }
                int status = -1;
                QCOMPARE(waitpid(child, &status, 0), child);
                QCOMPARE(WEXITSTATUS(status), simple ? 42 : 1);
            }
        }
    }

    void names()
    {
        const QStringList local = localHostNamesAndAddresses();
        BackendOptions options;
        QCOMPARE(options.myNameWithFallback(), sc_hostname());
        QCOMPARE(options.backendArguments(true), QStringList());
        const QString known = local.last();
        const QString words = text("--yourname %1 -d --yourname b --port 010 --yourname a -d");
        QCOMPARE(parsed(options, words.arg(known)), text("ok"));
        QCOMPARE(options.myNamesAndAddresses(),
                 list("a b") + QStringList(known) + local.mid(0, local.size() - 1));
        QCOMPARE(options.myNameWithFallback(), text("a"));
        const QStringList forwarded = list("--zorvdebug --zorvport 10 --zorvdebug");
        QCOMPARE(options.backendArguments(false), forwarded);
        QCOMPARE(options.backendArguments(true), forwarded + list("--zorvyourname a"));
        QCOMPARE(state(ZORVDebuggerOptions(options)), state(options));
    }
};

QTEST_GUILESS_MAIN(OptionsTest)
#include "tst_options.moc"
