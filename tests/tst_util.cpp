#include "zorv-util/qblockingprocess.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// It closes its output and runs on.
const QStringList slowScript = {u"-c"_s, u"sleep 0.1; echo one; sleep 0.1; echo error >&2; "
                                         "printf two; exec >&- 2>&-; exec sleep 60"_s};

} // namespace

class UtilTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readAllWaitsForTheEndOfTheOutput()
    {
        QBlockingProcess process;
        process.start(u"sh"_s, slowScript);
        QCOMPARE(process.readAll(), "one\ntwo");
        QCOMPARE(process.readAllStandardError(), "error\n");
        QCOMPARE(process.state(), QProcess::Running);
        process.close();
    }

    void waitForReadyReadEndsWithALine()
    {
        QBlockingProcess process;
        process.start(u"sh"_s, slowScript);
        while (!process.canReadLine() && process.waitForReadyRead(60000)) {
        }
        QCOMPARE(process.read(process.bytesAvailable()), "one\n");
        process.close();
    }

    void readsWaitAfterOtherKindsOfStart()
    {
        QBlockingProcess process;
        process.startCommand(u"sh -c \"sleep 0.1; echo command\""_s);
        QCOMPARE(process.readAll(), "command\n");
        process.waitForFinished();
        process.setProgram(u"echo"_s);
        process.setArguments({u"open"_s});
        static_cast<QIODevice&>(process).open(QIODevice::ReadOnly);
        QCOMPARE(process.readAll(), "open\n");
    }
};

QTEST_GUILESS_MAIN(UtilTest)
#include "tst_util.moc"
