#include "zorv-util/qblockingprocess.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

using Start = void (*)(QBlockingProcess&);
using Read = QByteArray (*)(QBlockingProcess&);
Q_DECLARE_METATYPE(Start)
Q_DECLARE_METATYPE(Read)

class UtilTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWaitAfterEveryStart_data()
    {
        QTest::addColumn<Start>("start");
        const auto row = [](const char* name, Start start) { QTest::newRow(name) << start; };
        row("command", [](QBlockingProcess& process) {
            process.startCommand(u"sh -c \"sleep 0.1; echo hi\""_s);
        });
        row("open() by the base class", [](QBlockingProcess& process) {
            process.setProgram(u"sh"_s);
            process.setArguments({u"-c"_s, u"sleep 0.1; echo hi"_s});
            static_cast<QIODevice&>(process).open(QIODevice::ReadOnly);
        });
        row("second start, the first output unread", [](QBlockingProcess& process) {
            process.start(u"echo"_s, {u"first"_s});
            process.waitForFinished();
            process.start(u"echo"_s, {u"hi"_s});
        });
    }

    void readsWaitAfterEveryStart()
    {
        QFETCH(Start, start);
        QBlockingProcess process;
        start(process);
        QCOMPARE(process.readAll(), "hi\n");
    }

    void everyReadWaits_data()
    {
        QTest::addColumn<Read>("read");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char* name, Read read, const QByteArray& expected) {
            QTest::newRow(name) << read << expected;
        };
        const auto all = [](QBlockingProcess& process) { return process.readAll(); };
        row("readAll()", all, "one\ntwo\nthree");
        const auto byTextStream = [](QBlockingProcess& process) {
            QByteArray lines;
            for (QTextStream stream(&process); !stream.atEnd();) {
                lines += stream.readLine().toUtf8() + '|';
            }
            return lines;
        };
        row("QTextStream", byTextStream, "one|two|three|");
        const auto afterWait = [](QBlockingProcess& process) {
            while (!process.canReadLine() && process.waitForReadyRead(60000)) {
            }
            return process.read(process.bytesAvailable());
        };
        row("canReadLine() and waitForReadyRead()", afterWait, "one\n");
        const auto error = [](QBlockingProcess& process) { return process.readAllStandardError(); };
        row("readAllStandardError()", error, "error\n");
    }

    // The process closes its output and runs on.
    void everyReadWaits()
    {
        QFETCH(Read, read);
        QBlockingProcess process;
        process.start(u"sh"_s,
                      {u"-c"_s, u"sleep 0.1; echo one; sleep 0.1; echo error >&2; echo two; "
                                "printf three; exec >&- 2>&-; exec sleep 60"_s});
        QTEST(read(process), "expected");
        QCOMPARE(process.state(), QProcess::Running);
        process.close();
    }

    void otherStreamsAreLeftAlone()
    {
        const QTemporaryDir directory;
        QFile file(directory.filePath(u"output"_s));
        QBlockingProcess process;
        process.setStandardOutputFile(file.fileName());
        process.start(u"sh"_s, {u"-c"_s, u"echo output; echo error >&2"_s});
        QCOMPARE(process.readAllStandardError(), "error\n");
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "output\n");
    }
};

QTEST_GUILESS_MAIN(UtilTest)
#include "tst_util.moc"
