// Directories that others can write, with things of another user at the names
// that the launcher writes: the launch goes on, nothing is overwritten that is
// not the launcher's, and what is lost is said.

#include "backend/backenduserdata.h"
#include "tests/support/installation.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostInfo>
#include <QTemporaryFile>
#include <QTest>

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t stranger = 54321;
constexpr uid_t user = 54322;

enum Thing { LinkToMine, LinkToNothing, Fifo, ReadFifo, File, EmptyFile, HardLink };

QByteArray content(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be opened");
}

void write(const QString& fileName, const QByteArray& bytes, uid_t owner, mode_t mode = 0666)
{
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush());
    QCOMPARE(fchown(file.handle(), owner, owner), 0);
    QCOMPARE(fchmod(file.handle(), mode), 0);
}

void link(const QString& target, const QString& name, uid_t owner)
{
    QVERIFY(QFile::link(target, name));
    QCOMPARE(lchown(qPrintable(name), owner, owner), 0);
}

// Makes a directory as /tmp is.
void makeShared(const QString& directory, uid_t owner = 0)
{
    QVERIFY(QDir().mkpath(directory));
    QCOMPARE(chown(qPrintable(directory), owner, owner), 0);
    QCOMPARE(chmod(qPrintable(directory), 01777), 0);
}

} // namespace

class NeighboursTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void refused_data();
    void refused();
    void trusted_data();
    void trusted();
    void savedSessionFile_data();
    void savedSessionFile();

private:
    QString path(const char* name) const { return mInstallation->path(text(name)); }
    QString logName() const
    {
        return path("shared/log-") + QHostInfo::localHostName() + text(".log");
    }
    void launch();

    std::unique_ptr<Installation> mInstallation;
    std::unique_ptr<Launch> mLaunch;
};

void NeighboursTest::init()
{
    mInstallation = std::make_unique<Installation>();
    QCOMPARE(chmod(qPrintable(path("")), 0755), 0);
    makeShared(path("shared"));
    write(path("mine"), "precious", 0, 0644);
    mLaunch = std::make_unique<Launch>(mInstallation->launcher());
    mLaunch->setVariable(text("ZORV_HOST"), text("alpha"));
    mLaunch->setVariable(text("ZORV_SESSION_PATH"), path("shared"));
    mLaunch->setVariable(text("ZORV_MPIRUN_LOG"), path("shared/log"));
}

void NeighboursTest::launch()
{
    mLaunch->setHelperActions(text("--print started"));
    mLaunch->run();
    QCOMPARE(mLaunch->status(), 0);
    QCOMPARE(mLaunch->output(), QByteArray("started\n"));
}

void NeighboursTest::refused_data()
{
    QTest::addColumn<bool>("log");
    QTest::addColumn<int>("thing");
    QTest::addColumn<QByteArray>("cause");
    const QByteArray foreign = "belongs to another user";
    const QByteArray aLink = "Too many levels of symbolic links";
    const QByteArray noFile = "is no regular file";
    for (bool log : {true, false}) {
        const auto row = [log](const char* name, Thing thing, const QByteArray& cause) {
            QTest::addRow("%s, %s", log ? "log" : "marker", name) << log << int(thing) << cause;
        };
        row("link", LinkToMine, log ? foreign : aLink);
        row("link to a file that is not there", LinkToNothing, log ? foreign : aLink);
        row("FIFO", Fifo, noFile);
        row("FIFO with a reader", ReadFifo, noFile);
        row("file", File, foreign);
        row("empty file", EmptyFile, foreign);
        row("another name of my file", HardLink, "has other names, where others can write");
    }
}

