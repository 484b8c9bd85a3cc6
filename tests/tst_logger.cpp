// Messages: where they go and what they do to the process.

#include "common/logger.h"

#include "common/env/zorvenv.h"
#include "tests/support/descriptorlimit.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

// Logs at the very end: it is the first static object of the program to be made.
struct Farewell
{
    ~Farewell()
    {
        if (text) {
            qWarning("%s", text);
        }
    }
    const char* text = nullptr;
};

Farewell farewell __attribute__((init_priority(101)));

// What a child of this program does: logs each of its arguments.
int logArguments(const QStringList& arguments)
{
    Logger::installPlainMsgHandler();
    qDebug("early");
    Logger::installQtMsgHandler();
    Logger::installLogMsgHandler(qEnvironmentVariable("TST_LOG_FILE"));
    for (const QString& argument : arguments) {
        const QByteArray text = argument.mid(2).toLocal8Bit();
        switch (argument.at(0).toLatin1()) {
        case 'd':
            qDebug("%s", text.constData());
            break;
        case 'i':
            qInfo("%s", text.constData());
            break;
        case 'w':
            qWarning("%s", text.constData());
            break;
        case 'c':
            qCritical("%s", text.constData());
            break;
        case 'f':
            qFatal("%s", text.constData());
        case 'q':
            QObject::connect(qApp, SIGNAL(aboutToQuit()), qApp, text.constData());
            break;
        case 's':
            farewell.text = qstrdup(text.constData());
            break;
        case 'x':
            Logger::xmlLog(STDOUT_FILENO, QtWarningMsg, text.constData());
            break;
        }
    }
    return 7;
}

// Runs such a child to its end, with variables that would change Qt's own output.
void runChild(QProcess& child, const QString& logFile, const QStringList& arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TST_LOG_FILE"), logFile);
    environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("*=false"));
    environment.insert(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("pattern"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(),
                QStringList(QStringLiteral("log")) + arguments);
    QVERIFY(child.waitForFinished());
}

QByteArray contentOf(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be opened");
}

} // namespace

class LoggerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void messagesInAProcess_data();
    void messagesInAProcess();
    void logFileThatCannotBeOpened_data();
    void logFileThatCannotBeOpened();
    void logFileName_data();
    void logFileName();
    void handlers();
    void formats();
    void xmlRecords();
    void longProgramName();
    void writesAllToASlowReader();
    void writesThatFail();
};

void LoggerTest::init()
{
    for (const char* name : {"ZORV_TST_LOG", "TALVORA_TST_LOG", "PELK_TST_LOG", "ZORV_LOGS",
                             "TALVORA_LOGS", "PELK_LOGS"}) {
        qunsetenv(name);
    }
    discardEnvCache();
}

void LoggerTest::messagesInAProcess_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("log");

    const auto row = [](const char* name, const QStringList& arguments, int status,
                        const char* log) {
        QTest::newRow(name) << arguments << status << QByteArray(log);
    };
    const auto l = [](const char* text) { return QString::fromUtf8(text); };
    row("every kind, in order, as it is", {l("d a%b"), l("i \xc3\xa9"), l("w c"), l("c d")}, 7,
        "a%b\n\xc3\xa9\nc\nd\n");
    row("codec messages are dropped", {l("w a QIconvCodec:: b"), l("w c")}, 7, "c\n");
    row("dropped before it is fatal for the text", {l("w QIconvCodec:: No such slot")}, 7, "");
    row("fatal ends with 1", {l("f a"), l("w b")}, 1, "a\n");
    row("failed assertion aborts", {l("f ASSERT: \"x\" in file y")}, -SIGABRT,
        "ASSERT: \"x\" in file y\n");
    row("assertion inside is no assertion", {l("f no ASSERT")}, 1, "no ASSERT\n");
    row("missing slot aborts", {l("w x No such slot y")}, -SIGABRT, "x No such slot y\n");
    row("missing signal aborts", {l("d No such signal")}, -SIGABRT, "No such signal\n");
    row("missing slot that Qt tells of aborts", {l("q 1noSlot()")}, -SIGABRT,
        "QObject::connect: No such slot QCoreApplication::noSlot()\n");
    row("logged by a static destructor", {l("s a"), l("w b")}, 7, "b\na\n");
    row("deadlock aborts", {l("c Deadlock detected")}, -SIGABRT, "Deadlock detected\n");
}

