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
#include <numeric>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

// What a child of this program does: logs each of its arguments.
static int logArguments(const QStringList& arguments)
{
    // Called last of all: after the destructors of what is made from here on.
    static QByteArray farewell;
    atexit([] { farewell.isNull() ? void() : qWarning("%s", farewell.constData()); });
    Logger::installPlainMsgHandler();
    qDebug("early");
    Logger::installQtMsgHandler();
    Logger::installLogMsgHandler(qEnvironmentVariable("TST_LOG_FILE"));
    for (const QString& argument : arguments) {
        const QByteArray bytes = argument.mid(2).toLocal8Bit();
        const char* const text = bytes.constData();
        // clang-format off
        switch (argument.at(0).toLatin1()) {
        case 'd': qDebug("%s", text); break;
        case 'i': qInfo("%s", text); break;
        case 'w': qWarning("%s", text); break;
        case 'c': qCritical("%s", text); break;
        case 'f': qFatal("%s", text);
        case 'q': QObject::connect(qApp, SIGNAL(aboutToQuit()), qApp, text); break;
        case 's': farewell = bytes; break;
        case 'x': Logger::xmlLog(STDOUT_FILENO, QtWarningMsg, text); break;
        }
        // clang-format on
    }
    return 7;
}

// Runs such a child, with variables that would change Qt's own output. Returns its
// output, its errors, and its exit code or, negative, its signal.
static QByteArray runChild(const QString& program, const QString& logFile, const char* arguments)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"TST_LOG_FILE"_s, logFile);
    environment.insert(u"QT_LOGGING_RULES"_s, u"*=false"_s);
    environment.insert(u"QT_MESSAGE_PATTERN"_s, u"pattern"_s);
    child.setProcessEnvironment(environment);
    child.start(program, u"log|%1"_s.arg(QString::fromUtf8(arguments)).split(u'|'));
    child.waitForFinished();
    const int sign = child.exitStatus() == QProcess::CrashExit ? -1 : 1;
    return child.readAllStandardOutput() + child.readAllStandardError() +
           QByteArray::number(sign * child.exitCode());
}

static QByteArray received;

static void note(QtMsgType, const char* message)
{
    received += QByteArray(message) + ';';
}

static void noteTwiceFromNowOn(QtMsgType, const char*)
{
    Logger::removeMsgHandler(note);
    Logger::addMsgHandler(note);
    Logger::addMsgHandler(note);
}

class LoggerTest : public QObject
{
    Q_OBJECT

    const QString mProgram = QCoreApplication::applicationFilePath();
    const QTemporaryDir mDir;

private Q_SLOTS:
    void messagesInAProcess()
    {
        // clang-format off
        const struct { const char* arguments; const char* log; int status; } rows[] = {
            {"d a%b|i \xc3\xa9|w c|c d", "a%b\n\xc3\xa9\nc\nd\n", 7},
            {"w a QIconvCodec:: No such slot|w c", "c\n", 7}, {"s a|w b", "b\na\n", 7},
            {"f a|w b", "a\n", 1}, {"f no ASSERT", "no ASSERT\n", 1},
            {"f ASSERT: \"x\" in file y", "ASSERT: \"x\" in file y\n", -SIGABRT},
            {"w x No such slot y", "x No such slot y\n", -SIGABRT},
            {"d No such signal", "No such signal\n", -SIGABRT},
            {"c Deadlock detected", "Deadlock detected\n", -SIGABRT},
            {"q 1no()", "QObject::connect: No such slot QCoreApplication::no()\n", -SIGABRT},
        };
        // clang-format on
        QFile log(mDir.filePath(u"log"_s));
        for (const auto& row : rows) {
            QVERIFY(writeFile(log.fileName(), "old content\n"));
            QCOMPARE(runChild(mProgram, log.fileName(), row.arguments),
                     QByteArray("early\n") + row.log + QByteArray::number(row.status));
            QVERIFY(log.open(QIODevice::ReadOnly));
            QCOMPARE(log.readAll(), row.log);
            log.close();
        }
        QCOMPARE(runChild(mProgram, {}, "w a"), "early\nLog file name is empty\na\n7");
        QCOMPARE(runChild(mProgram, u"/nonexistent/log"_s, "w a"),
                 "early\n/nonexistent/log: No such file or directory\na\n7");
    }

