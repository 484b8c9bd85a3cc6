// The launcher from outside: the real program, real helpers, real signals.

#include "tests/support/installation.h"
#include "tests/support/network.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr rlim_t mebibyte = 1024 * 1024;

void setStackLimits(rlim_t soft, rlim_t hard)
{
    const rlimit limits = {soft, hard};
    setrlimit(RLIMIT_STACK, &limits);
}

// Runs the launch; what its helper found, as lines.
QByteArray stateOfHelper(Launch& launch, const Installation& installation,
                         const QList<QByteArray>& arguments = {})
{
    const QString file = installation.path(text("state"));
    QFile::remove(file);
    launch.setHelperActions(text("--record-state ") + file);
    launch.run(arguments);
    return readFile(file);
}

} // namespace

class LauncherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsItsInstallation()
    {
        // Only an installation has directories to miss.
        const QByteArray warnings(
            "Unable to find directory '%s/lib'.\n"
            "Your Velmor product installation may be incomplete or corrupted.\n"
            "Unable to find directory '%s/libexec'.\n"
            "Your Velmor product installation may be incomplete or corrupted.\n");
        for (const char* binName : {"bin", "link", "Bin", "bin2"}) {
            const bool throughLink = text(binName) == text("link");
            const bool isInstallation = throughLink || text(binName) == text("bin");
            const Installation installation(text(throughLink ? "bin" : binName));
            const Installation other;
            const QDir root(installation.path(QString()));
            QVERIFY(root.rmdir(text("lib")) && root.rmdir(text("libexec")));
            const QString link = other.path(text("bin/link"));
            QVERIFY(QFile::link(installation.launcher(), link));
            Launch launch(throughLink ? link : installation.launcher());
            launch.setHelperActions(text("--record ") + installation.path(text("record")));
            // Settings that the user made for another Qt program.
            launch.setVariable(text("QT_LOGGING_RULES"), text("*=false"));
            launch.setVariable(text("QT_MESSAGE_PATTERN"), text("pattern"));
            launch.run();
            QCOMPARE(launch.status(), 0);
            const QByteArray rootName = QFile::encodeName(root.path());
            QCOMPARE(launch.errors(),
                     isInstallation ? QByteArray(warnings).replace("%s", rootName) : QByteArray());
            const QList<QByteArray> expected{QFile::encodeName(installation.helper()),
                                             "--zorvmpirun"};
            QCOMPARE(readRecord(installation.path(text("record"))), expected);
        }
    }

    void passesArgumentsOn()
    {
        QByteArray everyByte;
        for (int byte = 1; byte < 256; ++byte) {
            everyByte += static_cast<char>(byte);
        }
        QList<QByteArray> many;
        for (int i = 0; i < 10000; ++i) {
            many += QByteArray::number(i);
        }
        const QList<QByteArray> rows[] = {
            {},
            {"a b", "", "'c\"", "d\ne", "\\", "$HOME", "*"},
            {everyByte, "\xff\xfe"},
            many,
            {QByteArray(131000, 'x')},
            // Those that Qt takes for itself, and options of the launcher.
            {"-qmljsdebugger=x", "--qmljsdebugger", "y", "-platform", "z"},
            {"--zorvport", "4242", "--zorvmpirun", "-np", "2", "a.out", "--zorvport"},
        };
        const Installation installation;
        for (const QList<QByteArray>& arguments : rows) {
            Launch launch(installation.launcher());
            launch.setHelperActions(text("--record ") + installation.path(text("record")));
            launch.run(arguments);
            QCOMPARE(launch.status(), 0);
            QCOMPARE(launch.errors(), QByteArray());
            QCOMPARE(readRecord(installation.path(text("record"))).mid(2), arguments);
        }
    }

    void reportsAHelperThatDoesNotStart()
    {
        const auto executable = QFile::ReadOwner | QFile::ExeOwner;
        // clang-format off
        const struct { const char* content; QFile::Permissions permissions; QByteArray error; } rows[] = {
            {nullptr, {}, "No such file or directory\n"},
            {"#!/bin/sh\n", QFile::ReadOwner, "Permission denied\n"},
            {"\x01\x02garbage", executable, "Exec format error\n"},
            {"#!/none\n", executable, "No such file or directory\n"},
        };
        // clang-format on
        for (const auto& row : rows) {
            const Installation installation;
            QFile helper(installation.helper());
            QVERIFY(helper.remove());
            if (row.content) {
                QVERIFY(helper.open(QIODevice::WriteOnly) && helper.write(row.content) > 0);
                QVERIFY(helper.setPermissions(row.permissions));
                helper.close();
            }
            Launch launch(installation.launcher());
            launch.run();
            QCOMPARE(launch.status(), 1);
            const QByteArray errors = launch.errors();
            QCOMPARE(errors.count('\n'), 1);
            QVERIFY2(errors.startsWith(QFile::encodeName(installation.helper()) + ": "), errors);
            QVERIFY2(errors.endsWith(row.error), errors);
        }
    }

    void helperFindsWhatTheLauncherWasStartedWith()
    {
        const Installation installation;
        const auto stateOf = [&](const QString& program, bool strayDescriptor) {
            Launch launch(program);
            launch.process().setWorkingDirectory(installation.path(text("session")));
            launch.setBeforeExec([&] {
                for (int signo : {SIGHUP, SIGINT, SIGPIPE, SIGUSR2, SIGCHLD}) {
                    signal(signo, SIG_IGN);
                }
                sigset_t mask;
                sigemptyset(&mask);
                sigaddset(&mask, SIGTERM);
                sigaddset(&mask, SIGUSR1);
                sigprocmask(SIG_SETMASK, &mask, nullptr);
                if (strayDescriptor) {
                    fcntl(STDIN_FILENO, F_DUPFD, 100);
                }
            });
            return stateOfHelper(launch, installation);
        };
        // This test has descriptors of its own to give: the first line differs.
        const QByteArray direct = stateOf(installation.helper(), false);
        const QByteArray launched = stateOf(installation.launcher(), true);
        QVERIFY(launched.startsWith("descriptors 0 1 2\n"));
        QVERIFY(direct.contains("ignored 17"));
        QCOMPARE(launched.mid(launched.indexOf('\n')), direct.mid(direct.indexOf('\n')));
    }

    // The process is replaced when it is seen to execute itself a second time.
    void helperGetsTheUsersStackLimit()
    {
        // The sanitizers want whole pages, and do not look for leaks under strace.
        const rlim_t page = 4096;
        // clang-format off
        const struct { rlim_t soft; const char* ignore; int executions; } rows[] = {
            {mebibyte / 2, "0", 2}, {8 * mebibyte - page, "0", 2}, {8 * mebibyte, "0", 1},
            {64 * mebibyte, "0", 1}, {64 * mebibyte + page, "0", 2}, {128 * mebibyte, "0", 2},
            {RLIM_INFINITY, "0", 1}, {4 * mebibyte, "", 1}, {4 * mebibyte, "Off", 2},
        };
        // clang-format on
        rlimit own;
        getrlimit(RLIMIT_STACK, &own);
        const Installation installation;
        const QString trace = installation.path(text("trace"));
        for (const auto& row : rows) {
            if (row.soft > own.rlim_max) {
                continue;
            }
            Launch launch(text("/usr/bin/strace"));
            launch.setBeforeExec([&] { setStackLimits(row.soft, own.rlim_max); });
            launch.setVariable(text("ZORV_IGNORE_STACK_LIMIT"), text(row.ignore));
            launch.setVariable(text("ASAN_OPTIONS"), text("detect_leaks=0"));
            const QByteArray state =
                stateOfHelper(launch, installation,
                              {"-e", "trace=execve", "-o", QFile::encodeName(trace),
                               QFile::encodeName(installation.launcher()), "argument"});
            QCOMPARE(launch.errors(), QByteArray());
            const QByteArray line = "\nstack " + QByteArray::number(qulonglong(row.soft)) + '\n';
            QVERIFY2(state.contains(line) && !state.contains("OLD_STACK_LIMIT"), line);
            QVERIFY2(readFile(trace).count("execve(") == row.executions, line);
        }
    }

    void stackLimitThatCannotBeRaised()
    {
        const Installation installation;
        Launch launch(installation.launcher());
        launch.setBeforeExec([] { setStackLimits(4 * mebibyte, 10 * mebibyte); });
        const QByteArray state = stateOfHelper(launch, installation);
        QCOMPARE(launch.errors(), QByteArray("setrlimit: Invalid argument\n"));
        QVERIFY(state.contains("stack 4194304\n"));
        QVERIFY(state.contains("variable TALVORA_OLD_STACK_LIMIT=4194304\n"));
    }

    void rememberedStackLimit()
    {
        const Installation installation;
        for (const char* value : {"4194304", "0004194304", "", "-1", "+4194304", " 4194304",
                                  "4194304k", "0x400000", "99999999999999999999"}) {
            const bool isNumber =
                QByteArray(value).endsWith("04") && *value != '+' && *value != ' ';
            Launch launch(installation.launcher());
            launch.setBeforeExec([] { setStackLimits(8 * mebibyte, RLIM_INFINITY); });
            launch.setVariable(text("TALVORA_OLD_STACK_LIMIT"), text(value));
            const QByteArray state = stateOfHelper(launch, installation);
            QCOMPARE(launch.errors(), QByteArray());
            QVERIFY2(state.contains(isNumber ? "stack 4194304\n" : "stack 8388608\n"), value);
            QVERIFY2(!state.contains("OLD_STACK_LIMIT"), value);
        }
    }

    void helpEndsTheLauncher()
    {
        const char usage[] =
            "Usage: zorv-client [OPTION]... [PROGRAM] [ARGUMENTS]...\n"
            "Helper daemon for manual launch mode. Note that this is not the remote client.\n"
            "Use \"kinnet\", \"zorv\", or \"pelk\" and use the \"Remote Launch\" box to connect to "
            "remote systems.\n"
            "For instructions on when to use this helper daemon see the\n"
            "\"Manual Launching of Multi-Process Non-MPI programs\" section in the userguide.\n\n"
            "  -host HOSTNAME         host name to connect to\n"
            "  -session SESSION       session to connect to\n"
            "  -attach PID            process id to attach to\n\n"
            "The TALVORA_HOST and TALVORA_SESSION environment variables may also be used\n"
            "to specify a host name and session if not supplied on the command line.\n"
            "If no host name is specified it will be read from ~/.talvora/session/latest\n"
            "which is automatically created by the front end.\n\n";
        const char brief[] = "zorv-mpirun [TOOL ARGUMENTS]... [MPIRUN ARGUMENTS]...\n\n";
        // clang-format off
        const struct { QList<QByteArray> arguments; const char* manual; int status; const char* output; } rows[] = {
            {{"-h"}, "yes", 0, usage},
            {{"--zorvmanuallaunch"}, "no", 1, usage},
            {{"--zorvmpirun", "--zorvmanuallaunch"}, "no", 1, brief},
        };
        // clang-format on
        for (const auto& row : rows) {
            const Installation installation;
            Launch launch(installation.launcher());
            launch.setHelperActions(text("--append ") + installation.path(text("started")));
            launch.setVariable(text("ZORV_MANUAL_LAUNCH"), text(row.manual));
            launch.run(row.arguments);
            QCOMPARE(launch.status(), row.status);
            QCOMPARE(launch.output(), QByteArray(row.output));
            QCOMPARE(launch.errors(), QByteArray());
            QVERIFY(!QFile::exists(installation.path(text("started"))));
        }
    }

    void loadsNothingFromTheWorkingDirectory()
    {
        const Installation installation;
        for (const char* library : {"libc.so.6", "libQt6Core.so.6"}) {
            QFile garbage(installation.path(text("session/") + text(library)));
            QVERIFY(garbage.open(QIODevice::WriteOnly));
        }
        Launch launch(installation.launcher());
        launch.process().setWorkingDirectory(installation.path(text("session")));
        launch.run();
        QCOMPARE(launch.errors(), QByteArray());
        QCOMPARE(launch.status(), 0);
    }
};

QTEST_GUILESS_MAIN(LauncherTest)
#include "tst_launcher.moc"
