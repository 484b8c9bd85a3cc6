// The launcher where something is wrong around it: the session directory, the
// resolver, the interfaces.

#include "tests/support/installation.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"

#include <QDir>
#include <QFile>
#include <QHostInfo>
#include <QNetworkInterface>
#include <QProcess>
#include <QTest>

#include <arpa/inet.h>
#include <linux/capability.h>
#include <memory>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum Directory {
    Usable,
    Missing,
    AFile,
    Dangling,
    Loop,
    Unreadable,
    ReadOnly,
    NoRoomForFiles,
    NoRoomForData,
    LongPath,
    TooLongPath
};

// Root may read and write everything; the launched program then may not.
void giveUpRootsRights()
{
    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
    prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
}

// What answers nobody: the queries stay in its queue.
class SilentServer
{
public:
    SilentServer()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        mBound = bind(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~SilentServer() { close(mSocket); }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    bool isBound() const { return mBound; }
    int takeQueries() const
    {
        char query[512];
        int count = 0;
        while (recv(mSocket, query, sizeof query, MSG_DONTWAIT) >= 0) {
            ++count;
        }
        return count;
    }

private:
    int mSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool mBound = false;
};

} // namespace

class SurroundingsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void sessionDirectory_data();
    void sessionDirectory();
    void directoryNames_data();
    void directoryNames();
    void resolver_data();
    void resolver();

private:
    QString path(const char* name) const { return mInstallation->path(text(name)); }
    // Puts the session directory into a state; its path.
    QString make(Directory state);
    void mountSmall(const QString& directory, const char* options);

    std::unique_ptr<Installation> mInstallation;
    std::unique_ptr<Launch> mLaunch;
    QStringList mMounts;
};

void SurroundingsTest::init()
{
    mInstallation = std::make_unique<Installation>();
    mLaunch = std::make_unique<Launch>(mInstallation->launcher());
    mLaunch->setVariable(text("ZORV_HOST"), text("front.example"));
    mLaunch->setHelperActions(text("--print started"));
}

void SurroundingsTest::cleanup()
{
    for (const QString& directory : std::as_const(mMounts)) {
        QCOMPARE(umount2(qPrintable(directory), MNT_DETACH), 0);
    }
    mMounts.clear();
}

void SurroundingsTest::mountSmall(const QString& directory, const char* options)
{
    QCOMPARE(mount("none", qPrintable(directory), "tmpfs", 0, options), 0);
    mMounts += directory;
}

QString SurroundingsTest::make(Directory state)
{
    const QString session = path("session");
    switch (state) {
    case Usable:
        break;
    case Missing:
        return path("missing");
    case AFile:
        return mInstallation->helper();
    case Dangling:
        QFile::link(path("missing"), path("link"));
        return path("link");
    case Loop:
        QFile::link(path("loop"), path("loop"));
        return path("loop");
    case Unreadable:
        chmod(qPrintable(session), 0);
        break;
    case ReadOnly:
        mountSmall(session, "");
        [&] {
            QCOMPARE(mount("none", qPrintable(session), nullptr, MS_REMOUNT | MS_RDONLY, ""), 0);
        }();
        break;
    case NoRoomForFiles:
        mountSmall(session, "nr_inodes=1");
        break;
    case NoRoomForData: {
        mountSmall(session, "size=4k");
        QFile file(session + text("/data"));
        [&] {
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
            QCOMPARE(file.write(QByteArray(8192, 'x')), 4096);
        }();
        break;
    }
    case LongPath:
    case TooLongPath: {
        const int length = state == LongPath ? 4000 : 4090;
        QString directory = session;
        while (directory.size() < length) {
            directory +=
                QLatin1Char('/') +
                QString(qBound(1, length - int(directory.size()) - 1, 200), QLatin1Char('d'));
        }
        QDir().mkpath(directory);
        return directory;
    }
    }
    return session;
}

void SurroundingsTest::sessionDirectory_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QByteArray>("cause");
    const auto row = [](const char* name, Directory state, const char* cause) {
        QTest::newRow(name) << int(state) << QByteArray(cause);
    };
    row("usable", Usable, "");
    row("missing", Missing, "No such file or directory");
    row("a file", AFile, "Not a directory");
    row("a link that leads nowhere", Dangling, "No such file or directory");
    row("a link to itself", Loop, "Too many levels of symbolic links");
    row("unreadable", Unreadable, "Permission denied");
    row("read-only", ReadOnly, "Read-only file system");
    row("no room for files", NoRoomForFiles, "No space left on device");
    row("no room for data", NoRoomForData, "");
    row("4000 bytes", LongPath, "");
    row("4090 bytes", TooLongPath, "File name too long");
}

