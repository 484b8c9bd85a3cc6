// How a process finds its session: which source wins for which field.

#include "backend/backendoptions.h"
#include "backend/backenduserdata.h"
#include "common/env/zorvenv.h"
#include "common/talvoraglobals.h"
#include "tests/support/network.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

// The sources of a session, the lowest precedence first.
enum Source { GlobalFile, Environment, SessionFile, Option, SourceCount };
const char* const sourceNames[] = {"global file", "environment", "session file", "option"};
constexpr UserData::Source sources[] = {UserData::Source::GlobalFile, UserData::Source::Environment,
                                        UserData::Source::SessionFile, UserData::Source::Option};

// The fields and their values by source; null where a source has none.
struct Field
{
    const char* name;
    const char* attribute;
    const char* variable;
    const char* option;
    UserData::Field field;
    const char* values[SourceCount];
};
const Field fields[] = {
    {"host", "host", "ZORV_HOST", "--host", UserData::Hosts, {"g,1", "e,2", "f,3", "o,4"}},
    {"port", "port", "ZORV_PORT", "--port", UserData::Port, {"11", "12", "13", "14"}},
    {"session", "session", "ZORV_SESSION", "--session", UserData::Session, {"1", "2", "3", "4"}},
    {"cookie",
     "cookie",
     "ZORV_SESSION_COOKIE",
     "--sessioncookie",
     UserData::Cookie,
     {"g", "e", "f", "o"}},
    {"tarball",
     nullptr,
     "ZORV_TARBALL",
     "--tarball",
     UserData::Tarball,
     {nullptr, "/e", nullptr, "/o"}},
};

QString valueOf(const BackendUserData& record, const char* field)
{
    const QMap<QString, QString> values = {
        {text("host"), record.getHostNamesAndAddresses().join(QLatin1Char(','))},
        {text("port"), QString::number(record.getPort())},
        {text("session"), QString::number(record.getSession())},
        {text("cookie"), record.sessionCookie()},
        {text("tarball"), record.tarballFileName(false)}};
    return values.value(text(field));
}

} // namespace

class BackendUserDataTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void precedence_data();
    void precedence();
    void resolves_data();
    void resolves();
    void sessionFileName_data();
    void sessionFileName();
    void cookiesInUse_data();
    void cookiesInUse();
    void sharedDirectory();
    void explicitPort();

private:
    void write(const QString& name, const QString& content) const;
    QString path(const char* name) const { return mRoot->filePath(text(name)); }

    std::unique_ptr<QTemporaryDir> mRoot;
};

void BackendUserDataTest::init()
{
    mRoot = std::make_unique<QTemporaryDir>();
    TalvoraGlobals::instance()->setLocationsFromInstallPath(mRoot->path());
    const QStringList names = QProcessEnvironment::systemEnvironment().keys();
    for (const QString& name : names) {
        if (name.startsWith(text("ZORV_"))) {
            qunsetenv(qPrintable(name));
        }
    }
    qputenv("ZORV_SESSION_PATH", path("sessions").toLocal8Bit());
    QDir(mRoot->path()).mkdir(text("sessions"));
    discardEnvCache();
}

void BackendUserDataTest::write(const QString& name, const QString& content) const
{
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content.toUtf8());
}

void BackendUserDataTest::precedence_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<int>("lower");
    QTest::addColumn<int>("higher");
    for (int field = 0; field < int(std::size(fields)); ++field) {
        for (int higher = 0; higher < SourceCount; ++higher) {
            for (int lower = 0; lower <= higher; ++lower) {
                if (fields[field].values[lower] && fields[field].values[higher]) {
                    QTest::addRow("%s: %s over %s", fields[field].name, sourceNames[higher],
                                  sourceNames[lower])
                        << field << lower << higher;
                }
            }
        }
    }
}

