// The session record and the session file.

#include "backend/userdata.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace {

void write(const QString& fileName, const QByteArray& content)
{
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

QByteArray nested(int depth)
{
    return QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth);
}

QByteArray billionLaughs()
{
    QByteArray text("<!DOCTYPE session [<!ENTITY e0 'ha'>");
    for (int i = 1; i < 10; ++i) {
        const QByteArray previous = "&e" + QByteArray::number(i - 1) + ';';
        text += "<!ENTITY e" + QByteArray::number(i) + " '" + previous.repeated(10) + "'>";
    }
    return text + "]><session cookie='&e9;' host='bomb'/>";
}

} // namespace

class UserDataTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsEmpty();
    void reads_data();
    void reads();
    void refusedFilesChangeNothing_data();
    void refusedFilesChangeNothing();
    void whatIsNoFileIsNotWaitedFor_data();
    void whatIsNoFileIsNotWaitedFor();
    void everyTruncationIsRefused();
    void readsText();
    void portOfTodayIsExplicit_data();
    void portOfTodayIsExplicit();

private:
    const QTemporaryDir mDir;
    const QString mFile = mDir.filePath(QStringLiteral("file"));
};

void UserDataTest::startsEmpty()
{
    const UserData data;
    QVERIFY(!data.isValid());
    QVERIFY(data.getCanonicalHostName().isNull());
    QVERIFY(data.sessionCookie().isNull());
    QVERIFY(data.sessionFileName().isNull());
    QCOMPARE(data.getPort(), 0U);
    QCOMPARE(data.getSession(), -1);
    QVERIFY(data.getUseSessionCookies());
    QVERIFY(!data.isExplicitPort());
}

// The fields as one text: hosts, port, cookie, session, validity.
static QString summary(const UserData& data)
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(data.getHostNamesAndAddresses().join(QLatin1Char('|')))
        .arg(data.getPort())
        .arg(data.sessionCookie())
        .arg(data.getSession())
        .arg(data.isValid() ? QLatin1String("valid") : QLatin1String("invalid"));
}

void UserDataTest::reads_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const QByteArray& content, bool result,
                        const char* expected) {
        QTest::newRow(name) << content << result << QString::fromUtf8(expected);
    };
    row("all attributes, in any order",
        "<session session='2' cookie='c' host='node1,10.0.0.5' port='4243' other='x'/>", true,
        "node1|10.0.0.5 4243 c 2 valid");
    row("another root element", "<other host='a' port='1'/>", true, " 0  -1 invalid");
    row("only the root counts", "<other><session host='a'/></other>", true, " 0  -1 invalid");
    row("a prefix makes another name", "<x:session host='a'/>", true, " 0  -1 invalid");
    row("hosts alone", "<session host='a'/>", true, "a 0  -1 valid");
    row("empty parts stay", "<session host='a,,b'/>", true, "a||b 0  -1 valid");
    row("an empty host is one", "<session host=''/>", true, " 0  -1 valid");
    row("port with a letter", "<session port='4243x' host='a' cookie='c' session='1'/>", false,
        " 0  -1 invalid");
    row("port too large for 32 bits", "<session port='4294967296' host='a'/>", false,
        " 0  -1 invalid");
    row("negative port", "<session port='-1' host='a'/>", false, " 0  -1 invalid");
    row("port too large for TCP", "<session port='65536' host='a'/>", true, "a 65536  -1 invalid");
    row("session with letters", "<session session='abc' port='1' host='a' cookie='c'/>", false,
        "a 1 c 0 valid");
    row("largest session", "<session session='4294967295' host='a'/>", true, "a 0  -1 valid");
    row("declared encoding", "<?xml version='1.0' encoding='ISO-8859-1'?><session host='\xe9'/>",
        true, "\xc3\xa9 0  -1 valid");
    row("byte-order mark",
        QByteArray("\xff\xfe<\0s\0e\0s\0s\0i\0o\0n\0 \0h\0o\0s\0t\0=\0'\0a\0'\0/\0>\0", 40), true,
        "a 0  -1 valid");
    const QByteArray small("<session host='a'/>");
    row("as large as may be", small + QByteArray(1024 * 1024 - small.size(), ' '), true,
        "a 0  -1 valid");
    row("character references", "<session cookie='&lt;&#65;&amp;'/>", true, " 0 <A& -1 invalid");
}

void UserDataTest::reads()
{
    QFETCH(QByteArray, content);
    write(mFile, content);
    UserData data;
    QTEST(data.load(mFile), "result");
    QTEST(summary(data), "expected");
    QCOMPARE(data.sessionFileName(), mFile);
}

