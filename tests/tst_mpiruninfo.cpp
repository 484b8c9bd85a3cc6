// The report on a launch: it names what is wrong, and never the cookie.

#include "tests/support/installation.h"
#include "tests/support/network.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <linux/capability.h>
#include <sys/prctl.h>

namespace {

using Arguments = QList<QByteArray>;

// A command that writes the session file.
QByteArray session(const QByteArray& attributes)
{
    return "echo \"<session " + attributes + " cookie='c00kie'/>\" >sessions/alpha-3";
}

int g_status = -1;

// What is reported in an installation in which nothing is wrong, but for what the
// shell's command does. Leaves the exit status.
QByteArray report(const QByteArray& command, const Arguments& arguments)
{
    const Installation installation;
    QFile::copy(text(ZORV_MPIRUN_INFO), installation.path(text("bin/zorv-mpirun-info")));
    // The name "session" is that of the installation's session file.
    const QByteArray script =
        "cd '" + QFile::encodeName(installation.path(QString())) + "' && mv session sessions && " +
        session("host='alpha' port='4244' session='3'") + " && ln -s alpha-3 sessions/latest" +
        " && export ZORV_SESSION_PATH=$PWD/sessions && " + command +
        " && exec bin/zorv-mpirun-info \"$@\"";
    Launch launch(text("/bin/sh"));
    // Root can read everything, unless it gives that up; others need not.
    launch.setBeforeExec([] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    });
    launch.run(Arguments{"-c", script, "sh"} + arguments);
    g_status = launch.status();
    return launch.output() + launch.errors();
}

QJsonObject parsed(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

// Every key, with those below it. What is in lists does not count.
QStringList keysOf(const QJsonObject& object, const QString& prefix = QString())
{
    QStringList keys;
    for (auto it = object.begin(); it != object.end(); ++it) {
        keys += prefix + it.key();
        keys += keysOf(it->toObject(), keys.last() + QLatin1Char('.'));
    }
    return keys;
}

QString codesOf(const QJsonObject& report)
{
    QStringList codes;
    for (const auto& problem : report.value(text("problems")).toArray()) {
        codes += problem.toObject().value(text("code")).toString();
    }
    // The machine that tests run on may have no network.
    codes.removeAll(text("no-address"));
    return codes.join(QLatin1Char(' '));
}

} // namespace

class MpirunInfoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesTheCause_data();
    void namesTheCause();
    void saysWhereFieldsComeFrom();
    void hasOptionsOfItsOwn();
};

void MpirunInfoTest::namesTheCause_data()
{
    QTest::addColumn<QString>("codes");
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<Arguments>("arguments");
    const auto row = [](const char* codes, const char* cause, const QByteArray& command,
                        const Arguments& arguments = {"a.out"}) {
        QTest::newRow(cause) << text(codes) << command << arguments;
    };
    row("command-line-rejected", "invalid --zorvport argument '42x'", ":", {"--zorvport", "42x"});
    row("helper-unusable", "bin/zorv-debugger: the helper is missing", "rm bin/zorv-debugger");
    row("helper-unusable", "the helper is not executable", "chmod 0 bin/zorv-debugger");
    row("directory-missing", "/libexec: the installation's directory", "rm -r libexec");
    row("no-interface", "lets no interface", "export ZORV_NETWORK_INTERFACES=none0");
    row("settings-conflict", "PELK_LOCALHOST is not used: ZORV_LOCALHOST is set, to another value",
        "export ZORV_LOCALHOST=127.0.0.1 PELK_LOCALHOST=127.0.0.2");
    row("setting-not-a-number port-unknown", "PELK_SESSION is not used: '3x' is no number",
        session("host='alpha'") + " && export PELK_SESSION=3x");
    row("setting-overridden", "comes from the session file", "export TALVORA_PORT=4250");
    row("port-of-another-session", "session 3 (session file) listens at 4244", ":",
        {"--zorvport", "4250"});
    row("session-invalid", "the port 70000 is above 65535", session("host='a' port='70000'"));
    row("port-unknown session-directory-unusable", "/sessions: the session directory is missing",
        "rm -r sessions; export ZORV_HOST=a");
    const char* const unusable = "session-invalid session-file-unusable";
    row(unusable, "no source names a front end host", "rm sessions/latest");
    row(unusable, "/sessions/latest (dead link), a link to ", "rm sessions/alpha-3");
    row(unusable, "/sessions/latest (unreadable)", "chmod 0 sessions/alpha-3");
    row(unusable, "(not well-formed)", "echo \"<session cookie='c00kie'>\" >sessions/alpha-3");
    row(unusable, "(with a port that is no number)", session("port='c00kie'"));
    row(unusable, "(not a regular file)", "export ZORV_SESSION_FILE=sessions");
    row("restart-file-left", "/sessions/restart: with this restart file", ">sessions/restart");
    row("hold-file-left", "/sessions/restart-hold: with this hold file", ">sessions/restart-hold");
    // Too long a name for any server to be asked.
    row("host-unknown", "xxx: no address found", ":", {"--route-to", QByteArray(64, 'x')});
    row("", "127.42.42.2, 127.42.42.1", ":", {"--route-to", "127.42.42.2,127.42.42.1"});
    row("", "arguments of mpi launcher:        2", ":",
        {"/opt/bin/zorv-mpirun", "--zorvsession", "3", "--help", "--json"});

    // The cookie is in other places than the session file.
    row(unusable, "yes (option)", "rm sessions/*", {"--zorvsessioncookie", "c00kie"});
    row("", "problems\n  none", ":", {"a.out=c00kie", "--zorvsessioncookie", "c00kie"});
    row("command-line-rejected session-invalid session-file-unusable", "argument 'x***'",
        "rm sessions/*", {"--zorvport", "xc00kie", "--zorvsessioncookie", "c00kie"});
    row(unusable, "ZORV_SESSION_COOKIE = (hidden)",
        "rm sessions/*; export ZORV_SESSION_COOKIE=c00kie PELK_SESSION_COOKIE=c00kie");
    row("setting-not-a-number setting-overridden session-invalid session-file-unusable",
        "ZORV_LOGS = /***",
        "rm sessions/*; export TALVORA_SESSION_COOKIE=c00kie ZORV_LOGS=/c00kie ZORV_PORT=c00kie",
        {"--zorvsessioncookie", "other"});
}

