// The walk over a command line.

#include "backend/options.h"

#include <QProcess>
#include <QTest>

#include <cstdio>

namespace {

// Knows "-n NUMBER", "-f" and "--stop", which asks for help.
class TestOptions : public Options
{
public:
    QStringList seen;
    QStringList rest;
    bool takesRest = true;

protected:
    ParseResult parseOption(const QString& option, QStringList::const_iterator& it,
                            QStringList::const_iterator end) override
    {
        if (option == QLatin1String("-n")) {
            if (++it == end) {
                return Missing;
            }
            seen += option + *it;
            return it->isEmpty() || it->startsWith(QLatin1String("bad")) ? Invalid : Ok;
        }
        if (option == QLatin1String("--stop")) {
            return Help;
        }
        const bool known = option == QLatin1String("-f");
        seen += option;
        return known ? Ok : Unrecognised;
    }

    ParseResult parseRemainingArguments(const QStringList& arguments) override
    {
        rest = arguments;
        return takesRest ? Ok : Options::parseRemainingArguments(arguments);
    }

    void printHelp() override { puts("the help"); }
};

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

} // namespace

class OptionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void walks_data();
    void walks();
    void rejects_data();
    void rejects();
    void baseTakesNothing();
    void helpWordsEndTheProcess_data();
    void helpWordsEndTheProcess();
};

void OptionsTest::walks_data()
{
    QTest::addColumn<bool>("simple");
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("seen");
    QTest::addColumn<QString>("rest");

    const auto row = [](const char* name, bool simple, const char* arguments, const char* seen,
                        const char* rest) {
        QTest::newRow(name) << simple << QString::fromLatin1(arguments) << QString::fromLatin1(seen)
                            << QString::fromLatin1(rest);
    };
    row("nothing", true, "", "", "");
    row("options only", true, "-f -n 1 -f", "-f -n1 -f", "");
    row("a value that looks like an option", true, "-n -f", "-n-f", "");
    row("the first other argument ends the options", true, "-f a -f", "-f a", "a -f");
    row("an option joined to its value is another", true, "-n=1", "-n=1", "-n=1");
    row("two dashes end the options", true, "-f -- -h", "-f", "-h");
    row("two dashes at the end", true, "-f --", "-f", "");
    row("two dashes as a value", true, "-n -- -f", "-n-- -f", "");
    row("not simple: two dashes are ordinary", false, "-- -f", "--", "-- -f");
    row("not simple: help words are ordinary", false, "-h -f", "-h", "-h -f");
}

void OptionsTest::walks()
{
    QFETCH(bool, simple);
    QFETCH(QString, arguments);

    TestOptions options;
    options.setSimpleArguments(simple);
    QVERIFY(options.parse(words("program") + words(arguments.toLatin1().constData())));
    QTEST(options.seen.join(QLatin1Char(' ')), "seen");
    QTEST(options.rest.join(QLatin1Char(' ')), "rest");
}

void OptionsTest::rejects_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("value missing")
        << words("-f -n") << QByteArray("option '-n' requires an argument");
    QTest::newRow("value unacceptable")
        << words("-n bad%1 -f") << QByteArray("invalid -n argument 'bad%1'");
    QTest::newRow("value empty and unacceptable")
        << QStringList{QStringLiteral("-n"), QString()} << QByteArray("invalid -n argument ''");
    QTest::newRow("left-over argument")
        << words("-f %1 b") << QByteArray("unrecognised argument '%1'");
    QTest::newRow("help asked for by an option") << words("--stop") << QByteArray();
}

void OptionsTest::rejects()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);

    static QByteArrayList messages;
    messages.clear();
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            messages += text.toLocal8Bit();
        });
    TestOptions options;
    options.takesRest = false;
    const bool accepted = options.parse(words("program") + arguments);
    qInstallMessageHandler(previous);
    QVERIFY(!accepted);
    QCOMPARE(messages, message.isNull() ? QByteArrayList() : QByteArrayList{message});
}

void OptionsTest::baseTakesNothing()
{
    Options options;
    QVERIFY(options.parse({}));
    QVERIFY(options.parse(words("program")));
    QVERIFY(options.parse(words("program --")));
    QTest::ignoreMessage(QtWarningMsg, "unrecognised argument 'a'");
    QVERIFY(!options.parse(words("program a")));
}

void OptionsTest::helpWordsEndTheProcess_data()
{
    QTest::addColumn<QString>("word");
    for (const char* word : {"-h", "--help", "-?"}) {
        QTest::newRow(word) << QString::fromLatin1(word);
    }
}

void OptionsTest::helpWordsEndTheProcess()
{
    QFETCH(QString, word);
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("as-child"), QStringLiteral("-f"), word, QStringLiteral("-n")});
    QVERIFY(child.waitForFinished());
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(child.exitCode(), 0);
    QCOMPARE(child.readAllStandardOutput(), QByteArray("the help\n"));
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "as-child") == 0) {
        TestOptions options;
        return options.parse(QCoreApplication::arguments().mid(1)) ? 2 : 3;
    }
    OptionsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_options.moc"
