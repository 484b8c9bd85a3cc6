// What the suite's programs share but for hosts, settings and the log: paths, command
// lines, versions, processes and their files; and the launcher's process class.

#include "common/ProcInfo.h"
#include "common/compatibility_simple.h"
#include "common/mlib.h"
#include "common/talvoraglobals.h"
#include "mpirun/restartableprocess.h"
#include "tests/support/descriptorlimit.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"
#include "version/hgid.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

static volatile sig_atomic_t signalCount = 0;

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
    // Registered before the instance is made, so called after it is gone.
    void initTestCase()
    {
        atexit([] { TalvoraGlobals::instance() ? abort() : void(); });
        clearSettings(
            {"BG_TMPDIR", "VERSION", "RELEASE_VERSION", "ALLOW_NEWLINE_IN_ARGS", "DEBUG_SC_KILL"});
    }

    void expandsPaths()
    {
        const QByteArray root(getpwnam("root")->pw_dir);
        const QByteArray longEntry = QByteArray(40000, 'N') + "=x";
        // clang-format off
        const struct { std::vector<const char*> environment; QByteArray path, expected; } rows[] = {
            {{"HOME=/home"}, "~/$HOME", "/home//home"}, {{"HOME=/home"}, "~ x/y", "/home x/y"},
            {{}, "~root x/y", root + " x/y"}, {{}, "~nobody-here/x", "~nobody-here/x"},
            {{}, " a~b \t", "a~b"}, {{}, "$HOME", "$HOME"},
            // The longest word is a variable's name; letters of all scripts are in words.
            {{"H=/h"}, "  ${H}/x ${H $H$H", "/h/x ${H /h/h"},
            {{"H=/h"}, "$HX $H_ ${HX} $NONE", "$HX $H_ ${HX} $NONE"},
            {{"H=/h"}, "$H\xc3\xa9 $H\xf0\x9d\x94\xb8", "$H\xc3\xa9 $H\xf0\x9d\x94\xb8"},
            {{"f%=x"}, "$f% $f%a", "$f% xa"}, {{"H=\\1=\\\\$&\xc3\xa9"}, "$H", "\\1=\\\\$&\xc3\xa9"},
            // Variables are replaced in their order, in the values of earlier ones too.
            {{"A=$B", "B=b"}, "$A", "b"}, {{"B=b", "A=$B"}, "$A", "$B"},
            // No equals sign, no variable; a name is a pattern, or not.
            {{"A", "B=b"}, "$A $B", "$A b"}, {{"A(=x", "B=b"}, "$A( $B", "$A( b"},
            {{"A.C=\\1"}, "$ABC $A.C ${AxC} $ABC\xc3\xa9", "\\1 \\1 \\1 $ABC\xc3\xa9"},
            // Where there is nothing to a pattern, none is compiled: this would be too large.
            {{longEntry.constData()}, '$' + longEntry.chopped(2), "x"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QCOMPARE(expandedIn(row.environment, row.path), QString::fromUtf8(row.expected));
        }
        // Each variable doubles the text, by name and by pattern.
        for (const char* entry : {"A=$A/$A/", "A.?=$A/$A/"}) {
            const auto size = expandedIn(std::vector<const char*>(100, entry), "$A/").size();
            QVERIFY(size > 65536 && size < 262144);
        }
        for (const char* path : {"100%", "a$b", "~x", "a~b"}) {
            QVERIFY2(containsEnvVarOrTilde(text(path)) != (path == QByteArray("a~b")), path);
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
            {arguments, " \n ", ""}, {arguments, "a  b\nc\td", "<a><b><c\td>"},
            // Quotes, also those that are never closed.
            {arguments, "a''b '' \"\" \"c d\"'e f'g", "<ab><><><c de fg>"},
            {arguments, "'ab c", "<ab c>"}, {arguments, "\"a", "<a>"},
            // A backslash escapes in double quotes, is itself in single ones, and else dropped.
            {arguments, "\"a\\\"b\\c\\\\d\"", "<a\"bc\\d>"}, {arguments, "'a\\b'", "<a\\b>"},
            {arguments, "a\\ b\\\\\\", "<a><b>"}, {arguments, "\\'a b'", "<a b>"},
            {arguments, "x \"a\\", "<x><a>"}, {arguments, "\\", ""},
            // Dates and what follows two numbers are no part of the key, but a zero is.
            {key, "4.2.1", "4.2$7"}, {key, "4.2.0", "4.2.0$7"}, {key, "4.2.release", "4.2.release$7"},
            {key, "4.2.1.5", "4.2.1.5$7"}, {key, "4.2.1.20190", "4.2$7"}, {key, "4.2019", "4.2019$7"},
            {key, "4.2.1-rc1-preview12-x", "4.2preview12$7"}, {key, "4.2.1-Preview3", "4.2$7"},
            {key, "4.2.1-preview", "4.2$7"}, {key, "4..1", "4.$7"}, {key, "-", "$7"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QCOMPARE(row.read(row.given), text(row.expected));
        }
        setSetting("PELK_ALLOW_NEWLINE_IN_ARGS", "yes");
        QCOMPARE(arguments("a\nb c"), text("<a\nb><c>"));

        QByteArray parts;
        for (const char* joined : {"a, ,, b,c, ", ""}) {
            char** const vector = m_strsplit(joined, ", ");
            for (char** entry = vector; *entry; ++entry) {
                parts += QByteArray("<") + *entry + '>';
            }
            m_strfreev(vector);
        }
        QCOMPARE(parts, "<a><,><b,c><><>");
        m_strfreev(m_strsplit(m_strdup(nullptr), ","));
    }

    void versions()
    {
        const char* const rows[][5] = {
            {"1.2.3", "4.5.6", nullptr, nullptr, "<1.2.3><4.5.6><1.2$7>"},
            {"", "", nullptr, nullptr, "<<unknown>><<unknown>><<unknown>$7>"},
            {"1.2.3", "4.5.6", "5.0.2", nullptr, "<5.0.2><5.0.2><5.0$7>"},
            {"1.2.3", "4.5.6", "5.0.2", "", "<5.0.2><><5.0$7>"},
            {"1.2.3", "4.5.6", "", nullptr, "<><><$7>"},
        };
        for (const auto& [version, release, setting, releaseSetting, expected] : rows) {
            ZORV_VERSION = version;
            ZORV_RELEASE_VERSION = release;
            setSetting("ZORV_VERSION", setting);
            setSetting("PELK_RELEASE_VERSION", releaseSetting);
            QCOMPARE(bracketed({sc_version(), sc_releaseVersion(), sc_versionForCompatibility(7)}),
                     text(expected));
        }
    }

    void layouts()
    {
        TalvoraGlobals* globals = TalvoraGlobals::instance();
        const auto paths = [&] {
            return bracketed({globals->installPath(), globals->binPath(), globals->libPath(),
                              globals->libexecPath(), globals->resourcesPath(),
                              globals->iconsPath(), globals->metricsPath()});
        };
        globals->setLocationsAsFlatPath(text("/f"));
        QCOMPARE(paths(), text("</f></f></f></f></f></f>null"));
        globals->setLocationsFromInstallPath(text("/no/x"));
        QCOMPARE(paths(), text("</no/x></no/x/bin></no/x/lib></no/x/libexec></no/x/resource>"
                               "</no/x/icons></no/x/pelk/metrics>"));
        globals->initPaths();
        QCOMPARE(globals->installPath(), QCoreApplication::applicationDirPath() + text("/.."));
        QCOMPARE(globals->localConfigDir() + globals->bluegeneTmpDir(), text(".talvora/tmp"));
        QVERIFY(*HGID);
        QCOMPARE(QFile(text(":/qt/etc/qt.conf")).size(), 236);
    }

    // No child is left behind, not even one that has ended.
    void cleanup() { QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD); }

    void table()
    {
        QStringList names;
        for (int pid : ProcInfo::getList(-1)) {
            names += QString::number(pid);
        }
        QVERIFY(names.contains(u"1"_s) && std::is_sorted(names.begin(), names.end()));
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

    void signalsMayBeDropped()
    {
        signal(SIGHUP, [](int) { signalCount = signalCount + 1; });
        for (const char* setting : {"ignore{12}ignore{1}", "ignore{12}"}) {
            setSetting("ZORV_DEBUG_SC_KILL", setting);
            const MessageCollector messages;
            QCOMPARE(sc_kill(getpid(), 0) + sc_kill(getpid(), SIGHUP), 0);
            const bool dropped = signalCount == 0;
            QCOMPARE(dropped, QByteArray(setting).contains("{1}"));
            QCOMPARE(messages.texts(), u"<sc_kill(pid,signo): %1 1 ignore %2>"_s.arg(getpid()).arg(
                                           dropped ? u"true"_s : u"false"_s));
        }
        QCOMPARE(ignoreSigPipe(), 0);
        QVERIFY(signal(SIGPIPE, SIG_DFL) == SIG_IGN);
        QCOMPARE(ignoreSigPipe(), 0);
        QVERIFY(signal(SIGPIPE, SIG_DFL) == SIG_DFL);
        // A sleep that a signal has ended is not resumed.
        signal(SIGALRM, [](int) {});
        alarm(1);
        QCOMPARE(sc_usleep(1000 * 1000 * 1000), 0);
        QCOMPARE(alarm(0), 0U);
    }

    void helperLines()
    {
        const QString noCommand = u"/nonexistent/command -d"_s;
        // clang-format off
        const struct { QString command; bool merge; QByteArray input; QString expected; } rows[] = {
            {mTestchild + u"--print a --print-error b --print \"c  d\""_s, false, {}, u"<a><c  d>"_s},
            {mTestchild + u"--print a --print-error b --print c"_s, true, {}, u"<a><b><c>"_s},
            {mTestchild + u"--cat"_s, false, "a\n\n\r\nb", u"<a><><\r><b>"_s},
            {mTestchild + u"--print a --signal 9"_s, false, {}, u"<a>"_s},
            // A descendant holds the output.
            {mTestchild + u"--print a --fork-sleep --print b"_s, false, {}, u"<a><b>"_s},
            {noCommand, false, {}, u"<Failed to run '/nonexistent/command -d'>"_s},
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
        QCOMPARE(sc_helper_exec(noCommand, false, true, QString()), QStringList());
        QCOMPARE(sc_helper_exec(mTestchild, false, true, noCommand), QStringList());
        const QString flood = mTestchild + u"--flood-error 4000000 --flood 5000000"_s;
        const QStringList lines = sc_helper_exec(flood, false, false, QString());
        QCOMPARE(lines, QStringList(50000, QString(99, u'x')));
        QCOMPARE(messages.texts(), QString());
        // A child that outlives its output is killed.
        const QString sleeper = mTestchild + u"--print a --close-output --sleep"_s;
        QCOMPARE(bracketed(sc_helper_exec(sleeper, false, false, QString(), 1000)), u"<a>"_s);
    }

    void interpreterLine()
    {
        const QString fifo = mDir.filePath(u"fifo"_s);
        QCOMPARE(sc_mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        // clang-format off
        const struct { QString file; QByteArray content; bool script; QString expected; } rows[] = {
            {mFile, "#! /bin/sh -e\r\necho", true, u"</bin/sh><-e\r>"_s},
            {mFile, "#!" + QByteArray(5000, 'x'), true, u'<' + QString(1021, u'x') + u'>'},
            {mFile, "/bin/sh\n#!/bin\n", false, {}}, {mFile, "#", false, {}},
            {fifo, {}, false, {}}, {mDir.path(), {}, false, {}},
        };
        // clang-format on
        for (const auto& row : rows) {
            QVERIFY(row.content.isNull() || writeFile(row.file, row.content));
            QVERIFY2(sc_isScript(row.file) == row.script, row.content);
            QCOMPARE(bracketed(sc_getScriptBinaryPathAndArguments(row.file)), row.expected);
        }
    }

    // With fractions of seconds, and before 1970.
    void modifiedTime()
    {
        QFile file(mFile);
        QVERIFY(file.open(QIODevice::ReadWrite));
        const auto time = [](qint64 ms) { return QDateTime::fromMSecsSinceEpoch(ms); };
        QVERIFY(file.setFileTime(time(1000007), QFileDevice::FileAccessTime));
        QVERIFY(sc_setModifiedTime(mFile, time(-1501)));
        QCOMPARE(QFileInfo(mFile).lastModified(), time(-1501));
        QCOMPARE(QFileInfo(mFile).lastRead(), time(1000007));
        QVERIFY(!sc_setModifiedTime(u"/nonexistent"_s, time(0)));
    }

    void openDescriptors()
    {
        int ends[2];
        QCOMPARE(pipe(ends), 0);
        // A number that no descriptor set of select(2) has.
        if (!allowDescriptor(1500) || fcntl(ends[0], F_DUPFD, 1500) != 1500) {
            QSKIP("the hard limit on descriptors is too low");
        }
        for (const int fd : {ends[0], 1500, ends[1]}) {
            const auto mode = fd == ends[1] ? QIODevice::WriteOnly : QIODevice::ReadOnly;
            QVERIFY(sc_isFileDescriptorOpen(fd, mode));
            close(fd);
            QVERIFY(!sc_isFileDescriptorOpen(fd, mode));
        }
        QVERIFY(!sc_isFileDescriptorOpen(-1, QIODevice::ReadOnly));
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
        const QStringList arguments = {u"<%s>"_s, u"a b"_s, u""_s, u"\"c\""_s};
        for (int round = 0; round < 2; ++round) {
            process.start(u"printf"_s, arguments, QIODevice::ReadOnly);
            runAndRestart(QIODevice::ReadOnly, "<a b><><\"c\">");
            process.start(u"printf \"<%s>\" \"a  b\" c"_s, QIODevice::ReadWrite);
            runAndRestart(QIODevice::ReadWrite, "<a  b><c>");
        }
        process.start(u"  "_s, QIODevice::ReadOnly);
        QCOMPARE(process.error(), QProcess::FailedToStart);
    }
};

QTEST_GUILESS_MAIN(CommonTest)
#include "tst_common.moc"