void LoggerTest::messagesInAProcess()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QByteArray, log);

    const QTemporaryDir dir;
    const QString logFile = dir.filePath(QStringLiteral("log"));
    QFile old(logFile);
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old content\n") > 0);
    old.close();
    QProcess child;
    runChild(child, logFile, arguments);
    const bool crashed = child.exitStatus() == QProcess::CrashExit;
    QCOMPARE(crashed ? -child.exitCode() : child.exitCode(), status);
    QCOMPARE(child.readAllStandardError(), "early\n" + log);
    QCOMPARE(contentOf(logFile), log);
}

void LoggerTest::logFileThatCannotBeOpened_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("no name") << QString() << QByteArray("Log file name is empty\n");
    QTest::newRow("no directory") << QStringLiteral("/nonexistent/log")
                                  << QByteArray("/nonexistent/log: No such file or directory\n");
}

void LoggerTest::logFileThatCannotBeOpened()
{
    QFETCH(QString, fileName);
    QFETCH(QByteArray, message);
    QProcess child;
    runChild(child, fileName, {QStringLiteral("w a")});
    QCOMPARE(child.readAllStandardError(), "early\n" + message + "a\n");
    QCOMPARE(child.exitCode(), 7);
}

void LoggerTest::logFileName_data()
{
    QTest::addColumn<QByteArrayList>("variables");
    QTest::addColumn<QString>("expected");

    const QString suffixed = QStringLiteral("/tmp/run-H.log");
    const auto row = [](const char* name, const QByteArrayList& variables,
                        const QString& expected) { QTest::newRow(name) << variables << expected; };
    row("named", {"ZORV_TST_LOG=/tmp/run"}, suffixed);
    row("named with the extension", {"ZORV_TST_LOG=/tmp/run.log"}, suffixed);
    row("one extension only", {"ZORV_TST_LOG=/tmp/run.log.log"},
        QStringLiteral("/tmp/run.log-H.log"));
    row("extension in capitals", {"TALVORA_TST_LOG=run.LOG"}, QStringLiteral("run.LOG-H.log"));
    row("named and empty", {"PELK_TST_LOG=", "TALVORA_TST_LOG=x"}, QStringLiteral("-H.log"));
    row("a directory as a name", {"ZORV_TST_LOG=/tmp"}, QStringLiteral("/tmp-H.log"));
    row("name before directory", {"TALVORA_TST_LOG=x", "ZORV_LOGS=/tmp"},
        QStringLiteral("x-H.log"));
    row("in a directory", {"PELK_LOGS=/tmp"}, QStringLiteral("/tmp/prefix-H.log"));
    row("in a directory that is missing", {"ZORV_LOGS=/nonexistent", "PELK_LOGS=/tmp"}, QString());
    row("not wanted", {}, QString());
}

void LoggerTest::logFileName()
{
    QFETCH(QByteArrayList, variables);
    QFETCH(QString, expected);
    for (const QByteArray& variable : variables) {
        const qsizetype equals = variable.indexOf('=');
        qputenv(variable.left(equals).constData(), variable.mid(equals + 1));
    }
    discardEnvCache();
    const QString name =
        Logger::logFileName("TST_LOG", QStringLiteral("prefix"), QStringLiteral("-H"));
    QCOMPARE(name, expected);
    QCOMPARE(name.isNull(), expected.isNull());
    init();
    QVERIFY(Logger::logFileName(nullptr, QStringLiteral("prefix"), QString()).isNull());
}

static QByteArrayList received;

static void second(QtMsgType, const char* message)
{
    received += QByteArray("second ") + message;
}

static void first(QtMsgType type, const char* message)
{
    received += QByteArray("first ") + message;
    if (qstrcmp(message, "again") != 0) {
        // The call in progress keeps its list; the one made here has the new one.
        Logger::removeMsgHandler(second);
        Logger::addMsgHandler(second);
        Logger::addMsgHandler(second);
        Logger::log(type, "again");
        Logger::removeMsgHandler(second);
    }
}

