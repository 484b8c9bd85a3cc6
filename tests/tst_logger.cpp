// Messages: where they go, what they do to the process, and log records.

#include "common/logger.h"
#include "tests/support/helpers.h"

#include <QMap>
#include <QProcess>
#include <QRegularExpression>
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
    {"fatal message", [] { qFatal("no ASSERT"); }},
    {"failed assertion", [] { qFatal("ASSERT: \"x\" in file y"); }},
    {"long record to a pipe that does not block",
     [] {
         fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
         // Runs after the end of the application.
         static const auto atExit =
             qScopeGuard([] { Logger::xmlLog(STDOUT_FILENO, QtWarningMsg, longText.constData()); });
     }},
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

void receiveOnce(QtMsgType, const char* message)
{
    Logger::removeMsgHandler(receiveOnce);
    received += QByteArray("once ") + message;
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
    }

    void messagesOfAProcess_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<int>("exitCode");
        const auto add = [](const char* action, const QByteArray& log, int exitCode) {
            QTest::newRow(action) << log << exitCode;
        };
        add("messages of every type", "a%b\n\xc3\xa9\nc\nASSERT d\n", 7);
        add("fatal message", "no ASSERT\n", 1);
        add("failed assertion", "ASSERT: \"x\" in file y\n", SIGABRT);
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
        QProcess child;
        child.start(mProgram, {u"long record to a pipe that does not block"_s, u"log"_s});
        QVERIFY(child.waitForStarted());
        const QByteArray pid = QByteArray::number(child.processId());
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.readAllStandardError(), "early\n");
        const QByteArray record = child.readAllStandardOutput();
        const QByteArray end = "\" source=\"tst_logger\" pid=\"" + pid + "\" type=\"warning\">" +
                               longText + "</debug>";
        QVERIFY2(record.endsWith(end), record.left(200).constData());
        const QByteArray start = record.chopped(end.size());
        static const QRegularExpression time(u"^<debug time=\"\\d\\d:\\d\\d:\\d\\d\\.\\d{1,3}$"_s);
        QVERIFY2(time.match(text(start.constData())).hasMatch(), start.constData());
    }

    void handlersAreCalledInOrderAndMayRemoveThemselves()
    {
        Logger::addMsgHandler(receiveOnce);
        Logger::addMsgHandler(receive);
        Logger::logf(QtDebugMsg, "%d%%", 1);
        Logger::log(QtDebugMsg, "2%");
        Logger::removeMsgHandler(receive);
        Logger::log(QtDebugMsg, "3%");
        QCOMPARE(received, QByteArrayList({"once 1%", "1%", "2%"}));
    }

    void secondLogFileReplacesTheFirst()
    {
        Logger::installLogMsgHandler(u"first"_s);
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
