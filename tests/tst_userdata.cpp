// The session record and the session file.

#include "backend/userdata.h"
#include "tests/support/texts.h"

#include <QDateTime>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

// The fields as one text: hosts, port, cookie, session, validity.
static QByteArray summary(const UserData& data)
{
    return data.getHostNamesAndAddresses().join(u'|').toUtf8() + ' ' +
           QByteArray::number(data.getPort()) + ' ' + data.sessionCookie().toUtf8() + ' ' +
           QByteArray::number(data.getSession()) + (data.isValid() ? " valid" : " invalid");
}

class UserDataTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir mDir;
    const QString mFile = mDir.filePath(u"file"_s);
    const QString mOld = mDir.filePath(u"old"_s);
    const QString mFifo = mDir.filePath(u"fifo"_s);

private Q_SLOTS:
    void reads()
    {
        const QByteArray before("a 42 c 2 valid");
        const QByteArray whole("<?xml version='1.0'?><session host='b' port='1' session='3'/>");
        // clang-format off
        struct Row { QByteArray content; bool result; QByteArray expected; };
        QList<Row> rows = {
            {"<session session='3' cookie='d' host='b,10.0.0.5' port='1' other='x'/>",
             true, "b|10.0.0.5 1 d 3 valid"},
            // Only the root element counts, by its whole name.
            {"<other host='b' port='1'/>", true, before}, {"<x:session host='b'/>", true, before},
            {"<other><session host='b'/></other>", true, before},
            {"<session host='b,,c'/>", true, "b||c 42 c 2 valid"},
            {"<session host=''/>", true, " 42 c 2 valid"},
            {"<session port='65536'/>", true, "a 65536 c 2 invalid"},
            {"<session session='4294967295'/>", true, "a 42 c -1 valid"},
            {"<session cookie='&lt;&#65;&amp;'/>", true, "a 42 <A& 2 valid"},
            // A port that is no number ends the reading, a session is 0 then.
            {"<session port='1x' host='b'/>", false, "a 0 c 2 valid"},
            {"<session port='-1' host='b'/>", false, "a 0 c 2 valid"},
            {"<session port='4294967296' host='b'/>", false, "a 0 c 2 valid"},
            {"<session session='x' host='b'/>", false, "b 42 c 0 valid"},
            {"<?xml version='1.0' encoding='ISO-8859-1'?><session host='\xe9'/>",
             true, "\xc3\xa9 42 c 2 valid"},
            {QByteArray("\xff\xfe<\0s\0e\0s\0s\0i\0o\0n\0 \0h\0o\0s\0t\0=\0'\0b\0'\0/\0>\0", 40),
             true, "b 42 c 2 valid"},
            {whole.leftJustified(1024 * 1024), true, "b 1 c 3 valid"},
            // Large, but no stack is used up.
            {QByteArray("<a>").repeated(99999) + QByteArray("</a>").repeated(99999), true, before},
            // What is not well-formed, or too large, changes nothing.
            {"host=b", false, before}, {"<session host='b' host='c'/>", false, before},
            {whole + '<', false, before}, {whole + "<session/>", false, before},
            {whole + QByteArray(2, '\0'), false, before},
            {"<!DOCTYPE s [<!ENTITY e SYSTEM '/etc/passwd'>]><session host='&e;'/>", false, before},
            {"<!DOCTYPE s [<!ENTITY a '" + QByteArray(999, 'x') + "'><!ENTITY b '" +
             QByteArray("&a;").repeated(999) + "'><!ENTITY c '" + QByteArray("&b;").repeated(999) +
             "'>]><session host='&c;'/>", false, before},
            {QByteArray("<a>").repeated(300000), false, before},
            {whole.leftJustified(1024 * 1024 + 1), false, before},
        };
        // clang-format on
        for (qsizetype length = 0; length < whole.size(); ++length) {
            rows += {whole.left(length), false, before};
        }
        for (const Row& row : qAsConst(rows)) {
            UserData data;
            QCOMPARE(summary(data), " 0  -1 invalid");
            QVERIFY(writeFile(mFile, "<session host='a' port='42' cookie='c' session='2'/>"));
            QVERIFY(data.load(mFile));
            QVERIFY(writeFile(mFile, row.content));
            QVERIFY2(data.load(mFile) == row.result, row.content.left(100));
            QCOMPARE(row.content.left(100) + summary(data), row.content.left(100) + row.expected);
        }
    }

    // A FIFO without a writer and an endless device are among them.
    void whatIsNoFileIsNotWaitedFor()
    {
        QCOMPARE(mkfifo(QFile::encodeName(mFifo).constData(), 0600), 0);
        for (const QString& name : {u"missing"_s, mFifo, mDir.path(), u"/dev/zero"_s, QString()}) {
            UserData data;
            QVERIFY2(!data.load(name), qPrintable(name));
            QCOMPARE(summary(data), " 0  -1 invalid");
            QCOMPARE(data.sessionFileName(), name);
        }
    }

    void readsTextAndPortOfTodayIsExplicit()
    {
        const QString xml = u"<session port='4243'/>"_s;
        QVERIFY(writeFile(mFile, xml.toLatin1()) && writeFile(mOld, xml.toLatin1()));
        QFile file(mOld);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addDays(-1),
                                 QFileDevice::FileModificationTime));
        const QString missing = u"missing"_s;
        // clang-format off
        const struct { QString name; QString xml; bool result; bool explicitPort; } rows[] = {
            {mFile, {}, true, true}, {mOld, {}, true, false}, {missing, {}, false, false},
            {mFile, xml, true, true}, {mOld, xml, true, false}, {missing, xml, true, false},
            {mFile, u"<session port='x'/>"_s, false, false},
            // A text that is not well-formed is no error.
            {mFile, u""_s, true, false}, {missing, u"<session port='1'"_s, true, false},
        };
        // clang-format on
        for (const auto& row : rows) {
            UserData data;
            QVERIFY2(data.load(row.name, row.xml) == row.result, qPrintable(row.name + row.xml));
            QCOMPARE(data.isExplicitPort(), row.explicitPort);
            // Once explicit, it stays so.
            data.load(mOld);
            QCOMPARE(data.isExplicitPort(), row.explicitPort);
        }
    }
};

QTEST_APPLESS_MAIN(UserDataTest)
#include "tst_userdata.moc"