void BackendUserDataTest::precedence()
{
    QFETCH(int, field);
    QFETCH(int, lower);
    QFETCH(int, higher);
    const Field& row = fields[field];
    QStringList arguments = {text("program")};
    for (const int source : {lower, higher}) {
        const QString value = text(row.values[source]);
        const QString xml = text("<session %1='%2'/>").arg(text(row.attribute), value);
        if (source == GlobalFile) {
            write(path("session"), xml);
        } else if (source == SessionFile) {
            write(path("file"), xml);
        } else if (source == Environment) {
            qputenv(row.variable, value.toLatin1());
        } else {
            arguments << text(row.option) << value;
        }
    }
    qputenv("ZORV_SESSION_FILE", path("file").toLocal8Bit());
    BackendOptions options;
    QVERIFY(options.parse(arguments));
    BackendUserData record;
    record.load(options);
    QCOMPARE(valueOf(record, row.name), text(row.values[higher]));
    QCOMPARE(record.source(row.field), sources[higher]);
}

void BackendUserDataTest::resolves_data()
{
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<int>("session");
    QTest::addColumn<uint>("port");
    QTest::addColumn<bool>("valid");

    QTest::newRow("nothing") << QString() << QString() << -1 << 0u << false;
    QTest::newRow("port from session")
        << text("HOST=alpha SESSION=3") << QString() << 3 << 4244u << true;
    QTest::newRow("session from port")
        << text("HOST=a PORT=4250") << QString() << 9 << 4250u << true;
    QTest::newRow("lowest port") << text("HOST=a PORT=4242") << QString() << 1 << 4242u << true;
    QTest::newRow("below the lowest")
        << text("HOST=a PORT=4241") << QString() << -1 << 4241u << true;
    QTest::newRow("highest port") << text("HOST=a PORT=4262") << QString() << 21 << 4262u << true;
    QTest::newRow("above the highest")
        << text("HOST=a PORT=4263") << QString() << -1 << 4263u << true;
    QTest::newRow("session 0") << text("HOST=a SESSION=0") << QString() << 0 << 4241u << true;
    QTest::newRow("host alone") << text("HOST=a") << QString() << -1 << 0u << true;
    QTest::newRow("session that does not parse")
        << text("HOST=a SESSION=2x") << QString() << -1 << 0u << true;
    QTest::newRow("port that does not parse")
        << text("HOST=a PORT=4250x") << QString() << -1 << 0u << true;
    QTest::newRow("negative port")
        << text("HOST=a PORT=-1") << QString() << -1 << 4294967295u << false;
    QTest::newRow("port too large")
        << text("HOST=a PORT=65536") << QString() << -1 << 65536u << false;
    QTest::newRow("port alone") << text("PORT=4242") << QString() << 1 << 4242u << false;
    QTest::newRow("options") << text("HOST=a SESSION=3") << text("--port 6000 --session 5") << 5
                             << 6000u << true;
}

void BackendUserDataTest::resolves()
{
    QFETCH(QString, environment);
    QFETCH(QString, arguments);
    const QStringList variables = list(qPrintable(environment));
    for (const QString& variable : variables) {
        qputenv(qPrintable(text("ZORV_") + variable.section(QLatin1Char('='), 0, 0)),
                variable.section(QLatin1Char('='), 1).toLatin1());
    }
    BackendOptions options;
    QVERIFY(options.parse(list("program") + list(qPrintable(arguments))));
    BackendUserData record;
    QTEST(record.load(options), "valid");
    QTEST(record.getSession(), "session");
    QTEST(record.getPort(), "port");
}

// The environment and the options say which file is read; once read, what it
// holds may say otherwise.
void BackendUserDataTest::sessionFileName_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("session");

    QTest::newRow("latest of all") << QString() << text("latest") << 7;
    QTest::newRow("latest of the host") << text("--host a,b") << text("a-latest") << 8;
    QTest::newRow("of the session") << text("--host a --session 2") << text("a-2") << 2;
    QTest::newRow("that is not there") << text("--host a --session 3") << text("a-3") << 3;
}

