// Prints what the launcher sees on this host, without starting anything.

#include "mpirun-info/facts.h"
#include "mpirun-info/report.h"
#include "mpirun-info/session.h"
#include "mpirun-info/settings.h"
#include "mpirun/launchcontext.h"

#include "branding/filenames.h"
#include "common/logger.h"
#include "version/hgid.h"
#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>

namespace {

enum ExitStatus { Fine = 0, LaunchWouldFail = 1, Trouble = 2 };

const char* const help =
    "Usage: zorv-mpirun-info [OPTION]... [zorv-mpirun] [ARGUMENT]...\n"
    "Prints what zorv-mpirun sees on this host and which session it would find with\n"
    "these arguments, and what is wrong with that. Starts nothing and changes nothing.\n"
    "The installation is the one that zorv-mpirun-info itself is in.\n"
    "\n"
    "  --json        print JSON, for scripts\n"
    "  --host NAMES  also look up a host, names and addresses with commas between\n"
    "                them, and print its addresses, those to try first before others\n"
    "  --help        print this help\n"
    "  --version     print the version\n"
    "\n"
    "These options come first. All that follows is taken as a command line of\n"
    "zorv-mpirun; the word zorv-mpirun in front of it is needed only when it begins with\n"
    "one of the options above, as --host may in manual-launch mode. A command line with\n"
    "which zorv-mpirun would print its help prints it here.\n"
    "\n"
    "The session cookie is never printed.\n"
    "\n"
    "Exit status: 0, 1 when zorv-mpirun would fail, 2 for a mistake in the options above.\n";

struct Request
{
    bool json = false;
    bool help = false;
    bool version = false;
    QString host;
    // As the launcher would be given it, its name first.
    QStringList commandLine = {FileName::zorvMpirun};
};

// Whether a word names the launcher: by its own name, or by another one that leads to
// the launcher beside this program.
bool namesLauncher(const QString& word)
{
    const QString program =
        word.contains(QLatin1Char('/')) ? word : QStandardPaths::findExecutable(word);
    const QString found = QFileInfo(program).canonicalFilePath();
    const QDir here(QCoreApplication::applicationDirPath());
    return QFileInfo(word).fileName() == FileName::zorvMpirun ||
           (!found.isEmpty() &&
            found == QFileInfo(here.filePath(FileName::zorvMpirun)).canonicalFilePath());
}

// False when an option lacks its value.
bool takeRequest(const QStringList& arguments, Request* request)
{
    qsizetype i = 1;
    for (; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--json")) {
            request->json = true;
        } else if (argument == QLatin1String("--help")) {
            request->help = true;
        } else if (argument == QLatin1String("--version")) {
            request->version = true;
        } else if (argument != QLatin1String("--host")) {
            break;
        } else if (++i == arguments.size()) {
            return false;
        } else {
            request->host = arguments.at(i);
        }
    }
    if (i < arguments.size() && namesLauncher(arguments.at(i))) {
        ++i;
    }
    request->commandLine += arguments.mid(i);
    return true;
}

// The launcher's own messages are findings here. The report says in its own way
// what they say of the installation.
QStringList g_messages;

void keepMessage(QtMsgType, const QMessageLogContext&, const QString& text)
{
    g_messages += text;
}

Report makeReport(const Request& request)
{
    Report report;
    describeVersion(&report);
    describeInstallation(&report, chooseInstallationLayout());
    describeHost(&report);
    describeRoutability(&report, request.host);
    describeSystem(&report);
    describeSettings(&report);
    g_messages.clear();
    ZORVDebuggerOptions options;
    const bool accepted = options.parse(request.commandLine);
    describeCommandLine(&report, options, request.commandLine, accepted,
                        g_messages.join(QStringLiteral("; ")));
    describeSession(&report, options);
    return report;
}

bool print(const QByteArray& text)
{
    if (fputs(text.constData(), stdout) == EOF || fflush(stdout) == EOF) {
        perror("stdout");
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    // Qt's rules for messages are a user's for other programs.
    Logger::installPlainMsgHandler();
    // As the launcher has them: QCoreApplication takes some out of its list.
    const QStringList arguments = LaunchContext(argc, argv).arguments();
    QCoreApplication app(argc, argv);
    Request request;
    if (!takeRequest(arguments, &request)) {
        qWarning("option '--host' requires an argument");
        return Trouble;
    }
    if (request.help) {
        return print(help) ? Fine : Trouble;
    }
    if (request.version) {
        return print(QByteArray("zorv-mpirun-info ") + ZORV_VERSION + " (" + HGID + ")\n")
                   ? Fine
                   : Trouble;
    }
    qInstallMessageHandler(keepMessage);
    const Report report = makeReport(request);
    if (!print(request.json ? report.toJson() : report.toText())) {
        return Trouble;
    }
    return report.hasErrors() ? LaunchWouldFail : Fine;
}
