// Messages: where they go, what they do to the process, and log records.

#include "common/logger.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QDir>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTime>
#include <QXmlStreamReader>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What a child of this program does after it has installed the handlers. Its exit code is
// 7 when it gets to its end.
const QMap<QByteArray, void (*)()> childActions = {
    {"debug, info, warning, critical",
     [] {
         qDebug("a%%b");
         qInfo("\xc3\xa9");
         qWarning("c");
         qCritical("d");
     }},
    {"text codec", [] { qWarning("a QIconvCodec:: No such slot"); }},
    // Called after the destructors of all objects that exist when main() returns.
    {"static destructor", [] { qWarning("main"); }},
    {"fatal", [] { qFatal("no ASSERT"); }},
    {"failed assertion", [] { qFatal("ASSERT: \"x\" in file y"); }},
    {"deadlock", [] { qDebug("Deadlock detected"); }},
    {"missing signal", [] { QObject::connect(qApp, "2no()", qApp, SLOT(quit())); }},
    {"missing slot", [] { QObject::connect(qApp, SIGNAL(aboutToQuit()), qApp, "1no()"); }},
    {"record", [] { Logger::xmlLog(STDOUT_FILENO, QtDebugMsg, "text"); }},
};

int runChild(const QByteArray& action, const char* logFileName)
{
    static bool isFarewell;
    isFarewell = action == "static destructor";
    atexit([] {
        if (isFarewell) {
            qWarning("farewell");
        }
    });
    Logger::installPlainMsgHandler();
    qDebug("early");
    Logger::installQtMsgHandler();
    Logger::installLogMsgHandler(QFile::decodeName(logFileName));
    childActions[action]();
    return 7;
}

QByteArray content(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "cannot be read";
}

// The attributes and the text of a record.
struct Record
{
    explicit Record(const QByteArray& bytes)
    {
        QXmlStreamReader reader(bytes);
        reader.readNextStartElement();
        name = reader.name().toString();
        attributes = reader.attributes();
        text = reader.readElementText();
        isWellFormed = !reader.hasError();
    }
    QString attribute(const QString& key) const { return attributes.value(key).toString(); }

    QString name;
    QXmlStreamAttributes attributes;
    QString text;
    bool isWellFormed;
};

QByteArrayList received;

void receive(QtMsgType, const char* message)
{
    received += message;
}

void receiveOnce(QtMsgType type, const char* message)
{
    Logger::removeMsgHandler(receiveOnce);
    receive(type, message);
}

} // namespace

// Each row has a working directory of its own.
class LoggerTest : public QObject
{
    Q_OBJECT

