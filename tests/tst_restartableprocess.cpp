// A process that is started again in the way it was last started.

#include "mpirun/restartableprocess.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

class RestartableProcessTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void restartsAsLastStarted_data();
    void restartsAsLastStarted();
    void laterStartReplacesTheRemembered();
    void commandLineWithoutWords();
    void onlyTheSlotIsNew();

private:
    static QByteArray outputAtEnd(RestartableProcess& process)
    {
        process.waitForFinished();
        return process.readAll();
    }
};

void RestartableProcessTest::restartsAsLastStarted_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("commandLine");
    QTest::addColumn<QByteArray>("output");

    const QStringList arguments{QStringLiteral("-c"),
                                QStringLiteral(R"(printf '<%s>' "$@"; echo merged >&2)"),
                                QStringLiteral("sh"),
                                QStringLiteral("a b"),
                                QString(),
                                QStringLiteral("\"c\"")};
    QTest::newRow("argument list")
        << arguments << QString() << QByteArray("<a b><><\"c\">merged\n");
    QTest::newRow("command line") << QStringList() << QStringLiteral("sh -c \"echo a  b\" x")
                                  << QByteArray("a b\n");
}

void RestartableProcessTest::restartsAsLastStarted()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, commandLine);
    QFETCH(QByteArray, output);

    RestartableProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    QSignalSpy started(&process, &QProcess::started);
    if (commandLine.isNull()) {
        process.start(QStringLiteral("/bin/sh"), arguments, QIODevice::ReadOnly);
    } else {
        process.start(commandLine, QIODevice::ReadOnly);
    }
    QCOMPARE(outputAtEnd(process), output);
    for (int i = 0; i < 3; ++i) {
        process.restart();
        QCOMPARE(process.openMode(), QIODevice::ReadOnly);
        QCOMPARE(outputAtEnd(process), output);
    }
    QCOMPARE(started.count(), 4);
}

void RestartableProcessTest::laterStartReplacesTheRemembered()
{
    RestartableProcess process;
    process.start(QStringLiteral("echo"), {QStringLiteral("list")}, QIODevice::ReadWrite);
    QCOMPARE(outputAtEnd(process), QByteArray("list\n"));
    process.start(QStringLiteral("echo line"), QIODevice::ReadOnly);
    QCOMPARE(outputAtEnd(process), QByteArray("line\n"));
    process.restart();
    QCOMPARE(process.openMode(), QIODevice::ReadOnly);
    QCOMPARE(outputAtEnd(process), QByteArray("line\n"));
    process.start(QStringLiteral("echo"), {QStringLiteral("list")}, QIODevice::ReadWrite);
    process.waitForFinished();
    process.restart();
    QCOMPARE(process.openMode(), QIODevice::ReadWrite);
    QCOMPARE(outputAtEnd(process), QByteArray("list\n"));
}

void RestartableProcessTest::commandLineWithoutWords()
{
    for (const char* commandLine : {"", "  "}) {
        RestartableProcess process;
        QSignalSpy failed(&process, &QProcess::errorOccurred);
        process.start(QLatin1String(commandLine), QIODevice::ReadOnly);
        process.restart();
        QCOMPARE(failed.count(), 2);
        QCOMPARE(process.error(), QProcess::FailedToStart);
        QVERIFY(!process.waitForStarted());
    }
}

void RestartableProcessTest::onlyTheSlotIsNew()
{
    const QMetaObject& meta = RestartableProcess::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 1);
    QCOMPARE(meta.method(meta.methodOffset()).methodSignature(), QByteArray("restart()"));
}

QTEST_GUILESS_MAIN(RestartableProcessTest)
#include "tst_restartableprocess.moc"