void BackendUserDataTest::sessionFileName()
{
    write(path("sessions/latest"), text("<session session='7'/>"));
    write(path("sessions/a-latest"), text("<session session='8'/>"));
    write(path("sessions/a-2"), text("<session session='9'/>"));
    QFETCH(QString, arguments);
    QFETCH(QString, name);
    BackendOptions options;
    QVERIFY(options.parse(list("program") + list(qPrintable(arguments))));
    BackendUserData record;
    record.load(options);
    QCOMPARE(record.sessionFileName(), path("sessions/") + name);
    QTEST(record.getSession(), "session");

    // A name that is given hides all of these; the option's hides the setting's.
    write(path("given"), text("<session session='10'/>"));
    qputenv("ZORV_SESSION_FILE", path("none").toLocal8Bit());
    discardEnvCache();
    BackendOptions withFile;
    QVERIFY(withFile.parse({text("program"), text("--sessionfile"), path("given")}));
    BackendUserData other;
    other.load(withFile);
    QCOMPARE(other.sessionFileName(), path("given"));
    QCOMPARE(other.getSession(), 10);
    other.load(BackendOptions());
    QCOMPARE(other.sessionFileName(), path("none"));
}

void BackendUserDataTest::cookiesInUse_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<bool>("inUse");
    QTest::newRow("unset") << QByteArray() << true;
    QTest::newRow("off") << QByteArray("Off") << true;
    QTest::newRow("on") << QByteArray("yes") << false;
    QTest::newRow("empty") << QByteArray("") << false;
}

void BackendUserDataTest::cookiesInUse()
{
    QFETCH(QByteArray, setting);
    QFETCH(bool, inUse);
    if (!setting.isNull()) {
        qputenv("ZORV_NO_SESSION_COOKIE", setting);
    }
    BackendUserData record;
    record.load(BackendOptions());
    QCOMPARE(record.getUseSessionCookies(), inUse);
    BackendOptions options;
    QVERIFY(options.parse(list("program --zorvnosessioncookie")));
    record.load(options);
    QVERIFY(!record.getUseSessionCookies());
}

void BackendUserDataTest::sharedDirectory()
{
    const auto resolved = [](const QString& directory, const QString& file) {
        BackendOptions options;
        options.setSharedDirectory(directory);
        const bool parsed = options.parse({text("program"), text("--sessionfile"), file});
        BackendUserData record;
        record.load(options);
        return parsed ? record.getSharedDirectory() : QString();
    };
    QVERIFY(QFile::link(mRoot->path(), path("link")));
    const QString root = QFileInfo(mRoot->path()).canonicalFilePath();
    qputenv("BASE", mRoot->path().toLocal8Bit());
    QCOMPARE(resolved(text(" $BASE/link/sessions "), text("x")), root + text("/sessions"));
    QCOMPARE(resolved(text("$BASE/none/x/.."), text("x")), mRoot->path() + text("/none/x/.."));
    QCOMPARE(resolved(QString(), text("x")), QString());
    QCOMPARE(resolved(QString(), text("/d/session")), text("/d/session"));
    QCOMPARE(resolved(text("$BASE"), text("/d/session")), root);
}

void BackendUserDataTest::explicitPort()
{
    BackendUserData record;
    record.load(BackendOptions());
    QVERIFY(!record.isExplicitPort());
    // Neither does one that does not parse.
    qputenv("ZORV_PORT", "x");
    discardEnvCache();
    record.load(BackendOptions());
    QVERIFY(!record.isExplicitPort());
    qputenv("ZORV_PORT", "4250");
    discardEnvCache();
    record.load(BackendOptions());
    QVERIFY(record.isExplicitPort());
    BackendOptions options;
    QVERIFY(options.parse(list("program --port 5")));
    BackendUserData other;
    other.load(options);
    QVERIFY(other.isExplicitPort());
}

QTEST_GUILESS_MAIN(BackendUserDataTest)
#include "tst_backenduserdata.moc"
