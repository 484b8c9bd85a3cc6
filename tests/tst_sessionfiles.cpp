// Where a session's files are and what they are called.

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/localhost.h"
#include "common/env/zorvenv.h"
#include "common/talvoraglobals.h"
#include "tests/support/network.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// By hand with 100 000, in the variable READS.
const int readCount =
    qEnvironmentVariableIsSet("READS") ? qEnvironmentVariableIntValue("READS") : 5000;

// A record with the fields that names are made of.
class Session : public BackendUserData
{
public:
    Session(const QStringList& hosts, int session, const QString& shared)
    {
        hostNamesAndAddresses = hosts;
        mSession = session;
        mSharedDirectory = shared;
    }
    void setCookie(const QString& cookie, bool use)
    {
        mSessionCookie = cookie;
        mUseSessionCookies = use;
    }
    void setSessionFileName(const QString& name) { mSessionFileName = name; }
    using UserData::getGlobalFile;
    using UserData::getSessionFile;
    using UserData::hostNamesAndAddresses;
    using UserData::mSession;
};

QString linkTarget(const QString& link)
{
    char target[4096];
    const ssize_t length = readlink(qPrintable(link), target, sizeof target);
    return length == -1 ? QString() : QString::fromLocal8Bit(target, length);
}

bool write(const QString& fileName, const QByteArray& content = QByteArray())
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

class SessionFilesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void directory();
    void sessionFile_data();
    void sessionFile();
    void localOnly();
    void uniqueId_data();
    void uniqueId();
    void names();
    void workFiles();
    void metaLinkAndCleanUp();
    void saves();
    void savesNothingElsewhere();
    void failedSaveLeavesNothing();
    void readersFindAllOrNothing();

private:
    std::unique_ptr<QTemporaryDir> mBase;
    QString mDirectory;
};

void SessionFilesTest::init()
{
    mBase = std::make_unique<QTemporaryDir>();
    mDirectory = mBase->filePath(text(".talvora/session"));
    TalvoraGlobals::instance()->setLocationsAsFlatPath(mBase->path());
    for (const char* name : {"PELK_SESSION_PATH", "TMPDIR", "LOGNAME"}) {
        qunsetenv(name);
    }
    discardEnvCache();
}

void SessionFilesTest::directory()
{
    const Session session(list("alpha"), 3, mBase->path());
    QCOMPARE(session.getSessionDirectory(false), mDirectory);
    QVERIFY(!QFile::exists(mDirectory));
    QCOMPARE(session.getSessionDirectory(true), mDirectory);
    QVERIFY(QFileInfo(mDirectory).isDir());
    QCOMPARE(UserData::getSessionDirectory(QString(), false),
             QDir::homePath() + text("/.talvora/session"));
    // What cannot be made is left to whoever uses the name.
    QVERIFY(write(mBase->filePath(text("file"))));
    QCOMPARE(UserData::getSessionDirectory(mBase->filePath(text("file")), true),
             mBase->filePath(text("file/.talvora/session")));

    qputenv("PELK_SESSION_PATH", (mBase->path() + text("/given//")).toLocal8Bit());
    discardEnvCache();
    QCOMPARE(session.getSessionDirectory(true), mBase->path() + text("/given//"));
    QVERIFY(!QFile::exists(mBase->filePath(text("given"))));
}

void SessionFilesTest::sessionFile_data()
{
    QTest::addColumn<QStringList>("hosts");
    QTest::addColumn<int>("session");
    QTest::addColumn<QString>("found");
    QTest::addColumn<QString>("created");

    QTest::newRow("known") << list("alpha beta") << 3 << text("/alpha-3") << text("/alpha-3");
    QTest::newRow("session 0") << list("alpha") << 0 << text("/alpha-latest") << text("/alpha-0");
    QTest::newRow("unknown session")
        << list("alpha") << -1 << text("/alpha-latest") << text("/alpha--1");
    QTest::newRow("unknown host") << list("") << 3 << text("/latest") << text("/-3");
}

void SessionFilesTest::sessionFile()
{
    QFETCH(QStringList, hosts);
    QFETCH(int, session);
    QFETCH(QString, found);
    QFETCH(QString, created);
    const Session record(hosts, session, mBase->path());
    QCOMPARE(record.getSessionFile(session, false), mDirectory + found);
    QVERIFY(!QFile::exists(mDirectory));

    for (int again = 0; again < 2; ++again) {
        QCOMPARE(record.getSessionFile(session, true), mDirectory + created);
        QCOMPARE(linkTarget(mDirectory + text("/latest")), mDirectory + created);
        QCOMPARE(linkTarget(mDirectory + QLatin1Char('/') + hosts.value(0) + text("-latest")),
                 mDirectory + created);
    }
    QCOMPARE(QDir(mDirectory).entryList(QDir::System | QDir::Files | QDir::Hidden).size(), 2);
}

