#include "zorv-util/qblockingprocess.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {

// It closes its output and runs on.
const QStringList slowScript = {u"-c"_s,
                                u"printf o; sleep 0.1; echo ne; sleep 0.1; "
                                "echo error >&2; printf two; exec >&- 2>&-; exec sleep 60"_s};

} // namespace

class UtilTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QBlockingProcess> mProcess;

private Q_SLOTS:
    void init() { mProcess = std::make_unique<QBlockingProcess>(); }

    void cleanup()
    {
        mProcess->close();
        mProcess.reset();
    }

    void readAllWaitsForTheEndOfTheOutput()
    {
        mProcess->start(u"sh"_s, slowScript);
        QCOMPARE(mProcess->readAll(), "one\ntwo");
        QCOMPARE(mProcess->readAllStandardError(), "error\n");
        QCOMPARE(mProcess->state(), QProcess::Running);
    }

    void readLineWaitsForTheEndOfALine()
    {
        mProcess->start(u"sh"_s, slowScript);
        QCOMPARE(mProcess->readLine(), "one\n");
        QCOMPARE(mProcess->readLine(), "two");
    }

    void textStreamWaitsForLines()
    {
        mProcess->start(u"sh"_s, slowScript);
        QTextStream stream(mProcess.get());
        QStringList lines;
        while (!stream.atEnd()) {
            lines += stream.readLine();
        }
        QCOMPARE(lines, QStringList({u"one"_s, u"two"_s}));
    }

    void waitForReadyReadEndsWithALine()
    {
        mProcess->start(u"sh"_s, slowScript);
        while (!mProcess->canReadLine() && mProcess->waitForReadyRead(60000)) {
        }
        QCOMPARE(mProcess->read(mProcess->bytesAvailable()), "one\n");
    }

    void readsWaitAfterOtherKindsOfStart()
    {
        mProcess->startCommand(u"sh -c \"sleep 0.1; echo command\""_s);
        QCOMPARE(mProcess->readAll(), "command\n");
        mProcess->waitForFinished();
        mProcess->setProgram(u"sh"_s);
        mProcess->setArguments({u"-c"_s, u"sleep 0.1; echo unread"_s});
        static_cast<QIODevice&>(*mProcess).open(QIODevice::ReadOnly);
        QVERIFY(!mProcess->atEnd());
        mProcess->waitForFinished();
        mProcess->start(u"echo"_s, {u"last"_s});
        QCOMPARE(mProcess->readAll(), "last\n");
    }

    void otherStreamsAreLeftAlone()
    {
        const QTemporaryDir directory;
        QFile file(directory.filePath(u"output"_s));
        mProcess->setStandardOutputFile(file.fileName());
        mProcess->start(u"sh"_s, {u"-c"_s, u"echo output; echo error >&2"_s});
        QCOMPARE(mProcess->readAllStandardError(), "error\n");
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "output\n");
    }
};

QTEST_GUILESS_MAIN(UtilTest)
#include "tst_util.moc"
