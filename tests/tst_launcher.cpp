#include "branding/branding.h"
#include "mpirun/restartableprocess.h"
#include "tests/support/helpers.h"
#include "version/hgid.h"

#include <QTest>

using namespace Qt::StringLiterals;

class LauncherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileTellsTheBuild()
    {
        const QByteArray launcher = content(u"" ZORV_MPIRUN ""_s);
        QVERIFY(launcher.contains('\0' + QByteArray(ZORV_VERSION) + '\0'));
        QVERIFY(launcher.contains('\0' + QByteArray(HGID) + '\0'));
        QVERIFY(launcher.contains('\0' + Branding::CopyrightTalvoraSoftware.toUtf8() + '\0'));
    }

    // The launcher's restarts repeat a start with arguments.
    void restartRepeatsACommandLine()
    {
        RestartableProcess process;
        process.start(u"printf \"<%s>\" \"a  b\" c"_s, QIODevice::ReadWrite);
        QVERIFY(process.waitForFinished());
        process.restart();
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.readAll(), "<a  b><c>");
    }
};

QTEST_GUILESS_MAIN(LauncherTest)
#include "tst_launcher.moc"