void SessionFilesTest::localOnly()
{
    const Session session(list("alpha"), 2, mBase->path());
    QVERIFY(write(mBase->filePath(text("use_local_zorv_session"))));
    qputenv("USER", "bob");
    QCOMPARE(session.getSessionFile(-1, false), text("/tmp/.zorv_session_bob_-1"));
    qputenv("LOGNAME", "alice");
    QCOMPARE(session.getSessionFile(2, true), text("/tmp/.zorv_session_alice_2"));
    qputenv("LOGNAME", "");
    QCOMPARE(session.getSessionFile(2, false), text("/tmp/.zorv_session__2"));
    QVERIFY(!QFile::exists(mDirectory));
}

void SessionFilesTest::uniqueId_data()
{
    QTest::addColumn<QString>("cookie");
    QTest::addColumn<bool>("use");
    QTest::addColumn<QString>("expected");

    QTest::newRow("no cookie") << QString() << true << text("alpha-3");
    QTest::newRow("not in use") << text("secret") << false << text("alpha-3");
    QTest::newRow("empty cookie") << text("") << true << text("alpha-3-00000000");
    // By hand: 0x61; 0x610 + 0x62 = 0x672; 0x6720 + 0x63 = 0x6783.
    QTest::newRow("short") << text("abc") << true << text("alpha-3-00006783");
    // Eight times 0x7f: the first digit is folded in from the seventh on.
    QTest::newRow("long enough to fold")
        << QString(8, QChar(0x7f)) << true << text("alpha-3-0777678f");
    QTest::newRow("beyond Latin-1") << QString(QChar(0x20ac)) << true << text("alpha-3-000020ac");
}

void SessionFilesTest::uniqueId()
{
    QFETCH(QString, cookie);
    QFETCH(bool, use);
    Session session(list("alpha"), 3, mBase->path());
    session.setCookie(cookie, use);
    QTEST(session.getSessionUniqueId(), "expected");
}

void SessionFilesTest::names()
{
    const Session session(list("alpha"), 3, mBase->path());
    QCOMPARE(session.getRestartFileName(QString()), mDirectory + text("/restart"));
    QCOMPARE(session.getRestartFileName(text("hold")), mDirectory + text("/restart-hold"));
    QCOMPARE(session.getRestartFileName(text("")), mDirectory + text("/restart-"));
    QCOMPARE(session.getLockFileName(text("x"), text("node7")), text("x-alpha-3-node7.pid"));
    QCOMPARE(session.getLockFileName(text("x"), text("")), text("x-alpha-3-.pid"));
    QCOMPARE(session.getLockFileName(text("x"), QString()),
             text("x-alpha-3-") + sc_hostname() + text(".pid"));
    QCOMPARE(session.getGlobalFile(), mBase->path() + text("/session"));
    QCOMPARE(Session({}, -1, mBase->path()).getSessionUniqueId(), text("--1"));
}

void SessionFilesTest::workFiles()
{
    Session session(list("alpha"), 3, mBase->path());
    const QString inDirectory = mDirectory + text("/topology-alpha-3");
    QCOMPARE(session.topologyFileName(false), inDirectory);
    QVERIFY(!QFile::exists(mDirectory));

    const QTemporaryDir temporary;
    qputenv("TMPDIR", temporary.path().toLocal8Bit());
    QCOMPARE(session.topologyFileName(false), inDirectory);
    QVERIFY(write(temporary.filePath(text("topology-alpha-3"))));
    QVERIFY(write(temporary.filePath(text("tarball-alpha-3"))));
    QCOMPARE(session.topologyFileName(false), temporary.filePath(text("topology-alpha-3")));
    QCOMPARE(session.topologyFileName(true), inDirectory);
    QCOMPARE(session.tarballFileName(false), temporary.filePath(text("tarball-alpha-3")));
    qunsetenv("TMPDIR");
    QCOMPARE(session.tarballFileName(false), mDirectory + text("/tarball-alpha-3"));
    session.mSession = 4;
    QCOMPARE(session.tarballFileName(false), mDirectory + text("/tarball-alpha-3"));

    QDir(mDirectory).removeRecursively();
    QCOMPARE(session.hostFileName(), mDirectory + text("/hosts-alpha-4"));
    QVERIFY(QFile::exists(mDirectory));
}