void SurroundingsTest::sessionDirectory()
{
    QFETCH(int, state);
    QFETCH(QByteArray, cause);
    const QString directory = make(Directory(state));
    const QString log = directory + text("/log-") + QHostInfo::localHostName() + text(".log");
    const QString marker = directory + text("/restart-supported");
    mLaunch->setVariable(text("ZORV_SESSION_PATH"), directory);
    mLaunch->setVariable(text("ZORV_MPIRUN_LOG"), directory + text("/log"));
    mLaunch->setBeforeExec(giveUpRootsRights);
    mLaunch->run();
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->output(), QByteArray("started\n"));
    QByteArray expected;
    if (!cause.isEmpty()) {
        expected = QFile::encodeName(log) + ": " + cause + '\n' + QFile::encodeName(marker) + ": " +
                   cause + '\n';
    }
    QCOMPARE(mLaunch->errors(), expected);
    chmod(qPrintable(path("session")), 0700);
    QCOMPARE(QFile::exists(marker), cause.isEmpty());
}

void SurroundingsTest::directoryNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<bool>("found");
    QTest::newRow("UTF-8") << QByteArray("s\xc3\xa9\xe2\x82\xac") << QByteArray("C.UTF-8") << true;
    QTest::newRow("UTF-8, no locale") << QByteArray("s\xc3\xa9") << QByteArray("C") << true;
    QTest::newRow("blanks and a line end") << QByteArray(" a\n%s ") << QByteArray("C") << true;
    QTest::newRow("Latin-1") << QByteArray("s\xe9") << QByteArray("C.UTF-8") << false;
    QTest::newRow("Shift JIS") << QByteArray("\x83\x5c") << QByteArray("C") << false;
}

void SurroundingsTest::directoryNames()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, locale);
    QFETCH(bool, found);
    const QByteArray directory = QFile::encodeName(path("session/")) + name;
    const QByteArray marker = directory + "/restart-supported";
    QCOMPARE(mkdir(directory.constData(), 0700), 0);
    mLaunch->setRawVariable("ZORV_SESSION_PATH", directory);
    mLaunch->setVariable(text("LC_ALL"), QString::fromLatin1(locale));
    mLaunch->run();
    const bool made = unlink(marker.constData()) == 0;
    // Qt cannot remove it for us.
    QCOMPARE(rmdir(directory.constData()), 0);
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->output(), QByteArray("started\n"));
    QCOMPARE(made, found);
    if (found) {
        QCOMPARE(mLaunch->errors(), QByteArray());
    } else {
        QVERIFY2(mLaunch->errors().endsWith("/restart-supported: No such file or directory\n"),
                 mLaunch->errors().constData());
    }
}

void SurroundingsTest::resolver_data()
{
    QTest::addColumn<QByteArray>("server");
    QTest::addColumn<QString>("network");

    const QString up = text(
        "link set lo up\nlink add d0 type veth peer name d1\nlink set d0 up\nlink set d1 up\n");
    const QString one = up + text("addr add 10.9.9.1/24 dev d0\n");
    QString many = up;
    for (int i = 0; i < 500; ++i) {
        many += text("addr add 10.9.%1.%2/16 dev d0\n").arg(i / 250).arg(1 + i % 250);
    }
    QTest::newRow("no answer") << QByteArray("127.0.0.1") << one;
    QTest::newRow("no route to the server") << QByteArray("192.0.2.1") << one;
    QTest::newRow("packets vanish") << QByteArray("10.9.9.2") << one;
    QTest::newRow("no server") << QByteArray() << one;
    QTest::newRow("no interface") << QByteArray("127.0.0.1") << QString();
    QTest::newRow("500 addresses") << QByteArray() << many;
}

void SurroundingsTest::resolver()
{
    QFETCH(QByteArray, server);
    QFETCH(QString, network);
    if (QNetworkInterface::interfaceFromName(text("d0")).isValid()) {
        Namespace::run(text("ip link del d0"));
    }
    Namespace::run(text("ip link set lo down"));
    Namespace::writeFile(path("network"), network.toLatin1());
    Namespace::run(text("ip -batch ") + path("network"));
    Namespace::setHosts("nodex", "127.0.0.1 localhost\n");
    if (!server.isEmpty()) {
        Namespace::writeFile(text("/etc/nsswitch.conf"), "hosts: files dns\n");
        Namespace::writeFile(text("/etc/resolv.conf"),
                             "nameserver " + server + "\noptions timeout:1 attempts:1\n");
    }
    const SilentServer silent;
    QVERIFY(silent.isBound());
    mLaunch->setVariable(text("ZORV_SESSION_PATH"), path("session"));

    mLaunch->run({"--zorvyourname", "other"});
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->errors(), QByteArray());
    QCOMPARE(silent.takeQueries(), 0);
    QVERIFY(QFile::exists(path("session/restart-supported")));

    // Shows that the queue would tell.
    QProcess::execute(text("getent"), list("hosts other"));
    QCOMPARE(silent.takeQueries() > 0, QByteArray(QTest::currentDataTag()) == "no answer");
}

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::makeWritable(text("/etc"));
    SurroundingsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_surroundings.moc"
