// Messages: where they go, what they do to the process, and log records.

#include "common/logger.h"
#include "tests/support/helpers.h"

#include <QDateTime>
#include <QMap>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QByteArray longText = QByteArray("<a> %s &\n").repeated(100000);

// What a child of this program does after it has installed the handlers. Its exit code is
// 7 when it gets to its end.
const QMap<QByteArray, void (*)()> childActions = {
    {"messages of every type",
     [] {
         qDebug("a%%b");
         qInfo("\xc3\xa9");
         qWarning("c");
         qCritical("ASSERT d");
     }},
    {"message of a text codec", [] { qWarning("a QIconvCodec:: No such slot"); }},
    {"fatal message", [] { qFatal("no ASSERT"); }},
    {"failed assertion", [] { qFatal("ASSERT: \"x\" in file y"); }},
    {"deadlock", [] { qDebug("Deadlock detected"); }},
    {"long record to a pipe that does not block",
     [] {
         fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
         // Runs after the end of the application.
         static const auto atExit =
             qScopeGuard([] { Logger::xmlLog(STDOUT_FILENO, QtWarningMsg, longText.constData()); });
     }},
    {"missing signal", [] { QObject::connect(qApp, "2no()", qApp, SLOT(quit())); }},
    {"missing slot", [] { QObject::connect(qApp, SIGNAL(aboutToQuit()), qApp, "1no()"); }},
};

int runChild(const QByteArray& action, const char* logFileName)
{
    Logger::installPlainMsgHandler();
    qDebug("early");
    Logger::installQtMsgHandler();
    Logger::installLogMsgHandler(QFile::decodeName(logFileName));
    childActions[action]();
    return 7;
}

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

private Q_SLOTS:
    void init()
    {
        clearSettings();
        enterEmptyDirectory();
        received.clear();
    }

    void messagesOfAProcess_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<int>("exitCode");
        const auto add = [](const char* action, const QByteArray& log, int exitCode) {
            QTest::newRow(action) << log << exitCode;
        };
        add("messages of every type", "a%b\n\xc3\xa9\nc\nASSERT d\n", 7);
        add("message of a text codec", "", 7);
        add("fatal message", "no ASSERT\n", 1);
        add("failed assertion", "ASSERT: \"x\" in file y\n", SIGABRT);
        add("deadlock", "Deadlock detected\n", SIGABRT);
        add("missing signal", "QObject::connect: No such signal QCoreApplication::no()\n", SIGABRT);
        add("missing slot", "QObject::connect: No such slot QCoreApplication::no()\n", SIGABRT);
    }

    void messagesOfAProcess()
    {
        QFETCH(QByteArray, log);
        QVERIFY(writeFile(u"log"_s, "old content\n"));
        QProcess child;
        // A user may have set the variables for another program.
        child.start(u"env"_s, {u"QT_LOGGING_RULES=*=false"_s, u"QT_MESSAGE_PATTERN=pattern"_s,
                               mProgram, text(QTest::currentDataTag()), u"log"_s});
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.readAllStandardOutput(), QByteArray());
        QCOMPARE(child.readAllStandardError(), "early\n" + log);
        QCOMPARE(content(u"log"_s), log);
        QTEST(child.exitCode(), "exitCode");
    }

    void recordIsCompleteForASlowReader()
    {
        const QDateTime before = QDateTime::currentDateTime();
        QProcess child;
        // The record has the first 64 characters of the program's name.
        const QString copy = QDir::current().filePath(QString(65, u'n'));
        QVERIFY(QFile::copy(mProgram, copy));
        child.start(copy, {u"long record to a pipe that does not block"_s, u"log"_s});
        QVERIFY(child.waitForStarted());
        const QByteArray pid = QByteArray::number(child.processId());
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.readAllStandardError(), "early\n");
        const QByteArray record = child.readAllStandardOutput();
        const QByteArray start = "<debug time=\"";
        const QByteArray end = "\" source=\"" + QByteArray(64, 'n') + "\" pid=\"" + pid +
                               "\" type=\"warning\">" + longText + "</debug>";
        QVERIFY(record.startsWith(start) && record.endsWith(end));
        // The milliseconds are a number, without leading zeros. Later versions of Qt round them
        // to the nearest, the record downwards.
        QByteArrayList times;
        for (QDateTime time = before.addMSecs(-1); time <= QDateTime::currentDateTime();
             time = time.addMSecs(1)) {
            times +=
                (time.toString(u"HH:mm:ss."_s) + QString::number(time.time().msec())).toLatin1();
        }
        const QByteArray time = record.mid(start.size()).chopped(end.size());
        QVERIFY2(times.contains(time), time.constData());
    }

    void recordsHaveTypes()
    {
        QVERIFY(Logger::xmlLogBytes(QtCriticalMsg, "a <b/>")
                    .endsWith(" type=\"critical\">a <b/></debug>"));
        QCOMPARE(Logger::typeToString(QtDebugMsg), "debug");
        QCOMPARE(Logger::typeToString(QtFatalMsg), "fatal");
        QCOMPARE(Logger::typeToString(QtInfoMsg), "unknown");
    }

    // tst_options has the others.
    void emptyLogSettingIsAName()
    {
        setSetting("PELK_TEST_LOG", "");
        setSetting("ZORV_LOGS", "/");
        QCOMPARE(Logger::logFileName("TEST_LOG", u"prefix"_s, u"-node"_s), u"-node.log"_s);
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

    void logIsTheLastFileThatCouldBeOpened()
    {
        Logger::installLogMsgHandler(u"first"_s);
        QTest::ignoreMessage(QtWarningMsg, "Log file name is empty");
        Logger::installLogMsgHandler({});
        QTest::ignoreMessage(QtCriticalMsg, ".: Is a directory");
        Logger::installLogMsgHandler(u"."_s);
        Logger::log(QtDebugMsg, "1");
        Logger::installLogMsgHandler(u"second"_s);
        Logger::log(QtDebugMsg, "2");
        QCOMPARE(content(u"first"_s), QByteArray("1\n"));
        QCOMPARE(content(u"second"_s), QByteArray("2\n"));
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