    const QString mProgram = QCoreApplication::applicationFilePath();
    std::unique_ptr<QTemporaryDir> mDirectory;

private Q_SLOTS:
    void init()
    {
        clearSettings({"TEST_LOG", "LOGS"});
        mDirectory = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir::setCurrent(mDirectory->path()));
        received.clear();
    }

    void messagesOfAProcess_data()
    {
        QTest::addColumn<QByteArray>("action");
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QProcess::ExitStatus>("exitStatus");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("every type is a line as it is")
            << QByteArray("debug, info, warning, critical") << QByteArray("a%b\n\xc3\xa9\nc\nd\n")
            << QProcess::NormalExit << 7;
        QTest::newRow("message of a text codec is dropped")
            << QByteArray("text codec") << QByteArray() << QProcess::NormalExit << 7;
        QTest::newRow("static destructor may log")
            << QByteArray("static destructor") << QByteArray("main\nfarewell\n")
            << QProcess::NormalExit << 7;
        QTest::newRow("fatal message ends the process")
            << QByteArray("fatal") << QByteArray("no ASSERT\n") << QProcess::NormalExit << 1;
        QTest::newRow("failed assertion aborts the process")
            << QByteArray("failed assertion") << QByteArray("ASSERT: \"x\" in file y\n")
            << QProcess::CrashExit << SIGABRT;
        QTest::newRow("deadlock aborts the process")
            << QByteArray("deadlock") << QByteArray("Deadlock detected\n") << QProcess::CrashExit
            << SIGABRT;
        QTest::newRow("missing signal aborts the process")
            << QByteArray("missing signal")
            << QByteArray("QObject::connect: No such signal QCoreApplication::no()\n")
            << QProcess::CrashExit << SIGABRT;
        QTest::newRow("missing slot aborts the process")
            << QByteArray("missing slot")
            << QByteArray("QObject::connect: No such slot QCoreApplication::no()\n")
            << QProcess::CrashExit << SIGABRT;
    }

    void messagesOfAProcess()
    {
        QFETCH(QByteArray, action);
        QFETCH(QByteArray, log);
        QFETCH(QProcess::ExitStatus, exitStatus);
        QFETCH(int, exitCode);
        QVERIFY(writeFile(u"log"_s, "old content\n"));
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // A user may have set these for another program.
        environment.insert(u"QT_LOGGING_RULES"_s, u"*=false"_s);
        environment.insert(u"QT_MESSAGE_PATTERN"_s, u"pattern"_s);
        child.setProcessEnvironment(environment);
        child.start(mProgram, {QString::fromLatin1(action), u"log"_s});
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.readAllStandardOutput(), QByteArray());
        QCOMPARE(child.readAllStandardError(), "early\n" + log);
        QCOMPARE(content(u"log"_s), log);
        QCOMPARE(child.exitStatus(), exitStatus);
        QCOMPARE(child.exitCode(), exitCode);
    }

    // Before the handlers of this process are installed.
    void recordWithoutAProgram()
    {
        const Record record(Logger::xmlLogBytes(QtDebugMsg, "text"));
        QVERIFY(record.isWellFormed);
        QCOMPARE(record.attributes.size(), 2);
        QVERIFY(record.attributes.hasAttribute(u"time"_s));
        QCOMPARE(record.attribute(u"type"_s), u"debug"_s);
    }

    void recordOfEachType_data()
    {
        QTest::addColumn<QtMsgType>("type");
        QTest::addColumn<QString>("name");
        QTest::newRow("debug") << QtDebugMsg << u"debug"_s;
        QTest::newRow("warning") << QtWarningMsg << u"warning"_s;
        QTest::newRow("critical") << QtCriticalMsg << u"critical"_s;
        QTest::newRow("fatal") << QtFatalMsg << u"fatal"_s;
        QTest::newRow("other") << QtInfoMsg << u"unknown"_s;
    }

    void recordOfEachType()
    {
        QFETCH(QtMsgType, type);
        QFETCH(QString, name);
        const auto previous = qInstallMessageHandler(nullptr);
        Logger::installQtMsgHandler();
        qInstallMessageHandler(previous);
        const QTime before = QTime::currentTime();
        const QByteArray bytes = Logger::xmlLogBytes(type, "a <b/> & c");
        const QTime after = QTime::currentTime();
        QVERIFY(bytes.endsWith("\">a <b/> & c</debug>"));

        const Record record(QByteArray(bytes).replace(" <b/> & ", " "));
        QVERIFY(record.isWellFormed);
        QCOMPARE(record.name, u"debug"_s);
        QCOMPARE(record.text, u"a c"_s);
        QCOMPARE(record.attribute(u"type"_s), name);
        QCOMPARE(record.attribute(u"source"_s), QFileInfo(mProgram).fileName().left(64));
        QCOMPARE(record.attribute(u"pid"_s).toInt(), int(getpid()));
        // The milliseconds are a number, without leading zeros.
        const QStringList parts = record.attribute(u"time"_s).split(u'.');
        QCOMPARE(parts.size(), 2);
        QCOMPARE(parts.last(), QString::number(parts.last().toInt()));
        const QTime time =
            QTime::fromString(parts.first(), u"HH:mm:ss"_s).addMSecs(parts.last().toInt());
        const bool isMidnight = after < before;
        QVERIFY2(isMidnight || (before <= time && time <= after), bytes.constData());
    }

    void recordHasTheFirst64CharactersOfTheProgram()
    {
        const QString name(70, u'n');
        QVERIFY(QFile::copy(mProgram, name));
        QProcess child;
        child.start(QDir::current().filePath(name), {u"record"_s, u"log"_s});
        const qint64 pid = child.processId();
        QVERIFY(child.waitForFinished());
        const Record record(child.readAllStandardOutput());
        QCOMPARE(record.attribute(u"source"_s), QString(64, u'n'));
        QCOMPARE(record.attribute(u"pid"_s).toLongLong(), pid);
    }

    void recordIsCompleteForASlowReader()
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

    void logFileName_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QByteArray>("directory");
        QTest::addColumn<QString>("expected");
        const QByteArray unset;
        QTest::newRow("no setting") << QByteArray("ZORV_TEST_LOG") << unset << unset << QString();
        QTest::newRow("name") << QByteArray("ZORV_TEST_LOG") << QByteArray("/tmp/run") << unset
                              << u"/tmp/run-node.log"_s;
        QTest::newRow("name with an extension")
            << QByteArray("PELK_TEST_LOG") << QByteArray("run.log") << unset << u"run-node.log"_s;
        QTest::newRow("extension in upper case")
            << QByteArray("TALVORA_TEST_LOG") << QByteArray("run.LOG") << unset
            << u"run.LOG-node.log"_s;
        QTest::newRow("empty name")
            << QByteArray("ZORV_TEST_LOG") << QByteArray("") << unset << u"-node.log"_s;
        QTest::newRow("name of a directory")
            << QByteArray("ZORV_TEST_LOG") << QByteArray(".") << QByteArray("/") << u".-node.log"_s;
        QTest::newRow("directory")
            << QByteArray("ZORV_TEST_LOG") << unset << QByteArray("/") << u"/prefix-node.log"_s;
        QTest::newRow("directory that is missing")
            << QByteArray("ZORV_TEST_LOG") << unset << QByteArray("missing") << QString();
    }

    void logFileName()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, value);
        QFETCH(QByteArray, directory);
        QFETCH(QString, expected);
        setSetting(variable.constData(), value);
        setSetting("ZORV_LOGS", directory);
        const QString name = Logger::logFileName("TEST_LOG", u"prefix"_s, u"-node"_s);
        QCOMPARE(name, expected);
        QCOMPARE(name.isNull(), expected.isNull());
    }

    void handlersAreCalledInOrderAndMayRemoveThemselves()
    {
        Logger::addMsgHandler(receiveOnce);
        Logger::addMsgHandler(receive);
        Logger::addMsgHandler(receive);
        Logger::logf(QtDebugMsg, "%d%%", 1);
        QCOMPARE(received, QByteArrayList({"1%", "1%", "1%"}));
        Logger::removeMsgHandler(receive);
        Logger::removeMsgHandler(receiveOnce);
        Logger::log(QtDebugMsg, "2%");
        QCOMPARE(received, QByteArrayList({"1%", "1%", "1%", "2%"}));
        Logger::removeMsgHandler(receive);
    }

    void secondLogTakesThePlaceOfTheFirst()
    {
        Logger::installLogMsgHandler(u"first"_s);
        Logger::log(QtDebugMsg, "1");
        Logger::installLogMsgHandler(u"second"_s);
        Logger::log(QtDebugMsg, "2");
        QCOMPARE(content(u"first"_s), QByteArray("1\n"));
        QCOMPARE(content(u"second"_s), QByteArray("2\n"));
        const QDir descriptors(u"/proc/self/fd"_s);
        for (const QFileInfo& entry : descriptors.entryInfoList(QDir::System | QDir::Files)) {
            QVERIFY(entry.symLinkTarget() != QDir::current().filePath(u"first"_s));
        }
    }

    void logThatCannotBeOpenedIsReported_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        QTest::newRow("empty name") << u""_s << u"<Log file name is empty>"_s;
        QTest::newRow("directory") << u"."_s << u"<.: Is a directory>"_s;
    }

    // The log that is open stays.
    void logThatCannotBeOpenedIsReported()
    {
        QFETCH(QString, name);
        QFETCH(QString, message);
        Logger::installLogMsgHandler(u"first"_s);
        {
            const MessageCollector messages;
            Logger::installLogMsgHandler(name);
            QCOMPARE(messages.texts(), message);
        }
        Logger::log(QtDebugMsg, "1");
        QCOMPARE(content(u"first"_s), QByteArray("1\n"));
    }

    void fifoWithAReaderIsALog()
    {
        QCOMPARE(mkfifo("fifo", 0600), 0);
        QFile reader;
        const int fd = open("fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(reader.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle));
        Logger::installLogMsgHandler(u"fifo"_s);
        Logger::log(QtDebugMsg, "1");
        QCOMPARE(reader.readLine(), QByteArray("1\n"));
        Logger::installLogMsgHandler(u"file"_s);
    }
};

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    if (argc == 3 && childActions.contains(argv[1])) {
        return runChild(argv[1], argv[2]);
    }
    LoggerTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
