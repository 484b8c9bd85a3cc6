// Where a session's files are and what they are called.

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/localhost.h"
#include "common/talvoraglobals.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

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
    void setCookie(const QString& cookie, bool use = true)
    {
        mSessionCookie = cookie;
        mUseSessionCookies = use;
    }
    void setSessionFileName(const QString& name) { mSessionFileName = name; }
    using UserData::getGlobalFile;
    using UserData::getSessionFile;
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
    void init()
    {
        mBase = std::make_unique<QTemporaryDir>();
        mDirectory = mBase->filePath(text(".talvora/session"));
        TalvoraGlobals::instance()->setLocationsAsFlatPath(mBase->path());
        for (const char* name : {"PELK_SESSION_PATH", "TMPDIR", "LOGNAME"}) {
            setSetting(name, QByteArray());
        }
    }

    void directory()
    {
        const Session session(list("alpha"), 3, mBase->path());
        QCOMPARE(session.getSessionDirectory(false), mDirectory);
        QVERIFY(!QFile::exists(mDirectory));
        QCOMPARE(session.getSessionDirectory(true), mDirectory);
        QVERIFY(QFileInfo(mDirectory).isDir());
        QCOMPARE(UserData::getSessionDirectory(QString(), false),
                 QDir::homePath() + text("/.talvora/session"));
        // What cannot be made is left to whoever uses the name.
        const QString file = mBase->filePath(text("file"));
        QVERIFY(write(file));
        QCOMPARE(UserData::getSessionDirectory(file, true), file + text("/.talvora/session"));

        setSetting("PELK_SESSION_PATH", (mBase->path() + text("/given//")).toLocal8Bit());
        QCOMPARE(session.getSessionDirectory(true), mBase->path() + text("/given//"));
        QVERIFY(!QFile::exists(mBase->filePath(text("given"))));
    }

    void sessionFile()
    {
        // clang-format off
        const struct { const char* host; int session; const char* found; const char* created; } rows[] = {
            {"alpha", 3, "/alpha-3", "/alpha-3"}, {"alpha", 0, "/alpha-latest", "/alpha-0"},
            {"alpha", -1, "/alpha-latest", "/alpha--1"}, {"", 3, "/latest", "/-3"},
        };
        // clang-format on
        for (const auto& row : rows) {
            const Session record(list(row.host), row.session, mBase->path());
            QCOMPARE(record.getSessionFile(row.session, false), mDirectory + text(row.found));
            QVERIFY(!QFile::exists(mDirectory));
            const QString created = mDirectory + text(row.created);
            for (int again = 0; again < 2; ++again) {
                QCOMPARE(record.getSessionFile(row.session, true), created);
                QCOMPARE(linkTarget(mDirectory + text("/latest")), created);
                QCOMPARE(linkTarget(mDirectory + text("/%1-latest").arg(text(row.host))), created);
            }
            QCOMPARE(QDir(mDirectory).entryList(QDir::System | QDir::Files | QDir::Hidden).size(),
                     2);
            QVERIFY(QDir(mDirectory).removeRecursively());
        }

        // Beside the programs, a file that keeps the session to this host.
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

    void names()
    {
        Session session(list("alpha"), 3, mBase->path());
        QCOMPARE(session.getRestartFileName(QString()), mDirectory + text("/restart"));
        QCOMPARE(session.getRestartFileName(text("hold")), mDirectory + text("/restart-hold"));
        QCOMPARE(session.getRestartFileName(text("")), mDirectory + text("/restart-"));
        QCOMPARE(session.getLockFileName(text("x"), text("")), text("x-alpha-3-.pid"));
        QCOMPARE(session.getLockFileName(text("x"), QString()),
                 text("x-alpha-3-") + sc_hostname() + text(".pid"));
        QCOMPARE(session.getGlobalFile(), mBase->path() + text("/session"));
        QCOMPARE(Session({}, -1, mBase->path()).getSessionUniqueId(), text("--1"));

        // clang-format off
        const struct { QString cookie; bool use; const char* expected; } rows[] = {
            {QString(), true, "alpha-3"}, {text("secret"), false, "alpha-3"}, {text(""), true, "alpha-3-00000000"},
            // By hand: 0x61; 0x610 + 0x62 = 0x672; 0x6720 + 0x63 = 0x6783.
            {text("abc"), true, "alpha-3-00006783"},
            // Eight times 0x7f: the first digit is folded in from the seventh on.
            {QString(8, QChar(0x7f)), true, "alpha-3-0777678f"}, {QString(QChar(0x20ac)), true, "alpha-3-000020ac"},
        };
        // clang-format on
        for (const auto& row : rows) {
            session.setCookie(row.cookie, row.use);
            QCOMPARE(session.getSessionUniqueId(), text(row.expected));
        }
    }

    void workFiles()
    {
        Session session(list("alpha"), 3, mBase->path());
        const QTemporaryDir temporary;
        qputenv("TMPDIR", temporary.path().toLocal8Bit());
        const QString inDirectory = mDirectory + text("/topology-alpha-3");
        QCOMPARE(session.topologyFileName(false), inDirectory);
        QVERIFY(!QFile::exists(mDirectory));
        QVERIFY(write(temporary.filePath(text("topology-alpha-3"))));
        QVERIFY(write(temporary.filePath(text("tarball-alpha-3"))));
        QCOMPARE(session.topologyFileName(false), temporary.filePath(text("topology-alpha-3")));
        QCOMPARE(session.topologyFileName(true), inDirectory);
        QCOMPARE(session.tarballFileName(false), temporary.filePath(text("tarball-alpha-3")));
        qunsetenv("TMPDIR");
        QCOMPARE(session.tarballFileName(false), mDirectory + text("/tarball-alpha-3"));
        // Once it is known, it stays.
        session.mSession = 4;
        QCOMPARE(session.tarballFileName(false), mDirectory + text("/tarball-alpha-3"));

        QDir(mDirectory).removeRecursively();
        QCOMPARE(session.hostFileName(), mDirectory + text("/hosts-alpha-4"));
        QVERIFY(QFile::exists(mDirectory));
    }

    void metaLinkAndCleanUp()
    {
        Session session(list("alpha"), 3, mBase->path());
        const QString meta = mDirectory + text("/meta");
        QVERIFY(!session.makeMetaSession());
        QVERIFY(session.save(QString()));
        QVERIFY(write(meta));
        QVERIFY(session.makeMetaSession());
        QCOMPARE(linkTarget(meta), mDirectory + text("/alpha-3"));
        session.setSessionFileName(text("other"));
        QVERIFY(session.makeMetaSession());
        QCOMPARE(linkTarget(meta), mDirectory + text("/alpha-3"));

        session.setSessionFileName(mDirectory + text("/alpha-3"));
        session.deleteSessionFile();
        QCOMPARE(QDir(mDirectory).entryList(QDir::System | QDir::Files), QStringList());
        Session unreachable(list("alpha"), 3, mBase->filePath(text("none")));
        unreachable.setSessionFileName(text("other"));
        QVERIFY(!unreachable.makeMetaSession());
    }

    void saves()
    {
        Session session(list("a b"), 2, mBase->path());
        session.setCookie(text("c<&\">\u00e9"));
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
        QVERIFY(
            !Session({}, -1, QString()).toXml().contains(QRegularExpression(text("host|cookie"))));

        // A link at the session file's name is replaced, what it leads to is untouched.
        const QString victim = mBase->filePath(text("victim"));
        const QString name = mBase->filePath(text("name"));
        QVERIFY(write(victim, "precious") && QFile::link(victim, name));
        QVERIFY(session.save(name));
        QCOMPARE(session.sessionFileName(), name);
        QVERIFY(!QFileInfo(name).isSymLink());
        QCOMPARE(QFileInfo(victim).size(), 8);
    }

    void failedSaveLeavesNothing()
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
        QCOMPARE(QDir(mBase->path()).entryList(QDir::Files), QStringList());
    }

    void readersFindAllOrNothing()
    {
        Session session(list("host"), 5, mBase->path());
        QVERIFY(session.save(QString()));
        int done[2];
        QCOMPARE(pipe2(done, O_NONBLOCK), 0);
        const pid_t writer = fork();
        if (writer == 0) {
            // Until the reader has read enough.
            char byte;
            close(done[1]);
            for (int i = 0; read(done[0], &byte, 1) == -1; ++i) {
                session.mSession = 5 + i % 2;
                session.setCookie(QString(i % 5000, QLatin1Char('c')));
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
            missing += linkTarget(mDirectory + text("/latest")).isEmpty() ? 1 : 0;
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

private:
    std::unique_ptr<QTemporaryDir> mBase;
    QString mDirectory;
};

QTEST_GUILESS_MAIN(SessionFilesTest)
#include "tst_sessionfiles.moc"