void SessionFilesTest::metaLinkAndCleanUp()
{
    Session session(list("alpha"), 3, mBase->path());
    QVERIFY(!session.makeMetaSession());
    QVERIFY(session.save(QString()));
    QVERIFY(write(mDirectory + text("/meta")));
    QVERIFY(session.makeMetaSession());
    QCOMPARE(linkTarget(mDirectory + text("/meta")), mDirectory + text("/alpha-3"));
    session.setSessionFileName(text("other"));
    QVERIFY(session.makeMetaSession());
    QCOMPARE(linkTarget(mDirectory + text("/meta")), mDirectory + text("/alpha-3"));

    session.setSessionFileName(mDirectory + text("/alpha-3"));
    session.deleteSessionFile();
    QCOMPARE(QDir(mDirectory).entryList(QDir::System | QDir::Files), QStringList());
    Session unreachable(list("alpha"), 3, mBase->filePath(text("none")));
    unreachable.setSessionFileName(text("other"));
    QVERIFY(!unreachable.makeMetaSession());
}

void SessionFilesTest::saves()
{
    Session session(list("a b"), 2, mBase->path());
    session.setCookie(text("c<&\">\u00e9"), true);
    session.getSessionDirectory(true);
    const mode_t umaskBefore = umask(0777);
    const bool saved = session.save(QString());
    umask(umaskBefore);
    QVERIFY(saved);
    QCOMPARE(session.sessionFileName(), mDirectory + text("/a-2"));
    struct stat status;
    QCOMPARE(stat(qPrintable(session.sessionFileName()), &status), 0);
    QCOMPARE(status.st_mode & 07777, 0600u);

    UserData read;
    QVERIFY(read.load(mDirectory + text("/latest")));
    QCOMPARE(read.getHostNamesAndAddresses(), list("a b"));
    QCOMPARE(read.sessionCookie(), text("c<&\">\u00e9"));
    QCOMPARE(read.getSession(), 2);
    QCOMPARE(read.getPort(), 0u);
    QVERIFY(session.toXml().endsWith(QLatin1Char('\n')));
    QVERIFY(!session.toXml().contains(text("port")));
    QVERIFY(!Session(list("a"), 2, QString()).toXml().contains(text("cookie")));
    QVERIFY(!Session({}, -1, QString()).toXml().contains(text("host")));
}

// A link at the session file's name is replaced, what it leads to is untouched.
void SessionFilesTest::savesNothingElsewhere()
{
    const QString victim = mBase->filePath(text("victim"));
    const QString name = mBase->filePath(text("name"));
    QVERIFY(write(victim, "precious"));
    QVERIFY(QFile::link(victim, name));
    Session session(list("a"), 2, mBase->path());
    QVERIFY(session.save(name));
    QCOMPARE(session.sessionFileName(), name);
    QVERIFY(!QFileInfo(name).isSymLink());
    QFile file(victim);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("precious"));
}

void SessionFilesTest::failedSaveLeavesNothing()
{
    Session session(list("a"), 2, mBase->path());
    QVERIFY(!session.save(mBase->filePath(text("none/name"))));
    QVERIFY(!session.save(mBase->path()));

    const QString full = mBase->filePath(text("full"));
    QVERIFY(write(full, "of an earlier session"));
    const pid_t child = fork();
    if (child == 0) {
        // The limit stands for a full disk: the write itself fails.
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {10, 10};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(session.save(full) ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    QCOMPARE(status, 0);
    QVERIFY(!QFile::exists(full));
    QCOMPARE(QDir(mBase->path()).entryList(QDir::Files), QStringList());
}

void SessionFilesTest::readersFindAllOrNothing()
{
    Session session(list("host"), 5, mBase->path());
    QVERIFY(session.save(QString()));
    const QString latest = mDirectory + text("/latest");
    int done[2];
    QCOMPARE(pipe2(done, O_NONBLOCK), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        // Until the reader has read enough.
        char byte;
        close(done[1]);
        for (int i = 0; read(done[0], &byte, 1) == -1; ++i) {
            session.mSession = 5 + i % 2;
            session.setCookie(QString(i % 5000, QLatin1Char('c')), true);
            if (!session.save(QString())) {
                _exit(1);
            }
        }
        _exit(0);
    }
    close(done[0]);
    int missing = 0;
    int incomplete = 0;
    for (int i = 0; i < readCount; ++i) {
        missing += linkTarget(latest).isEmpty() ? 1 : 0;
        UserData record;
        const bool read = record.load(mDirectory + text("/host-5"));
        incomplete += read && record.getSession() == 5 ? 0 : 1;
    }
    close(done[1]);
    int status = -1;
    waitpid(writer, &status, 0);
    QCOMPARE(status, 0);
    QCOMPARE(missing, 0);
    QCOMPARE(incomplete, 0);
}

QTEST_GUILESS_MAIN(SessionFilesTest)
#include "tst_sessionfiles.moc"