void NeighboursTest::refused()
{
    QFETCH(bool, log);
    QFETCH(int, thing);
    QFETCH(QByteArray, cause);
    const QString name = log ? logName() : path("shared/restart-supported");
    int reader = -1;
    switch (thing) {
    case LinkToMine:
        link(path("mine"), name, stranger);
        break;
    case LinkToNothing:
        link(path("nothing"), name, stranger);
        break;
    case Fifo:
    case ReadFifo:
        QCOMPARE(mkfifo(qPrintable(name), 0666), 0);
        QCOMPARE(chown(qPrintable(name), stranger, stranger), 0);
        reader = thing == Fifo ? -1 : open(qPrintable(name), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        break;
    case File:
        write(name, "of a stranger", stranger);
        break;
    case EmptyFile:
        write(name, "", stranger);
        break;
    case HardLink:
        QCOMPARE(::link(qPrintable(path("mine")), qPrintable(name)), 0);
        break;
    }
    struct stat before;
    QCOMPARE(lstat(qPrintable(name), &before), 0);
    launch();
    // The kernel may refuse first, see fs.protected_* in proc(5).
    const QByteArray denied = QFile::encodeName(name) + ": Permission denied\n";
    if (mLaunch->errors() != denied) {
        QCOMPARE(mLaunch->errors(), QFile::encodeName(name) + ": " + cause + '\n');
    }
    struct stat after;
    QCOMPARE(lstat(qPrintable(name), &after), 0);
    QCOMPARE(after.st_ino, before.st_ino);
    QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    QCOMPARE(content(path("mine")), QByteArray("precious"));
    QVERIFY(!QFile::exists(path("nothing")));
    if (thing == File) {
        QCOMPARE(content(name), QByteArray("of a stranger"));
    }
    close(reader);
}

void NeighboursTest::trusted_data()
{
    QTest::addColumn<uid_t>("owner");
    QTest::addColumn<uid_t>("directoryOwner");
    QTest::addColumn<bool>("isLink");
    const uid_t me = 0;
    QTest::newRow("my link") << me << me << true;
    QTest::newRow("my file") << me << me << false;
    QTest::newRow("link of the directory's owner") << stranger << stranger << true;
    QTest::newRow("file of the directory's owner") << stranger << stranger << false;
}

void NeighboursTest::trusted()
{
    QFETCH(uid_t, owner);
    QFETCH(uid_t, directoryOwner);
    QFETCH(bool, isLink);
    makeShared(path("shared"), directoryOwner);
    if (isLink) {
        link(path("mine"), logName(), owner);
    } else {
        write(logName(), "old", owner);
    }
    write(path("shared/restart-supported"), "old", owner);
    launch();
    QCOMPARE(mLaunch->errors(), QByteArray());
    QCOMPARE(content(logName()), QByteArray());
    QCOMPARE(content(path("mine")), isLink ? QByteArray() : QByteArray("precious"));
    QCOMPARE(content(path("shared/restart-supported")), QByteArray());
}

void NeighboursTest::savedSessionFile_data()
{
    QTest::addColumn<int>("thing");
    QTest::addColumn<bool>("saved");
    QTest::newRow("file") << int(File) << false;
    QTest::newRow("link") << int(LinkToMine) << false;
    QTest::newRow("nothing but links at the latest names") << int(LinkToNothing) << true;
}

// As a user without root's rights, in a directory where nobody can take away what
// belongs to others.
void NeighboursTest::savedSessionFile()
{
    QFETCH(int, thing);
    QFETCH(bool, saved);
    const QString name = path("shared/alpha-3");
    const QString latest = path("shared/latest");
    write(path("mine"), "precious", user);
    link(path("mine"), latest, stranger);
    link(path("mine"), path("shared/alpha-latest"), stranger);
    if (thing == File) {
        write(name, "of a stranger", stranger);
    } else if (thing == LinkToMine) {
        link(path("mine"), name, stranger);
    }
    const pid_t child = fork();
    if (child == 0) {
        qputenv("ZORV_SESSION_PATH", QFile::encodeName(path("shared")));
        BackendUserData session;
        static_cast<UserData&>(session).load(
            QString(), text("<session host='alpha' session='3' cookie='secret'/>"));
        const bool ok = setgid(user) == 0 && setuid(user) == 0;
        _exit(!ok ? 2 : session.save(QString()) ? 1 : 0);
    }
    int status = -1;
    QCOMPARE(waitpid(child, &status, 0), child);
    QCOMPARE(WEXITSTATUS(status), saved ? 1 : 0);
    QCOMPARE(content(path("mine")), QByteArray("precious"));
    QCOMPARE(QFile::symLinkTarget(latest), path("mine"));
    QCOMPARE(content(name).contains("secret"), saved);
    QCOMPARE(QFileInfo(name).ownerId(), saved ? user : thing == File ? stranger : user);
    // No temporary file is left.
    QCOMPARE(QDir(path("shared")).entryList(QDir::Files | QDir::System).size(), 3);
}

int main(int argc, char** argv)
{
    QTemporaryFile probe;
    if (geteuid() != 0 || !probe.open() || fchown(probe.handle(), stranger, stranger) == -1) {
        fputs("Only root can be several users\n", stderr);
        return Namespace::Skipped;
    }
    NeighboursTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_neighbours.moc"
