// The report on a launch: it names what is wrong, and never the cookie.

#include "tests/support/installation.h"
#include "tests/support/network.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <functional>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace {

const QByteArray cookie = "c00kie";

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

void makeUnreadable(const QString& path)
{
    QCOMPARE(chmod(qPrintable(path), 0), 0);
}

// Root can read everything, unless it gives that up. For others the calls fail,
// and nothing has to be given up.
void loseRootsRights()
{
    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
    prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
}

// An installation with a session in which nothing is wrong, for a test to break.
class Setup
{
public:
    Setup()
    {
        QFile::copy(text(ZORV_MPIRUN_INFO), mInstallation.path(text("bin/zorv-mpirun-info")));
        // This name is the global session file's.
        QDir().rename(path("session"), path("sessions"));
        set("ZORV_SESSION_PATH", path("sessions"));
        writeSession("host='alpha' port='4244' session='3'");
        QFile::link(path("sessions/alpha-3"), path("sessions/latest"));
    }

    QString path(const char* relative) const { return mInstallation.path(text(relative)); }
    void set(const char* variable, const QString& value) { mSettings += {text(variable), value}; }
    void writeSession(const QByteArray& attributes) const
    {
        write(path("sessions/alpha-3"), "<session " + attributes + " cookie='" + cookie + "'/>");
    }

    // The report in one of its forms; nothing else is printed.
    QByteArray report(const QList<QByteArray>& arguments) const
    {
        Launch launch(path("bin/zorv-mpirun-info"));
        for (const auto& [variable, value] : mSettings) {
            launch.setVariable(variable, value);
        }
        launch.setBeforeExec(loseRootsRights);
        launch.run(arguments);
        mStatus = launch.status();
        return launch.output() + launch.errors();
    }
    QJsonObject json(const QList<QByteArray>& arguments = {}) const
    {
        const QByteArray output = report(QList<QByteArray>{"--json"} + arguments);
        const QJsonObject root = QJsonDocument::fromJson(output).object();
        return output.contains(cookie) ? QJsonObject() : root;
    }
    int status() const { return mStatus; }

private:
    Installation mInstallation;
    QList<std::pair<QString, QString>> mSettings;
    mutable int mStatus = -1;
};

using Breakage = std::function<void(Setup&)>;

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

QStringList codesOf(const QJsonObject& report)
{
    QStringList codes;
    for (const QJsonValue& problem : report.value(text("problems")).toArray()) {
        codes += problem.toObject().value(text("code")).toString();
    }
    // The machine that tests run on may have no network.
    codes.removeAll(text("no-address"));
    return codes;
}

QString fieldOf(const QJsonObject& report, const char* field)
{
    const QJsonObject object =
        report.value(text("session")).toObject().value(text(field)).toObject();
    const QVariant value = object.value(text("value")).toVariant();
    const QString shown = value.canConvert<QString>() ? value.toString()
                                                      : value.toStringList().join(QLatin1Char(','));
    return shown + QLatin1Char(' ') + object.value(text("source")).toString();
}

} // namespace

Q_DECLARE_METATYPE(Breakage)

class MpirunInfoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesTheCause_data();
    void namesTheCause();
    void saysWhereFieldsComeFrom();
    void takesACommandLineAsItIs();
    void neverPrintsTheCookie_data();
    void neverPrintsTheCookie();
    void knowsEverySetting();
};

