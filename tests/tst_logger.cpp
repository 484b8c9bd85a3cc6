// Messages: where they go and what they do to the process.

#include "common/logger.h"
#include "tests/support/texts.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Logged when static objects are gone.
static const char* farewell = nullptr;

// What a child of this program does, what it logs then, and its exit code or signal.
// clang-format off
static const struct { void (*act)(); const char* log; int status; } rows[] = {
    {[] { qDebug("a%%b"); qInfo("\xc3\xa9"); qWarning("c"); qCritical("d"); }, "a%b\n\xc3\xa9\nc\nd\n", 7},
    {[] { qWarning("a QIconvCodec:: No such slot"); qWarning("c"); }, "c\n", 7},
    {[] { farewell = "bye"; qWarning("a"); }, "a\nbye\n", 7},
    {[] { qFatal("no ASSERT"); }, "no ASSERT\n", 1},
    {[] { qFatal("ASSERT: \"x\" in file y"); }, "ASSERT: \"x\" in file y\n", SIGABRT},
    {[] { qCritical("Deadlock detected"); }, "Deadlock detected\n", SIGABRT},
    {[] { QObject::connect(qApp, SIGNAL(aboutToQuit()), qApp, "1no()"); },
     "QObject::connect: No such slot QCoreApplication::no()\n", SIGABRT},
};
// clang-format on

// Runs such a child; its output, its errors and its status.
static QByteArray outcome(const QString& program, const QString& logFile, size_t row)
{
    QProcess child;
    child.start(program, {logFile, QString::number(row)});
    child.waitForFinished();
    return child.readAllStandardOutput() + child.readAllStandardError() +
           QByteArray::number(child.exitCode());
}

class LoggerTest : public QObject
{
    Q_OBJECT

    const QString mProgram = QCoreApplication::applicationFilePath();
    const QTemporaryDir mDir;

private Q_SLOTS:
    void messagesInAProcess()
    {
        // They would change Qt's own output.
        qputenv("QT_LOGGING_RULES", "*=false");
        qputenv("QT_MESSAGE_PATTERN", "pattern");
        QFile log(mDir.filePath(u"log"_s));
        for (size_t i = 0; i < std::size(rows); ++i) {
            QVERIFY(writeFile(log.fileName(), "old content\n"));
            QCOMPARE(outcome(mProgram, log.fileName(), i),
                     QByteArray("early\n") + rows[i].log + QByteArray::number(rows[i].status));
            QVERIFY(log.open(QIODevice::ReadOnly));
            QCOMPARE(log.readAll(), rows[i].log);
            log.close();
        }
        QCOMPARE(outcome(mProgram, {}, 1), "early\nLog file name is empty\nc\n7");
    }

    void recordForASlowReader()
    {
        const QByteArray sent = QByteArray("<a> %s &\n").repeated(100000);
        int ends[2];
        QCOMPARE(pipe2(ends, O_CLOEXEC), 0);
        QCOMPARE(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
        const pid_t writer = fork();
        if (writer == 0) {
            Logger::xmlLog(ends[1], QtWarningMsg, sent.constData());
            _exit(0);
        }
        close(ends[1]);
        QFile reader;
        QVERIFY(reader.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle));
        QVERIFY(reader.readAll().endsWith("\" type=\"warning\">" + sent + "</debug>"));
        QCOMPARE(waitpid(writer, nullptr, 0), writer);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        LoggerTest test;
        return QTest::qExec(&test, argc, argv);
    }
    // Called last of all: after the destructors of what is made from here on.
    atexit([] { farewell ? qWarning("%s", farewell) : void(); });
    Logger::installPlainMsgHandler();
    qDebug("early");
    Logger::installQtMsgHandler();
    Logger::installLogMsgHandler(QFile::decodeName(argv[1]));
    rows[QByteArray(argv[2]).toUInt()].act();
    return 7;
}

#include "tst_logger.moc"
