// What the suite's programs share but for hosts, settings and the log: paths, command
// lines, versions and processes; and the launcher's process class.

#include "common/ProcInfo.h"
#include "common/compatibility_simple.h"
#include "common/compatibility_simple/process/processhelpers_p.h"
#include "common/mlib.h"
#include "mpirun/restartableprocess.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

// The expansion in an environment of these entries, which need not hold a '='; without
// entries there is no environment at all.
static QString expandedIn(std::vector<const char*> entries, const QByteArray& path)
{
    char** const previous = environ;
    entries.push_back(nullptr);
    environ = entries.front() ? const_cast<char**>(entries.data()) : nullptr;
    QString expanded = expandVars(QString::fromUtf8(path));
    environ = previous;
    return expanded;
}

class CommonTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir mDir;
    const QString mFile = mDir.filePath(u"file"_s);
    const QString mTestchild = u"\"" TESTCHILD "\" "_s;

private Q_SLOTS:
    void initTestCase() { clearSettings({"ALLOW_NEWLINE_IN_ARGS"}); }

    void expandsPaths()
    {
        const QByteArray root(sc_getpwuid(0)->pw_dir);
        // clang-format off
        const struct { std::vector<const char*> environment; QByteArray path, expected; } rows[] = {
            {{"HOME=/home"}, "~/$HOME", "/home//home"}, {{}, "~root x/y", root + " x/y"},
            {{}, "~nobody-here/x", "~nobody-here/x"}, {{}, " a~b \t", "a~b"}, {{}, "$HOME", "$HOME"},
            // The longest word is a variable's name; letters of all scripts are in words.
            {{"H=/h"}, "  ${H}/x ${H $H$H $HX ${HX} $NONE", "/h/x ${H /h/h $HX ${HX} $NONE"},
            {{"H=/h"}, "$H\xc3\xa9 $H\xf0\x9d\x94\xb8", "$H\xc3\xa9 $H\xf0\x9d\x94\xb8"},
            {{"H=\\1=\\\\$&\xc3\xa9"}, "$H", "\\1=\\\\$&\xc3\xa9"},
            // Variables are replaced in their order, in the values of earlier ones too.
            {{"A=$B", "B=b"}, "$A", "b"}, {{"B=b", "A=$B"}, "$A", "$B"},
            // No equals sign, no variable; a name is a pattern, or not, and may match nothing.
            {{"A", "B=b"}, "$A $B", "$A b"}, {{"A(=x", "B=b"}, "$A( $B", "$A( b"},
            {{"A.C=\\1"}, "$ABC ${AxC} $ABC\xc3\xa9", "\\1 \\1 $ABC\xc3\xa9"},
            {{"*=x"}, "$a", "xxax"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QCOMPARE(expandedIn(row.environment, row.path), QString::fromUtf8(row.expected));
        }
        // Each variable doubles the text, by name and by pattern.
        for (const char* entry : {"A=$A/$A/", "A.?=$A/$A/"}) {
            const auto size = expandedIn(std::vector<const char*>(100, entry), "$A/").size();
            QVERIFY(size > 8 * 1024 * 1024 && size <= 16 * 1024 * 1024);
        }
    }

    void readsTexts()
    {
        const auto arguments = [](const char* line) { return bracketed(parseArgs(text(line))); };
        const auto key = [](const char* version) {
            return sc_versionForCompatibility_private(text(version), 7);
        };
        // clang-format off
        const struct { QString (*read)(const char*); const char *given, *expected; } rows[] = {
            {arguments, "a  b\nc\td \n", "<a><b><c\td>"},
            // Quotes, also those that are never closed.
            {arguments, "a''b '' \"\" \"c d\"'e f'g", "<ab><><><c de fg>"},
            {arguments, "'ab c", "<ab c>"}, {arguments, "x \"a\\", "<x><a>"},
            // A backslash escapes in double quotes, is itself in single ones, and else dropped.
            {arguments, "\"a\\\"b\\c\\\\d\" 'a\\b'", "<a\"bc\\d><a\\b>"},
            {arguments, "a\\ b\\\\\\ \\'a b'", "<a><b><a b>"},
            // Dates and what follows two numbers are no part of the key, but a zero is.
            {key, "4.2.1", "4.2$7"}, {key, "4.2.0", "4.2.0$7"}, {key, "4.2.1.20190", "4.2$7"},
            {key, "4.2.1-rc1-preview12-x", "4.2preview12$7"}, {key, "4.2.1-preview", "4.2$7"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QCOMPARE(row.read(row.given), text(row.expected));
        }
        setSetting("PELK_ALLOW_NEWLINE_IN_ARGS", "yes");
        QCOMPARE(arguments("a\nb c"), text("<a\nb><c>"));
    }

    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void table()
    {
        // An id that no user has here.
        QCOMPARE(ProcInfo::getList(2123456789), QList<int>());
        QVERIFY(ProcInfo::getList(static_cast<int>(getuid())).contains(getpid()));
        QCOMPARE(ProcInfo::getChild(getpid()), -1);

        const auto seen = [](int pid) {
            return bracketed({QString::number(ProcInfo::getParent(pid)), ProcInfo::getName(pid),
                              ProcInfo::getExe(pid),
                              ProcInfo::exists(pid) ? u"exists"_s : u"none"_s,
                              ProcInfo::alive(pid) ? u"alive"_s : u"dead"_s});
        };
        const QString parent = u'<' + QString::number(getpid()) + u'>';
        QProcess process;
        // A name that looks like what is read, with what else a name may have.
        process.setChildProcessModifier([] { prctl(PR_SET_NAME, "Uid: (Z )\n9"); });
        process.start(QStringLiteral(TESTCHILD), {u"--sleep"_s});
        QVERIFY(process.waitForStarted());
        const int running = ProcInfo::getChild(getpid());
        QCOMPARE(running, process.processId());
        QCOMPARE(seen(running), parent + u"<" TESTCHILD "><" TESTCHILD "><exists><alive>"_s);
        process.kill();
        QVERIFY(process.waitForFinished());
        const pid_t zombie = fork();
        if (zombie == 0) {
            prctl(PR_SET_NAME, "PPid:\t1");
            _exit(0);
        }
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT);
        QCOMPARE(seen(zombie), parent + u"<><><exists><dead>"_s);
        waitpid(zombie, nullptr, 0);
        QCOMPARE(seen(zombie), u"<-1>null<><none><dead>"_s);
    }

    void helperLines()
    {
        // clang-format off
        const struct { QString command; bool merge; QByteArray input; QString expected; } rows[] = {
            {mTestchild + u"--print a --print-error b --print \"c  d\""_s, false, {}, u"<a><c  d>"_s},
            {mTestchild + u"--print a --print-error b --print c"_s, true, {}, u"<a><b><c>"_s},
            {mTestchild + u"--cat"_s, false, "a\n\n\r\nb", u"<a><><\r><b>"_s},
            {mTestchild + u"--print a --signal 9"_s, false, {}, u"<a>"_s},
            // A descendant holds the output.
            {mTestchild + u"--print a --fork-sleep --print b"_s, false, {}, u"<a><b>"_s},
            {u"  "_s, false, {}, u"<Failed to run '  '>"_s},
        };
        // clang-format on
        for (const auto& row : rows) {
            QVERIFY(writeFile(mFile, row.input));
            const QString input = row.input.isNull() ? QString() : mFile;
            const MessageCollector messages;
            const QStringList lines = sc_helper_exec(row.command, row.merge, false, input);
            QCOMPARE(bracketed(lines) + messages.texts(), row.expected);
        }
        const MessageCollector messages;
        QCOMPARE(sc_helper_exec(u"/nonexistent"_s, false, true, QString()), QStringList());
        const QString flood = mTestchild + u"--flood-error 4000000 --flood 5000000"_s;
        const QStringList lines = sc_helper_exec(flood, false, false, QString());
        QCOMPARE(lines, QStringList(50000, QString(99, u'x')));
        QCOMPARE(messages.texts(), QString());
        // A child that outlives its output is killed.
        const QString sleeper = mTestchild + u"--print a --close-output --sleep"_s;
        QCOMPARE(bracketed(ProcessHelpers::outputLines(sleeper, false, false, QString(), 1000)),
                 u"<a>"_s);
    }

    void interpreterLine()
    {
        const QString fifo = mDir.filePath(u"fifo"_s);
        QCOMPARE(sc_mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        QVERIFY(!sc_isScript(fifo) && sc_getScriptBinaryPathAndArguments(fifo).isEmpty());
        const std::pair<QByteArray, QString> rows[] = {
            {"#! /bin/sh -e\r\necho", u"</bin/sh><-e\r>"_s},
            {"#!" + QByteArray(5000, 'x'), u'<' + QString(1021, u'x') + u'>'},
            {"/bin/sh\n#!/bin\n", QString()},
        };
        for (const auto& [content, expected] : rows) {
            QVERIFY(writeFile(mFile, content));
            QCOMPARE(sc_isScript(mFile), !expected.isEmpty());
            QCOMPARE(bracketed(sc_getScriptBinaryPathAndArguments(mFile)), expected);
        }
    }

    void restartsAsLastStarted()
    {
        RestartableProcess process;
        const auto runAndRestart = [&](QIODevice::OpenMode mode, const QByteArray& output) {
            for (int i = 0; i < 2; ++i) {
                QCOMPARE(process.openMode(), mode);
                QVERIFY(process.waitForFinished());
                QCOMPARE(process.readAll(), output);
                process.restart();
            }
            QVERIFY(process.waitForFinished());
        };
        process.start(u"printf \"<%s>\" \"a  b\" c"_s, QIODevice::ReadWrite);
        runAndRestart(QIODevice::ReadWrite, "<a  b><c>");
        process.start(u"printf"_s, {u"<%s>"_s, u"a b"_s, u""_s, u"\"c\""_s}, QIODevice::ReadOnly);
        runAndRestart(QIODevice::ReadOnly, "<a b><><\"c\">");
        process.start(u"printf x"_s, QIODevice::ReadWrite);
        runAndRestart(QIODevice::ReadWrite, "x");
        process.start(u"  "_s, QIODevice::ReadOnly);
        QCOMPARE(process.error(), QProcess::FailedToStart);
    }
};

QTEST_GUILESS_MAIN(CommonTest)
#include "tst_common.moc"
