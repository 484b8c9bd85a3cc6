// The launcher from outside: the real program, real helpers, real signals.

#include "tests/support/installation.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

class LauncherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsItsInstallation_data();
    void findsItsInstallation();
    void passesArgumentsOn_data();
    void passesArgumentsOn();
    void reportsAHelperThatDoesNotStart_data();
    void reportsAHelperThatDoesNotStart();
    void warnsOfMissingDirectories();
    void endsWithZeroWhateverTheHelperDoes_data();
    void endsWithZeroWhateverTheHelperDoes();
    void forwardsOutputComplete();
    void helperFindsWhatTheLauncherWasStartedWith();
    void loadsNothingFromTheWorkingDirectory();
};

namespace {

QString record(const Installation& installation)
{
    return installation.path(QStringLiteral("record"));
}

QString recordAction(const Installation& installation)
{
    return QStringLiteral("--record ") + record(installation);
}

} // namespace

void LauncherTest::findsItsInstallation_data()
{
    QTest::addColumn<QString>("binName");
    QTest::addColumn<bool>("throughLink");
    QTest::addColumn<QByteArray>("warning");

    // Only an installation has a lib directory to miss.
    const QByteArray warning("Unable to find directory '%s/lib'.\n"
                             "Your Velmor product installation may be incomplete or corrupted.\n");
    QTest::newRow("bin is an installation") << QStringLiteral("bin") << false << warning;
    QTest::newRow("bin through a link") << QStringLiteral("bin") << true << warning;
    QTest::newRow("Bin is flat") << QStringLiteral("Bin") << false << QByteArray();
    QTest::newRow("bin2 is flat") << QStringLiteral("bin2") << false << QByteArray();
}

void LauncherTest::findsItsInstallation()
{
    QFETCH(QString, binName);
    QFETCH(bool, throughLink);
    QFETCH(QByteArray, warning);

    const Installation installation(binName);
    const Installation other;
    QDir(installation.path(QString())).rmdir(QStringLiteral("lib"));
    const QString link = other.path(QStringLiteral("bin/link"));
    QFile::link(installation.launcher(), link);
    Launch launch(throughLink ? link : installation.launcher());
    launch.setHelperActions(recordAction(installation));
    // Settings that the user made for another Qt program.
    launch.setVariable(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("*=false"));
    launch.setVariable(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("pattern"));
    launch.run();
    QCOMPARE(launch.status(), 0);
    const QByteArray root = QFile::encodeName(QDir(installation.path(QString())).path());
    QCOMPARE(launch.errors(), QByteArray(warning).replace("%s", root));
    const QList<QByteArray> expected{QFile::encodeName(installation.helper()), "--zorvmpirun"};
    QCOMPARE(readRecord(record(installation)), expected);
}

void LauncherTest::passesArgumentsOn_data()
{
    QTest::addColumn<QList<QByteArray>>("arguments");

    QByteArray everyByte;
    for (int byte = 1; byte < 256; ++byte) {
        everyByte += static_cast<char>(byte);
    }
    QList<QByteArray> many;
    for (int i = 0; i < 10000; ++i) {
        many += QByteArray::number(i);
    }
    QTest::newRow("none") << QList<QByteArray>();
    QTest::newRow("blanks, quotes, line ends, nothing")
        << QList<QByteArray>{"a b", "", "'c\"", "d\ne", "\\", "$HOME", "*"};
    QTest::newRow("every byte") << QList<QByteArray>{everyByte, "\xff\xfe"};
    QTest::newRow("10 000") << many;
    QTest::newRow("one of 131 000 bytes") << QList<QByteArray>{QByteArray(131000, 'x')};
    QTest::newRow("those that Qt takes for itself")
        << QList<QByteArray>{"-qmljsdebugger=x", "--qmljsdebugger", "y", "-platform", "z"};
    QTest::newRow("options of the launcher") << QList<QByteArray>{
        "--zorvport", "4242", "--zorvmpirun", "-np", "2", "a.out", "--zorvport"};
}

void LauncherTest::passesArgumentsOn()
{
    QFETCH(QList<QByteArray>, arguments);

    const Installation installation;
    Launch launch(installation.launcher());
    launch.setHelperActions(recordAction(installation));
    launch.run(arguments);
    QCOMPARE(launch.status(), 0);
    QCOMPARE(launch.errors(), QByteArray());
    QCOMPARE(readRecord(record(installation)).mid(2), arguments);
}

void LauncherTest::reportsAHelperThatDoesNotStart_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("executable");
    QTest::addColumn<QByteArray>("error");

    QTest::newRow("missing") << QByteArray() << false << QByteArray("No such file or directory");
    QTest::newRow("not executable")
        << QByteArray("#!/bin/sh\n") << false << QByteArray("Permission denied");
    QTest::newRow("garbage") << QByteArray("\x01\x02garbage") << true
                             << QByteArray("Exec format error");
    QTest::newRow("interpreter missing")
        << QByteArray("#!/nonexistent/sh\n") << true << QByteArray("No such file or directory");
}