void MpirunInfoTest::namesTheCause_data()
{
    QTest::addColumn<Breakage>("breakIt");
    QTest::addColumn<QList<QByteArray>>("arguments");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QByteArray>("cause");
    const auto row = [](const char* name, const char* code, const char* cause, Breakage breakIt,
                        const QList<QByteArray>& arguments = {}) {
        QTest::newRow(name) << breakIt << arguments << text(code) << QByteArray(cause);
    };
    const auto nothing = [](Setup&) {};
    const auto remove = [](const char* file) {
        return [file](Setup& setup) { QFile::remove(setup.path(file)); };
    };
    const auto removeDirectory = [](const char* name) {
        return [name](Setup& setup) { QDir(setup.path(name)).removeRecursively(); };
    };
    const auto setVariable = [](const char* variable, const char* value) {
        return [=](Setup& setup) { setup.set(variable, text(value)); };
    };
    const auto create = [](const char* file, const char* content) {
        return [=](Setup& setup) { write(setup.path(file), content); };
    };

    row("command line is rejected", "command-line-rejected", "invalid --zorvport argument '42x'",
        nothing, {"--zorvport", "42x"});
    row("helper is missing", "helper-unusable", "bin/zorv-debugger: the helper is missing",
        remove("bin/zorv-debugger"));
    row("helper is not executable", "helper-unusable", "the helper is not executable",
        [](Setup& setup) { makeUnreadable(setup.path("bin/zorv-debugger")); });
    row("libexec is missing", "directory-missing", "/libexec: the installation's directory",
        removeDirectory("libexec"));
    row("no interface", "no-interface", "NETWORK_INTERFACES lets no interface",
        setVariable("ZORV_NETWORK_INTERFACES", "none0"));
    row("two variables for a setting", "settings-conflict",
        "PELK_LOCALHOST is not used: ZORV_LOCALHOST is set, to another value", [](Setup& setup) {
            setup.set("ZORV_LOCALHOST", text("127.0.0.1"));
            setup.set("PELK_LOCALHOST", text("127.0.0.2"));
        });
    row("session that is no number", "setting-not-a-number",
        "PELK_SESSION is not used: '3x' is no number", [](Setup& setup) {
            setup.writeSession("host='alpha'");
            setup.set("PELK_SESSION", text("3x"));
        });
    row("setting against the session file", "setting-overridden",
        "TALVORA_PORT is not used: the value comes from the session file",
        setVariable("TALVORA_PORT", "4250"));
    row("wrong port", "port-of-another-session",
        "the port is 4250 (option), but the front end of session 3 (session file) listens at 4244",
        nothing, {"--zorvport", "4250"});
    row("port above 65535", "session-invalid", "the port 70000 is above 65535 (session file)",
        [](Setup& setup) { setup.writeSession("host='alpha' port='70000'"); });
    row("session directory is missing", "session-directory-unusable",
        "/sessions: the session directory is missing", removeDirectory("sessions"));
    row("no session at all", "session-invalid", "no source names a front end host",
        remove("sessions/latest"));
    row("dead latest link", "session-file-unusable", "/sessions/latest (dead link), a link to ",
        remove("sessions/alpha-3"));
    row("session file is unreadable", "session-file-unusable", "/sessions/latest (unreadable)",
        [](Setup& setup) { makeUnreadable(setup.path("sessions/alpha-3")); });
    row("session file is not well-formed", "session-file-unusable", "(not well-formed)",
        create("sessions/alpha-3", "<session host='alpha' cookie='c00kie'>"));
    row("session file has a bad port", "session-file-unusable", "(with a port that is no number)",
        [](Setup& setup) { setup.writeSession("port='c00kie'"); });
    row("session file is a directory", "session-file-unusable", "(not a regular file)",
        [](Setup& setup) { setup.set("ZORV_SESSION_FILE", setup.path("sessions")); });
    row("restart file is left", "restart-file-left", "/sessions/restart: with this restart file",
        create("sessions/restart", ""));
    row("hold file is left", "hold-file-left", "/sessions/restart-hold: with this hold file",
        create("sessions/restart-hold", ""));
    // Too long a name for any server to be asked.
    row("host that nobody knows", "host-unknown", "xxx: no address found", nothing,
        {"--route-to", QByteArray(64, 'x')});
}

void MpirunInfoTest::namesTheCause()
{
    QFETCH(Breakage, breakIt);
    QFETCH(QList<QByteArray>, arguments);
    QFETCH(QString, code);
    QFETCH(QByteArray, cause);

    Setup setup;
    const QJsonObject sound = setup.json();
    QCOMPARE(setup.status(), 0);
    QCOMPARE(codesOf(sound).join(QLatin1Char(' ')), QString());
    breakIt(setup);
    const QByteArray report = setup.report(arguments);
    QVERIFY2(report.contains(cause), report.constData());
    QVERIFY2(!report.contains(cookie), report.constData());
    const QJsonObject broken = setup.json(arguments);
    QVERIFY2(codesOf(broken).contains(code), qPrintable(codesOf(broken).join(QLatin1Char(' '))));
    QCOMPARE(keysOf(broken), keysOf(sound));
    const bool fails = code == text("command-line-rejected") || code == text("helper-unusable");
    QCOMPARE(setup.status(), fails ? 1 : 0);
}

void MpirunInfoTest::saysWhereFieldsComeFrom()
{
    Setup setup;
    write(setup.path("sessions/alpha-latest"), "<session session='3' cookie='c00kie'/>");
    setup.set("ZORV_HOST", text("alpha,10.0.0.1"));
    setup.set("PELK_SHARED_DIRECTORY", text("/tmp"));
    const QJsonObject report = setup.json({"--zorvtarball", "/t", "-np", "2"});
    QCOMPARE(codesOf(report).join(QLatin1Char(' ')), QString());
    // Scripts rely on these.
    QCOMPARE(report.keys(), list("commandLine host installation problems routability session "
                                 "settings system variables version"));
    QCOMPARE(report.value(text("session")).toObject().keys(),
             list("cookiePresent cookieUsed explicitPort globalFileRead holdFile hosts "
                  "invalidBecause port restartFile session sessionDirectory sessionFile "
                  "sessionFileRead sharedDirectory supportedMarker tarball valid"));
    QCOMPARE(fieldOf(report, "hosts"), text("alpha,10.0.0.1 environment"));
    QCOMPARE(fieldOf(report, "session"), text("3 session file"));
    QCOMPARE(fieldOf(report, "port"), text("4244 derived"));
    QCOMPARE(fieldOf(report, "cookiePresent"), text("true session file"));
    QCOMPARE(fieldOf(report, "cookieUsed"), text("true default"));
    QCOMPARE(fieldOf(report, "sharedDirectory"), text("/tmp environment"));
    QCOMPARE(fieldOf(report, "tarball"), text("/t option"));
    QCOMPARE(fieldOf(report, "sessionFile"), setup.path("sessions/alpha-latest derived"));
    QCOMPARE(fieldOf(setup.json({"--zorvshareddirectory", "/usr"}), "sharedDirectory"),
             text("/usr option"));
}