    void logFileName()
    {
        // clang-format off
        const struct { QByteArray variables; const char* expected; } rows[] = {
            {"ZORV_TST_LOG=/tmp/run", "/tmp/run-H.log"}, {"ZORV_TST_LOG=run.log", "run-H.log"},
            {"ZORV_TST_LOG=run.log.log", "run.log-H.log"}, {"ZORV_TST_LOG=r.LOG", "r.LOG-H.log"},
            {"ZORV_TST_LOG=/tmp", "/tmp-H.log"}, {"PELK_TST_LOG= TALVORA_TST_LOG=x", "-H.log"},
            {"PELK_LOGS=/tmp", "/tmp/prefix-H.log"}, {"PELK_TST_LOG=x ZORV_LOGS=/tmp", "x-H.log"},
            {"ZORV_LOGS=/nonexistent PELK_LOGS=/tmp", nullptr}, {"X=", nullptr},
        };
        // clang-format on
        for (const auto& row : rows) {
            for (const QByteArray& variable : row.variables.split(' ')) {
                const qsizetype equals = variable.indexOf('=');
                qputenv(variable.left(equals).constData(), variable.mid(equals + 1));
            }
            const QString name = Logger::logFileName("TST_LOG", u"prefix"_s, u"-H"_s);
            clearSettings({"TST_LOG", "LOGS"});
            QCOMPARE(row.variables + ": " + name.toUtf8(), row.variables + ": " + row.expected);
            QCOMPARE(name.isNull(), !row.expected);
        }
        QVERIFY(Logger::logFileName(nullptr, u"prefix"_s, QString()).isNull());
    }

    void handlers()
    {
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
        QCOMPARE(received, "a;" + (QByteArray(1000, 'x') + " 5;").repeated(2) + "b;");
    }

    // The program's name is longer than a record's source.
    void xmlRecord()
    {
        const QString program = mDir.filePath(QString(70, u'n'));
        QVERIFY(QFile::copy(mProgram, program));
        const QRegularExpression pattern(
            uR"=(^<debug time="[0-2]\d:[0-5]\d:[0-6]\d\.(0|[1-9]\d{0,2})" source="n{64}" )="
            uR"=(pid="\d+" type="warning">a <b> & %s</debug>early)="_s);
        const QByteArray record = runChild(program, {}, "x a <b> & %s");
        QVERIFY2(pattern.match(QString::fromUtf8(record)).hasMatch(), record);
    }

    void writesAllToASlowReader()
    {
        QCOMPARE(blocking_write(-1, "x", 1), -1);
        // A number that no descriptor set of select(2) has.
        if (!allowDescriptor(1500)) {
            QSKIP("the hard limit on descriptors is too low");
        }
        int ends[2];
        QCOMPARE(pipe2(ends, O_NONBLOCK), 0);
        QCOMPARE(fcntl(ends[1], F_DUPFD, 1500), 1500);
        QByteArray sent(1000003, '\0');
        std::iota(sent.begin(), sent.end(), '\0');
        QByteArray got;
        std::thread reader([&] {
            char buffer[777];
            while (got.size() < sent.size()) {
                got.append(buffer, qMax<ssize_t>(read(ends[0], buffer, sizeof buffer), 0));
                std::this_thread::yield();
            }
        });
        const ssize_t written = blocking_write(1500, sent.constData(), size_t(sent.size()));
        reader.join();
        QCOMPARE(written, sent.size());
        QVERIFY(got == sent);
        for (const int fd : {ends[0], ends[1], 1500}) {
            close(fd);
        }
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "log") == 0) {
        return logArguments(QCoreApplication::arguments().mid(2));
    }
    LoggerTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
