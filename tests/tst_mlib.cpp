// Splitting of command lines, and vectors of C strings.

#include "common/env/zorvenv.h"
#include "common/mlib.h"

#include <QTest>

class MlibTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsesArguments_data();
    void parsesArguments();
    void newlinesMayBeOrdinary();
    void splitsCStrings_data();
    void splitsCStrings();
};

void MlibTest::parsesArguments_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("expected");

    const auto row = [](const char* name, const char* text, const QStringList& expected) {
        QTest::newRow(name) << QString::fromLatin1(text) << expected;
    };
    const QString empty = QStringLiteral("");
    const auto l = [](const char* text) { return QString::fromLatin1(text); };
    row("nothing", "", {});
    row("only separators", " \n ", {});
    row("blanks in a row", "a  b", {l("a"), l("b")});
    row("quotes inside a word", "a''b", {l("ab")});
    row("an empty argument", "''", {empty});
    row("an empty argument among others", "x \"\" y", {l("x"), empty, l("y")});
    row("blank in double quotes", "\"a b\" c", {l("a b"), l("c")});
    row("no escapes in single quotes", "'a\\b'", {l("a\\b")});
    row("escaped double quote", "\"a\\\"b\"", {l("a\"b")});
    row("escaped backslash", "\"a\\\\b\"", {l("a\\b")});
    row("a backslash protects no blank", "a\\ b", {l("a"), l("b")});
    row("a backslash protects no quote", "\\'a b'", {l("a b")});
    row("a backslash is dropped", "a\\b\\", {l("ab")});
    row("two backslashes are dropped", "a\\\\b", {l("ab")});
    row("a backslash alone", "\\", {});
    row("unclosed single quote", "'abc d", {l("abc d")});
    row("unclosed double quote", "x \"a\\", {l("x"), l("a")});
    row("unclosed and empty", "x '", {l("x"), empty});
    row("line feed separates", "a\nb", {l("a"), l("b")});
    row("tab does not", "a\tb", {l("a\tb")});
    row("parts that touch", "a'b c'\"d e\"f", {l("ab cd ef")});
}

void MlibTest::parsesArguments()
{
    QFETCH(QString, text);
    const QStringList arguments = parseArgs(text);
    QTEST(arguments, "expected");
    for (const QString& argument : arguments) {
        QVERIFY(!argument.isNull());
    }
}

void MlibTest::newlinesMayBeOrdinary()
{
    qputenv("PELK_ALLOW_NEWLINE_IN_ARGS", "yes");
    discardEnvCache();
    const QStringList arguments = parseArgs(QStringLiteral("a\nb c"));
    qunsetenv("PELK_ALLOW_NEWLINE_IN_ARGS");
    discardEnvCache();
    QCOMPARE(arguments, QStringList({QStringLiteral("a\nb"), QStringLiteral("c")}));
}

void MlibTest::splitsCStrings_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("separator");
    QTest::addColumn<QByteArrayList>("expected");

    QTest::newRow("empty parts stay")
        << QByteArray("a,,b") << QByteArray(",") << QByteArrayList{"a", "", "b"};
    QTest::newRow("an empty string") << QByteArray("") << QByteArray(",") << QByteArrayList{""};
    QTest::newRow("whole separator")
        << QByteArray("a, b,c, ") << QByteArray(", ") << QByteArrayList{"a", "b,c", ""};
}

void MlibTest::splitsCStrings()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, separator);
    QFETCH(QByteArrayList, expected);

    char** vector = m_strsplit(text.constData(), separator.constData());
    QByteArrayList parts;
    for (char** entry = vector; *entry; ++entry) {
        parts += *entry;
    }
    m_strfreev(vector);
    QCOMPARE(parts, expected);

    QCOMPARE(m_strsplit(nullptr, separator.constData()), nullptr);
    QCOMPARE(m_strdup(nullptr), nullptr);
    m_strfreev(nullptr);
}

QTEST_APPLESS_MAIN(MlibTest)
#include "tst_mlib.moc"
