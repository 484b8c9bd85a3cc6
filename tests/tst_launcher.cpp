#include "branding/branding.h"
#include "mpirun/restartableprocess.h"
#include "version/hgid.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

using Start = void (*)(RestartableProcess&);
Q_DECLARE_METATYPE(Start)

class LauncherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileTellsTheBuild_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("version") << QByteArray(ZORV_VERSION);
        QTest::newRow("changeset") << QByteArray(HGID);
        QTest::newRow("copyright") << Branding::CopyrightTalvoraSoftware.toUtf8();
    }

    void fileTellsTheBuild()
    {
        QFETCH(QByteArray, text);
        QFile launcher(u"" ZORV_MPIRUN ""_s);
        QVERIFY(launcher.open(QIODevice::ReadOnly));
        QVERIFY(launcher.readAll().contains('\0' + text + '\0'));
    }

    void restartRepeatsTheLastStart_data()
    {
        QTest::addColumn<Start>("start");
        QTest::addColumn<QIODevice::OpenMode>("mode");
        QTest::addColumn<QByteArray>("output");
        const Start commandLine = [](RestartableProcess& process) {
            process.start(u"printf \"<%s>\" \"a  b\" c"_s, QIODevice::ReadWrite);
        };
        QTest::newRow("command line")
            << commandLine << QIODevice::OpenMode(QIODevice::ReadWrite) << QByteArray("<a  b><c>");
        const Start arguments = [](RestartableProcess& process) {
            process.start(u"printf"_s, {u"<%s>"_s, u"a b"_s, u""_s, u"\"c\""_s},
                          QIODevice::ReadOnly);
        };
        QTest::newRow("arguments") << arguments << QIODevice::OpenMode(QIODevice::ReadOnly)
                                   << QByteArray("<a b><><\"c\">");
    }

    void restartRepeatsTheLastStart()
    {
        QFETCH(Start, start);
        QFETCH(QByteArray, output);
        RestartableProcess process;
        process.start(u"printf other"_s, QIODevice::ReadWrite);
        QVERIFY(process.waitForFinished());
        process.start(u"printf"_s, {u"other"_s}, QIODevice::ReadOnly);
        QVERIFY(process.waitForFinished());
        start(process);
        for (int i = 0; i < 3; ++i) {
            QTEST(process.openMode(), "mode");
            QVERIFY(process.waitForFinished());
            QCOMPARE(process.readAll(), output);
            process.restart();
        }
        QVERIFY(process.waitForFinished());
    }

    void commandLineWithoutWordsFailsToStart()
    {
        RestartableProcess process;
        process.start(u"  "_s, QIODevice::ReadOnly);
        QCOMPARE(process.error(), QProcess::FailedToStart);
    }
};

QTEST_GUILESS_MAIN(LauncherTest)
#include "tst_launcher.moc"
