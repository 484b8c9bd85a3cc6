#include "common/mlib.h"
#include "tests/support/helpers.h"

#include <QTest>

class MlibTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings(); }

    void splitsCommandLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("arguments");
        const auto row = [](const char* name, const char* line, const QStringList& arguments) {
            QTest::newRow(name) << text(line) << arguments;
        };
        row("blanks and line feeds separate, tabs do not", " a  b\nc\td \n",
            list({"a", "b", "c\td"}));
        row("quoted parts belong to the argument around them", "a''b \"c d\"'e f'g",
            list({"ab", "c de fg"}));
        row("quotes with nothing in them are an argument", "'' \"\"", list({"", ""}));
        row("unclosed quote takes the rest", "x \"a b\\", list({"x", "a b"}));
        row("backslash in double quotes escapes", "\"a\\\"b\\c\\\\d\"", list({"a\"bc\\d"}));
        row("backslash in single quotes is itself", "'a\\b'", list({"a\\b"}));
        row("backslash elsewhere is dropped", "a\\ b\\c\\\\\\ \\'d e'", list({"a", "bc", "d e"}));
    }

    void splitsCommandLines()
    {
        QFETCH(QString, line);
        QTEST(parseArgs(line), "arguments");
    }

    void lineFeedSeparatesUnlessAllowed()
    {
        setSetting("PELK_ALLOW_NEWLINE_IN_ARGS", "yes");
        QCOMPARE(parseArgs(text("a\nb c")), list({"a\nb", "c"}));
    }

    void splitsAtEverySeparator()
    {
        char** const parts = m_strsplit("a, ,,b", ", ");
        QCOMPARE(parts[0], "a");
        QCOMPARE(parts[1], ",,b");
        QCOMPARE(parts[2], nullptr);
        m_strfreev(parts);
    }
};

QTEST_GUILESS_MAIN(MlibTest)
#include "tst_mlib.moc"