void UserDataTest::refusedFilesChangeNothing_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("no XML") << QByteArray("host=a");
    QTest::newRow("error after the root") << QByteArray("<session host='b' port='1'/><");
    QTest::newRow("two roots") << QByteArray("<session host='b'/><session/>");
    QTest::newRow("attribute twice") << QByteArray("<session host='b' host='c'/>");
    QTest::newRow("NUL bytes") << QByteArray("<session host='b'/>\0\0", 21);
    QTest::newRow("entity bomb") << billionLaughs();
    QTest::newRow("external entity")
        << QByteArray("<!DOCTYPE s [<!ENTITY e SYSTEM '/etc/passwd'>]><session host='&e;'/>");
    QTest::newRow("nested and never closed") << QByteArray("<a>").repeated(300000);
    const QByteArray small("<session host='b'/>");
    QTest::newRow("too large") << small + QByteArray(1024 * 1024 + 1 - small.size(), ' ');
}

void UserDataTest::refusedFilesChangeNothing()
{
    QFETCH(QByteArray, content);
    write(mFile, "<session host='a' port='4243' cookie='c' session='2'/>");
    UserData data;
    QVERIFY(data.load(mFile));
    const QString before = summary(data);
    const QString other = mDir.filePath(QStringLiteral("other"));
    write(other, content);
    QVERIFY(!data.load(other));
    QCOMPARE(summary(data), before);
    QCOMPARE(data.sessionFileName(), other);
    QVERIFY(!data.load(mDir.filePath(QStringLiteral("missing"))));
    QCOMPARE(summary(data), before);
    // Large, but well-formed: no stack is used up.
    write(other, nested(140000));
    QVERIFY(data.load(other));
    QCOMPARE(summary(data), before);
}

void UserDataTest::whatIsNoFileIsNotWaitedFor_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a FIFO without a writer") << mDir.filePath(QStringLiteral("fifo"));
    QTest::newRow("a directory") << mDir.path();
    QTest::newRow("an endless device") << QStringLiteral("/dev/zero");
    QTest::newRow("no name") << QString();
}

void UserDataTest::whatIsNoFileIsNotWaitedFor()
{
    QFETCH(QString, name);
    mkfifo(QFile::encodeName(mDir.filePath(QStringLiteral("fifo"))).constData(), 0600);
    UserData data;
    QVERIFY(!data.load(name));
    QCOMPARE(summary(data), summary(UserData()));
}

void UserDataTest::everyTruncationIsRefused()
{
    const QByteArray whole("<?xml version='1.0'?><session host='a,b' port='4243' session='2'/>");
    for (qsizetype length = 0; length < whole.size(); ++length) {
        write(mFile, whole.left(length));
        UserData data;
        QVERIFY2(!data.load(mFile), whole.left(length).constData());
        QVERIFY(!data.isValid());
    }
}

void UserDataTest::readsText()
{
    UserData data;
    QVERIFY(data.load(QStringLiteral("name"), QStringLiteral("<session host='a'/>")));
    QCOMPARE(data.getCanonicalHostName(), QStringLiteral("a"));
    QVERIFY(data.load(QStringLiteral("other"), QStringLiteral("<session host='b'")));
    QCOMPARE(data.getCanonicalHostName(), QStringLiteral("a"));
    QCOMPARE(data.sessionFileName(), QStringLiteral("other"));
    QVERIFY(data.load(QStringLiteral("other"), QLatin1String("")));
    QVERIFY(!data.load(QStringLiteral("name"), QStringLiteral("<session port='x'/>")));
}

void UserDataTest::portOfTodayIsExplicit_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("port");
    QTest::addColumn<bool>("asText");
    QTest::addColumn<bool>("explicitPort");

    const QString today = mDir.filePath(QStringLiteral("today"));
    const QString yesterday = mDir.filePath(QStringLiteral("yesterday"));
    const QString missing = mDir.filePath(QStringLiteral("missing"));
    QTest::newRow("file of today") << today << QByteArray("4243") << false << true;
    QTest::newRow("file of yesterday") << yesterday << QByteArray("4243") << false << false;
    QTest::newRow("no number") << today << QByteArray("4243x") << false << false;
    QTest::newRow("text, file of today") << today << QByteArray("4243") << true << true;
    QTest::newRow("text, file of yesterday") << yesterday << QByteArray("4243") << true << false;
    QTest::newRow("text, no file") << missing << QByteArray("4243") << true << false;
}

void UserDataTest::portOfTodayIsExplicit()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, port);
    QFETCH(bool, asText);

    const QByteArray content = "<session host='a' port='" + port + "'/>";
    const QString today = mDir.filePath(QStringLiteral("today"));
    const QString yesterday = mDir.filePath(QStringLiteral("yesterday"));
    write(today, content);
    write(yesterday, content);
    QFile file(yesterday);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QDateTime::currentDateTime().addDays(-1),
                             QFileDevice::FileModificationTime));
    file.close();

    UserData data;
    data.load(name, asText ? QString::fromLatin1(content) : QString());
    QTEST(data.isExplicitPort(), "explicitPort");
    // Once explicit, it stays so.
    const bool before = data.isExplicitPort();
    data.load(yesterday);
    QCOMPARE(data.isExplicitPort(), before);
}

QTEST_APPLESS_MAIN(UserDataTest)
#include "tst_userdata.moc"
