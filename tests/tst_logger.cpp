// Messages: where they go and what they do to the process.

#include "common/logger.h"
#include "tests/support/descriptorlimit.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Logged when static objects are gone.
static const char* farewell = nullptr;

// What a child of this program does, what it logs then, and its exit code or,
// negative, its signal.
// clang-format off
static const struct { void (*act)(); const char* log; int status; } rows[] = {
    {[] { qDebug("a%%b"); qInfo("\xc3\xa9"); qWarning("c"); qCritical("d"); }, "a%b\n\xc3\xa9\nc\nd\n", 7},
    {[] { qWarning("a QIconvCodec:: No such slot"); qWarning("c"); }, "c\n", 7},
    {[] { farewell = "bye"; qWarning("a"); }, "a\nbye\n", 7},
    {[] { qFatal("no ASSERT"); }, "no ASSERT\n", 1},
    {[] { qFatal("ASSERT: \"x\" in file y"); }, "ASSERT: \"x\" in file y\n", -SIGABRT},
    {[] { qWarning("x No such slot y"); }, "x No such slot y\n", -SIGABRT},
    {[] { qDebug("No such signal"); }, "No such signal\n", -SIGABRT},
    {[] { qCritical("Deadlock detected"); }, "Deadlock detected\n", -SIGABRT},
    {[] { QObject::connect(qApp, SIGNAL(aboutToQuit()), qApp, "1no()"); },
     "QObject::connect: No such slot QCoreApplication::no()\n", -SIGABRT},
    {[] { Logger::xmlLog(STDOUT_FILENO, QtWarningMsg, "a <b> & %s"); }, "", 7},
};
// clang-format on

// Runs such a child; its output, its errors and its status.
static QByteArray outcome(const QString& program, const QString& logFile, size_t row)
{
    QProcess child;
    child.start(program, {logFile, QString::number(row)});
    child.waitForFinished();
    const int sign = child.exitStatus() == QProcess::CrashExit ? -1 : 1;
    return child.readAllStandardOutput() + child.readAllStandardError() +
           QByteArray::number(sign * child.exitCode());
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
        for (size_t i = 0; i < std::size(rows) - 1; ++i) {
            QVERIFY(writeFile(log.fileName(), "old content\n"));
            QCOMPARE(outcome(mProgram, log.fileName(), i),
                     QByteArray("early\n") + rows[i].log + QByteArray::number(rows[i].status));
            QVERIFY(log.open(QIODevice::ReadOnly));
            QCOMPARE(log.readAll(), rows[i].log);
            log.close();
        }
        QCOMPARE(outcome(mProgram, {}, 1), "early\nLog file name is empty\nc\n7");
        QCOMPARE(outcome(mProgram, u"/none/x"_s, 1),
                 "early\n/none/x: No such file or directory\nc\n7");

        // The program's name is longer than a record's source.
        const QString program = mDir.filePath(QString(70, u'n'));
        QVERIFY(QFile::copy(mProgram, program));
        const QRegularExpression pattern(
            uR"=(^<debug time="[0-2]\d:[0-5]\d:[0-6]\d\.(0|[1-9]\d{0,2})" source="n{64}" )="
            uR"=(pid="[1-9]\d+" type="warning">a <b> & %s</debug>early)="_s);
        const QByteArray record = outcome(program, {}, std::size(rows) - 1);
        QVERIFY2(pattern.match(QString::fromUtf8(record)).hasMatch(), record);
    }

    void logFileName()
    {
        // clang-format off
        const struct { QByteArray variables; const char* expected; } names[] = {
            {"ZORV_TST_LOG=/tmp/run", "/tmp/run-H.log"},
            {"ZORV_TST_LOG=run.log.log", "run.log-H.log"},
            {"ZORV_TST_LOG=r.LOG", "r.LOG-H.log"},
            {"PELK_TST_LOG= TALVORA_TST_LOG=x", "-H.log"},
            {"PELK_LOGS=/tmp", "/tmp/prefix-H.log"},
            {"TALVORA_TST_LOG=x ZORV_LOGS=/tmp", "x-H.log"},
            {"ZORV_LOGS=/nonexistent PELK_LOGS=/tmp", nullptr},
            {"X=", nullptr},
        };
        // clang-format on
        for (const auto& row : names) {
            clearSettings({"TST_LOG", "LOGS"});
            for (const QByteArray& variable : row.variables.split(' ')) {
                const QByteArrayList parts = variable.split('=');
                qputenv(parts.first().constData(), parts.last());
            }
            const QString name = Logger::logFileName("TST_LOG", u"prefix"_s, u"-H"_s);
            QCOMPARE(name, QString::fromLatin1(row.expected));
            QCOMPARE(name.isNull(), !row.expected);
        }
        QVERIFY(Logger::logFileName(nullptr, u"prefix"_s, QString()).isNull());
    }

    void handlers()
    {
        static QByteArray received;
        static const QtMsgHandler note = [](QtMsgType, const char* message) {
            received += QByteArray(message) + ';';
        };
        const QtMsgHandler noteTwiceFromNowOn = [](QtMsgType, const char*) {
            received += "first ";
            Logger::removeMsgHandler(note);
            Logger::addMsgHandler(note);
            Logger::addMsgHandler(note);
        };
        Logger::addMsgHandler(noteTwiceFromNowOn);
        Logger::addMsgHandler(note);
        // A call keeps the list that it has found.
        Logger::log(QtDebugMsg, "a");
        Logger::removeMsgHandler(noteTwiceFromNowOn);
        Logger::logf(QtDebugMsg, "%s %d", QByteArray(1000, 'x').constData(), 5);
        for (const char* message : {"b", "c"}) {
            Logger::removeMsgHandler(note);
            Logger::log(QtDebugMsg, message);
        }
        Logger::removeMsgHandler(note);
        QCOMPARE(received, "first a;" + (QByteArray(1000, 'x') + " 5;").repeated(2) + "b;");
    }

    void writesAllToASlowReader()
    {
        QCOMPARE(blocking_write(-1, "x", 1), -1);
        const QByteArray sent = QByteArray("0123456789\n").repeated(100000);
        int ends[2];
        QCOMPARE(pipe2(ends, O_CLOEXEC), 0);
        const pid_t writer = fork();
        if (writer == 0) {
            // A number that no descriptor set of select(2) has.
            const bool ready = allowDescriptor(1500) && dup2(ends[1], 1500) == 1500 &&
                               fcntl(1500, F_SETFL, O_NONBLOCK) == 0;
            _exit(ready &&
                          blocking_write(1500, sent.constData(), size_t(sent.size())) == sent.size()
                      ? 0
                      : 1);
        }
        close(ends[1]);
        QFile reader;
        QVERIFY(reader.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle));
        QVERIFY(reader.readAll() == sent);
        int status = -1;
        QCOMPARE(waitpid(writer, &status, 0), writer);
        QCOMPARE(status, 0);
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
