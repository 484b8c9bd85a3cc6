// The decision between a restart and the end, on real files.

#include "mpirun/restartwatcher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <thread>
#include <unistd.h>

class RestartWatcherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decides_data();
    void decides();
    void waitsForTheHold_data();
    void waitsForTheHold();
    void holdThatCannotBeCreated();
};

namespace {

void touch(const QString& fileName)
{
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::WriteOnly));
}

bool isSleeping(pid_t thread)
{
    QFile stat(QStringLiteral("/proc/self/task/%1/stat").arg(thread));
    return stat.open(QIODevice::ReadOnly) && stat.readAll().contains(") S ");
}

} // namespace

void RestartWatcherTest::decides_data()
{
    QTest::addColumn<bool>("named");
    QTest::addColumn<bool>("restartFile");
    QTest::addColumn<QStringList>("expected");

    const QStringList quit{QStringLiteral("quit")};
    QTest::newRow("no session quits") << false << true << quit;
    QTest::newRow("no request quits") << true << false << quit;
    QTest::newRow("a request restarts") << true << true << QStringList{QStringLiteral("restart")};
}

void RestartWatcherTest::decides()
{
    QFETCH(bool, named);
    QFETCH(bool, restartFile);
    QFETCH(QStringList, expected);

    const QTemporaryDir dir;
    const QString restart = dir.filePath(QStringLiteral("restart"));
    const QString hold = dir.filePath(QStringLiteral("restart-hold"));
    RestartWatcher watcher;
    if (named) {
        watcher.setRestartFileName(restart);
        watcher.setRestartHoldFileName(hold);
    }
    if (restartFile) {
        touch(restart);
    }
    QStringList seen;
    connect(&watcher, &RestartWatcher::quit, this, [&] { seen += QStringLiteral("quit"); });
    connect(&watcher, &RestartWatcher::restart, this, [&] {
        seen += QStringLiteral("restart");
        // What the front end may rely on at the moment of the restart.
        QVERIFY(!QFile::exists(restart));
        QCOMPARE(QFileInfo(hold).size(), 0);
        QVERIFY(QFileInfo(hold).isFile());
    });
    watcher.checkForQuickRestart();
    QCOMPARE(seen, expected);
    QCOMPARE(QFile::exists(restart), restartFile && !named);
}

void RestartWatcherTest::waitsForTheHold_data()
{
    QTest::addColumn<bool>("directory");
    QTest::newRow("a file holds") << false;
    QTest::newRow("a directory holds") << true;
}

void RestartWatcherTest::waitsForTheHold()
{
    QFETCH(bool, directory);

    const QTemporaryDir dir;
    const QString restart = dir.filePath(QStringLiteral("restart"));
    const QString hold = dir.filePath(QStringLiteral("restart-hold"));
    RestartWatcher watcher;
    watcher.setRestartFileName(restart);
    watcher.setRestartHoldFileName(hold);
    if (directory) {
        QVERIFY(QDir().mkdir(hold));
    } else {
        touch(hold);
    }
    QSignalSpy restarts(&watcher, &RestartWatcher::restart);
    // The request is made only once the decision sleeps: a decision that did
    // not wait has missed it.
    const pid_t waiting = gettid();
    std::thread frontEnd([&] {
        while (!isSleeping(waiting)) {
            std::this_thread::yield();
        }
        touch(restart);
        QDir().rmdir(hold);
        QFile::remove(hold);
    });
    watcher.checkForQuickRestart();
    frontEnd.join();
    QCOMPARE(restarts.count(), 1);
}

void RestartWatcherTest::holdThatCannotBeCreated()
{
    const QTemporaryDir dir;
    const QString restart = dir.filePath(QStringLiteral("restart"));
    const QString hold = dir.filePath(QStringLiteral("missing/restart-hold"));
    RestartWatcher watcher;
    watcher.setRestartFileName(restart);
    watcher.setRestartHoldFileName(hold);
    touch(restart);
    QSignalSpy quits(&watcher, &RestartWatcher::quit);
    QSignalSpy restarts(&watcher, &RestartWatcher::restart);
    QTest::ignoreMessage(QtCriticalMsg,
                         (hold + QStringLiteral(": No such file or directory")).toLocal8Bit());
    watcher.checkForQuickRestart();
    QCOMPARE(quits.count(), 1);
    QCOMPARE(restarts.count(), 0);
    QVERIFY(!QFile::exists(restart));
}

QTEST_GUILESS_MAIN(RestartWatcherTest)
#include "tst_restartwatcher.moc"