void LauncherTest::reportsAHelperThatDoesNotStart()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, executable);
    QFETCH(QByteArray, error);

    const Installation installation;
    QFile helper(installation.helper());
    helper.remove();
    if (!content.isNull()) {
        QVERIFY(helper.open(QIODevice::WriteOnly));
        helper.write(content);
        helper.setPermissions(executable ? QFile::ReadOwner | QFile::ExeOwner : QFile::ReadOwner);
        helper.close();
    }
    Launch launch(installation.launcher());
    launch.run();
    QCOMPARE(launch.status(), 1);
    QCOMPARE(launch.errors().count('\n'), 1);
    QVERIFY2(launch.errors().startsWith(QFile::encodeName(installation.helper()) + ": "),
             launch.errors().constData());
    QVERIFY2(launch.errors().endsWith(error + "\n"), launch.errors().constData());
}

void LauncherTest::warnsOfMissingDirectories()
{
    const Installation installation;
    const QDir root(installation.path(QString()));
    root.rmdir(QStringLiteral("libexec"));
    root.rmdir(QStringLiteral("lib"));
    Launch launch(installation.launcher());
    launch.run();
    const QList<QByteArray> lines = launch.errors().split('\n');
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines.at(0), "Unable to find directory '" +
                              QFile::encodeName(root.filePath(QStringLiteral("lib"))) + "'.");
    QCOMPARE(lines.at(2), "Unable to find directory '" +
                              QFile::encodeName(root.filePath(QStringLiteral("libexec"))) + "'.");
}

void LauncherTest::endsWithZeroWhateverTheHelperDoes_data()
{
    QTest::addColumn<QString>("actions");
    QTest::newRow("exits with 3") << QStringLiteral("--exit 3");
    QTest::newRow("exits with 255") << QStringLiteral("--exit 255");
    QTest::newRow("is killed") << QStringLiteral("--signal 9");
    QTest::newRow("crashes") << QStringLiteral("--signal 11");
}

void LauncherTest::endsWithZeroWhateverTheHelperDoes()
{
    QFETCH(QString, actions);

    const Installation installation;
    Launch launch(installation.launcher());
    launch.setHelperActions(actions);
    launch.run();
    QCOMPARE(launch.status(), 0);
    QCOMPARE(launch.errors(), QByteArray());
}

void LauncherTest::forwardsOutputComplete()
{
    const Installation installation;
    Launch launch(installation.launcher());
    launch.setHelperActions(QStringLiteral("--flood 3000000 --flood-error 2000000 --signal 6"));
    launch.run();
    QCOMPARE(launch.output().size(), 3000000);
    QCOMPARE(launch.errors().size(), 2000000);
}

void LauncherTest::helperFindsWhatTheLauncherWasStartedWith()
{
    const Installation installation;
    const auto prepare = [] {
        signal(SIGHUP, SIG_IGN);
        signal(SIGINT, SIG_IGN);
        signal(SIGPIPE, SIG_IGN);
        signal(SIGCHLD, SIG_IGN);
        sigset_t mask;
        sigemptyset(&mask);
        sigaddset(&mask, SIGTERM);
        sigaddset(&mask, SIGUSR1);
        sigprocmask(SIG_SETMASK, &mask, nullptr);
    };
    const auto stateOf = [&](const QString& program, bool strayDescriptor) {
        const QString file = installation.path(QStringLiteral("state"));
        QFile::remove(file);
        Launch launch(program);
        launch.setHelperActions(QStringLiteral("--record-state ") + file);
        launch.process().setWorkingDirectory(installation.path(QStringLiteral("session")));
        launch.setBeforeExec([&] {
            prepare();
            if (strayDescriptor) {
                fcntl(STDIN_FILENO, F_DUPFD, 100);
            }
        });
        launch.run();
        QFile state(file);
        return state.open(QIODevice::ReadOnly) ? state.readAll() : QByteArray();
    };
    // This test has descriptors of its own to give: the first line differs.
    const QByteArray direct = stateOf(installation.helper(), false);
    const QByteArray launched = stateOf(installation.launcher(), true);
    const QByteArray streamsOnly("descriptors 0 1 2\n");
    QCOMPARE(launched.left(streamsOnly.size()), streamsOnly);
    QVERIFY(direct.contains("ignored 17"));
    QCOMPARE(launched.mid(launched.indexOf('\n')), direct.mid(direct.indexOf('\n')));
}

void LauncherTest::loadsNothingFromTheWorkingDirectory()
{
    const Installation installation;
    for (const QString& library :
         {QStringLiteral("libc.so.6"), QStringLiteral("libQt6Core.so.6")}) {
        QFile garbage(installation.path(QStringLiteral("session/") + library));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
    }
    Launch launch(installation.launcher());
    launch.process().setWorkingDirectory(installation.path(QStringLiteral("session")));
    launch.run();
    QCOMPARE(launch.errors(), QByteArray());
    QCOMPARE(launch.status(), 0);
}

QTEST_GUILESS_MAIN(LauncherTest)
#include "tst_launcher.moc"