void MpirunInfoTest::takesACommandLineAsItIs()
{
    const Setup setup;
    const QJsonObject report =
        setup.json({"--route-to", "127.42.42.2,127.42.42.1", "/opt/bin/zorv-mpirun",
                    "--zorvsession", "3", "--help", "--json"});
    const QJsonObject line = report.value(text("commandLine")).toObject();
    QCOMPARE(line.value(text("arguments")).toInt(), 4);
    QCOMPARE(line.value(text("argumentsOfMpiLauncher")).toInt(), 2);
    const QJsonObject route = report.value(text("routability")).toObject();
    QCOMPARE(route.value(text("asTried")).toVariant().toStringList(),
             list("127.42.42.2 127.42.42.1"));
    QVERIFY(setup.report({"--version"}).startsWith("zorv-mpirun-info "));
    QVERIFY(setup.report({"--json", "--help"}).startsWith("Usage: zorv-mpirun-info "));
    QCOMPARE(setup.report({"--route-to"}), "option '--route-to' requires an argument\n");
    QCOMPARE(setup.status(), 2);
}

void MpirunInfoTest::neverPrintsTheCookie_data()
{
    QTest::addColumn<QList<QByteArray>>("arguments");
    QTest::addColumn<QByteArrayList>("variables");
    using Arguments = QList<QByteArray>;
    const QByteArrayList none;
    QTest::newRow("session file") << Arguments{} << none;
    QTest::newRow("option") << Arguments{"--zorvsessioncookie", cookie, "a.out"} << none;
    QTest::newRow("option behind the launcher's")
        << Arguments{"a.out", "--zorvsessioncookie", cookie} << none;
    QTest::newRow("option with =") << Arguments{"--zorvsessioncookie=" + cookie} << none;
    QTest::newRow("rejected before the cookie")
        << Arguments{"--zorvport", "x" + cookie, "--zorvsessioncookie", cookie} << none;
    QTest::newRow("settings") << Arguments{}
                              << QByteArrayList{"ZORV_SESSION_COOKIE", "PELK_SESSION_COOKIE"};
    QTest::newRow("hidden by an option and in other settings")
        << Arguments{"--zorvsessioncookie", "other"}
        << QByteArrayList{"TALVORA_SESSION_COOKIE", "ZORV_HOST", "ZORV_PORT", "ZORV_LOGS"};
}

void MpirunInfoTest::neverPrintsTheCookie()
{
    QFETCH(QList<QByteArray>, arguments);
    QFETCH(QByteArrayList, variables);
    Setup setup;
    for (const QByteArray& variable : std::as_const(variables)) {
        setup.set(variable.constData(), QString::fromLatin1(cookie));
    }
    for (const QByteArray& form : {QByteArray("zorv-mpirun"), QByteArray("--json")}) {
        const QByteArray report = setup.report(QList<QByteArray>{form} + arguments);
        QVERIFY(report.contains("problems"));
        QVERIFY2(!report.contains(cookie), report.constData());
    }
}

// A setting that is added to the suite is added here.
void MpirunInfoTest::knowsEverySetting()
{
    const QJsonObject settings = Setup().json().value(text("settings")).toObject();
    static const QRegularExpression use(
        text("(?:env(?:String|Path|Flag|IsSet)|uncachedValue|logFileName)\\(\\s*\"([A-Z_0-9]+)\""));
    QStringList used;
    for (const char* folder : {"/backend", "/common", "/mpirun", "/zorv-debugger"}) {
        QDirIterator files(text(SOURCE_DIR) + text(folder), {text("*.cpp")}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            QFile file(files.next());
            QVERIFY(file.open(QIODevice::ReadOnly));
            auto matches = use.globalMatch(QString::fromUtf8(file.readAll()));
            while (matches.hasNext()) {
                used += matches.next().captured(1);
            }
        }
    }
    used.sort();
    used.removeDuplicates();
    QCOMPARE(used, settings.keys());
}

QTEST_GUILESS_MAIN(MpirunInfoTest)
#include "tst_mpiruninfo.moc"