void LoggerTest::handlers()
{
    received.clear();
    Logger::addMsgHandler(first);
    Logger::addMsgHandler(second);
    Logger::log(QtDebugMsg, "x");
    QCOMPARE(received, QByteArrayList(
                           {"first x", "first again", "second again", "second again", "second x"}));
    Logger::removeMsgHandler(first);
    Logger::removeMsgHandler(second);
    Logger::removeMsgHandler(second);
    received.clear();
    Logger::log(QtDebugMsg, "x");
    QCOMPARE(received, QByteArrayList());
}

void LoggerTest::formats()
{
    received.clear();
    Logger::addMsgHandler(second);
    Logger::logf(QtDebugMsg, "%s %d", QByteArray(1000, 'x').constData(), 5);
    Logger::removeMsgHandler(second);
    QCOMPARE(received, QByteArrayList{"second " + QByteArray(1000, 'x') + " 5"});
    QCOMPARE(Logger::typeToString(QtFatalMsg), "fatal");
    QCOMPARE(Logger::typeToString(QtInfoMsg), "unknown");
}

void LoggerTest::xmlRecords()
{
    const auto isRecord = [](const QByteArray& record, const char* rest) {
        const QRegularExpression pattern(
            QLatin1String("<debug time=\"[0-2]\\d:[0-5]\\d:[0-6]\\d\\.(0|[1-9]\\d{0,2})\"") +
            QString::fromLatin1(rest));
        return QRegularExpression(QRegularExpression::anchoredPattern(pattern.pattern()))
            .match(QString::fromUtf8(record))
            .hasMatch();
    };
    const QByteArray record = Logger::xmlLogBytes(QtCriticalMsg, "a <b> & %s");
    QVERIFY2(isRecord(record, " type=\"critical\">a <b> & %s</debug>"), record.constData());

    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("log"), QStringLiteral("x text")});
    QVERIFY(child.waitForFinished());
    const QByteArray full = child.readAllStandardOutput();
    QVERIFY2(isRecord(full, " source=\"tst_logger\" pid=\"\\d+\" type=\"warning\">text</debug>"),
             full.constData());
    Logger::xmlLog(-1, QtDebugMsg, "nowhere");
}

void LoggerTest::longProgramName()
{
    const QTemporaryDir dir;
    const QString name(70, QLatin1Char('n'));
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), dir.filePath(name)));
    QProcess child;
    child.start(dir.filePath(name), {QStringLiteral("log"), QStringLiteral("x text")});
    QVERIFY(child.waitForFinished());
    const QByteArray record = child.readAllStandardOutput();
    QVERIFY(record.contains(" source=\"" + QByteArray(64, 'n') + "\" pid=\""));
    QVERIFY(record.endsWith("</debug>"));
}

void LoggerTest::writesAllToASlowReader()
{
    // A number that no descriptor set of select(2) has.
    if (!allowDescriptor(1500)) {
        QSKIP("the hard limit on descriptors is too low");
    }
    int ends[2];
    QCOMPARE(pipe2(ends, O_NONBLOCK), 0);
    const int high = fcntl(ends[1], F_DUPFD, 1500);
    QCOMPARE(high, 1500);
    QByteArray sent(1000003, 'x');
    for (qsizetype i = 0; i < sent.size(); ++i) {
        sent[i] = static_cast<char>(i % 251);
    }
    QByteArray got;
    std::thread reader([&] {
        char buffer[777];
        while (got.size() < sent.size()) {
            const ssize_t count = read(ends[0], buffer, sizeof buffer);
            if (count > 0) {
                got.append(buffer, count);
            }
            std::this_thread::yield();
        }
    });
    const ssize_t written = blocking_write(high, sent.constData(), size_t(sent.size()));
    reader.join();
    QCOMPARE(written, sent.size());
    QVERIFY(got == sent);
    for (int fd : {high, ends[0], ends[1]}) {
        close(fd);
    }
}

void LoggerTest::writesThatFail()
{
    QCOMPARE(blocking_write(-1, "x", 1), -1);
}

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
