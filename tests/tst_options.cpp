// The walk over a command line.

#include "backend/options.h"
#include "tests/support/texts.h"

#include <QProcess>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;

// Knows "-n NUMBER", "-f" and "--stop", which asks for help; notes what it is given.
class TestOptions : public Options
{
public:
    QString seen;

protected:
    ParseResult parseOption(const QString& option, QStringList::const_iterator& it,
                            QStringList::const_iterator end) override
    {
        seen += option + u' ';
        if (option == u"-n"_s) {
            seen += ++it == end ? QString() : *it + u' ';
            return it == end ? Missing : it->isEmpty() || it->startsWith(u"bad"_s) ? Invalid : Ok;
        }
        return option == u"--stop"_s ? Help : option == u"-f"_s ? Ok : Unrecognised;
    }

    ParseResult parseRemainingArguments(const QStringList& rest) override
    {
        seen += bracketed(rest);
        return Options::parseRemainingArguments(rest);
    }

    void printHelp() override { puts("the help"); }
};

static QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(u' ');
}

class OptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void walks()
    {
        // clang-format off
        const struct { bool simple; const char *words, *seen, *says; } rows[] = {
            {true, "program", "ok", ""}, {true, "program -f -n 1 -f", "-f -n 1 -f ok", ""},
            {true, "program -n -f", "-n -f ok", ""}, {true, "program -f --", "-f ok", ""},
            {true, "program -n -- -f", "-n -- -f ok", ""}, {true, "program --stop", "--stop ", ""},
            {true, "program -f -- -h", "-f <-h>", "<unrecognised argument '-h'>"},
            {true, "program -f %1 -f", "-f %1 <%1><-f>", "<unrecognised argument '%1'>"},
            {true, "program -n=1", "-n=1 <-n=1>", "<unrecognised argument '-n=1'>"},
            {true, "program -f -n", "-f -n ", "<option '-n' requires an argument>"},
            {true, "program -n bad%1 -f", "-n bad%1 ", "<invalid -n argument 'bad%1'>"},
            {true, "program -n ", "-n  ", "<invalid -n argument ''>"},
            // Not simple: neither two dashes nor the help words are special.
            {false, "program -- -f", "-- <--><-f>", "<unrecognised argument '--'>"},
            {false, "program -h", "-h <-h>", "<unrecognised argument '-h'>"},
        };
        // clang-format on
        for (const auto& row : rows) {
            TestOptions options;
            options.setSimpleArguments(row.simple);
            const MessageCollector messages;
            const QString result = options.parse(words(row.words)) ? u"ok"_s : QString();
            QCOMPARE(options.seen + result, QString::fromLatin1(row.seen));
            QCOMPARE(messages.texts(), QString::fromLatin1(row.says));
        }
        QVERIFY(Options().parse({}));
    }

    void helpWordsEndTheProcess()
    {
        for (const char* arguments : {"as-child -f -h -n", "as-child --help", "as-child -?"}) {
            QProcess child;
            child.start(QCoreApplication::applicationFilePath(), words(arguments));
            QVERIFY(child.waitForFinished());
            QCOMPARE(child.exitCode(), 0);
            QCOMPARE(child.readAllStandardOutput(), "the help\n");
        }
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "as-child") == 0) {
        return TestOptions().parse(QCoreApplication::arguments().mid(1)) ? 2 : 3;
    }
    OptionsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_options.moc"