void MpirunInfoTest::namesTheCause()
{
    QFETCH(QString, codes);
    QFETCH(QByteArray, command);
    QFETCH(Arguments, arguments);
    static const QJsonObject sound = parsed(report(":", {"--json"}));
    QCOMPARE(codesOf(sound), QString());

    const QByteArray shown = report(command, arguments);
    QVERIFY2(shown.contains(QTest::currentDataTag()), shown.constData());
    const QByteArray json = report(command, Arguments{"--json"} + arguments);
    QCOMPARE(codesOf(parsed(json)), codes);
    QCOMPARE(keysOf(parsed(json)), keysOf(sound));
    QVERIFY2(!(shown + json).contains("c00kie"), (shown + json).constData());
    const bool fails = codes.contains(text("helper-")) || codes.contains(text("rejected"));
    QCOMPARE(g_status, fails ? 1 : 0);
}

void MpirunInfoTest::saysWhereFieldsComeFrom()
{
    const QByteArray command =
        "echo \"<session session='3' cookie='c00kie'/>\" >sessions/alpha-latest &&"
        " export ZORV_HOST=alpha,10.0.0.1 PELK_SHARED_DIRECTORY=/tmp";
    const QByteArray shown = report(command, {"--zorvtarball", "/t", "-np"}).simplified();
    const QByteArray expected =
        "hosts: alpha, 10.0.0.1 (environment) port: 4244 (derived) session: 3 (session file) "
        "cookie present: yes (session file) cookie used: yes (default) "
        "shared directory: /tmp (environment) tarball: /t (option) session file: ";
    QVERIFY2(shown.contains(expected), shown.constData());
    QVERIFY2(shown.contains("/sessions/alpha-latest (derived)"), shown.constData());

    // Scripts rely on these.
    const QJsonObject json = parsed(report(command, {"--json"}));
    const QJsonObject fields = json.value(text("session")).toObject();
    QCOMPARE(json.keys() + fields.keys() + fields.value(text("port")).toObject().keys(),
             list("commandLine host installation problems routability session settings system "
                  "variables version cookiePresent cookieUsed explicitPort globalFileRead holdFile "
                  "hosts invalidBecause port restartFile session sessionDirectory sessionFile "
                  "sessionFileRead sharedDirectory supportedMarker tarball valid source value"));
}

void MpirunInfoTest::hasOptionsOfItsOwn()
{
    QVERIFY(report(":", {"--version"}).startsWith("zorv-mpirun-info "));
    QVERIFY(report(":", {"--json", "--help"}).startsWith("Usage: zorv-mpirun-info "));
    QCOMPARE(report(":", {"--route-to"}), "option '--route-to' requires an argument\n");
    QCOMPARE(g_status, 2);
}

QTEST_GUILESS_MAIN(MpirunInfoTest)
#include "tst_mpiruninfo.moc"
