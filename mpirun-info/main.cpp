// The main function: the options, and the report from its sections.

#include "mpirun-info/bundle.h"
#include "mpirun-info/probe.h"
#include "mpirun-info/sections.h"

#include "branding/filenames.h"
#include "version/hgid.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHash>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <deque>
#include <optional>
#include <sys/resource.h>
#include <vector>

namespace {

enum ExitStatus { NothingFound = 0, LaunchWouldFail = 1, CouldNotLook = 2 };

constexpr rlim_t comfortableStack = 8UL * 1024 * 1024;

const char* const help =
    "Usage: zorv-mpirun-info [OPTION]... [zorv-mpirun] [ARGUMENT]...\n"
    "Reports the environment of zorv-mpirun on this host, the session that it finds\n"
    "with these arguments, and problems that make a launch fail. Starts no helper and\n"
    "leaves no files behind. Examines the installation that contains zorv-mpirun-info.\n"
    "\n"
    "  --json         print JSON, for scripts\n"
    "  --bundle FILE  also write an archive for a ticket, see tar(1)\n"
    "  --watch        show the restart files and the helper as they change\n"
    "  --codes        list all findings\n"
    "  --host NAMES   also look up the names and addresses of a host, separated by\n"
    "                 commas, and print its addresses in the order of their use\n"
    "  --help         print this help\n"
    "  --version      print the version\n"
    "\n"
    "These options come first. The rest is a command line of zorv-mpirun. Put the word\n"
    "zorv-mpirun in front of it if it begins with one of the options above, as it may\n"
    "with --host in manual-launch mode.\n"
    "\n"
    "The session cookie is never printed.\n"
    "\n"
    "Exit status: 0 if nothing was found that makes a launch fail, 1 if a launch would\n"
    "fail, 2 if that is not known.\n";

struct Section
{
    const char* name;
    void (*describe)(Report* report, const Request& request);
};
// In the order of the report. makeReport() adds two more at the front.
constexpr Section sections[] = {
    {"process", describeProcess},
    {"system", describeSystem},
    {"libraries", describeLibraries},
    {"container", describeContainer},
    {"batch", describeBatch},
    {"mpi", describeMpi},
    {"installation", describeInstallation},
    {"directories", describeDirectories},
    {"host", describeHost},
    {"log", describeLog},
    {"settings", describeSettings},
    {"commandLine", describeCommandLine},
    {"session", describeSession},
};

// Whether a word is the launcher's name, or another name of the launcher beside this
// program.
bool namesLauncher(const QString& word)
{
    if (word.isEmpty() || word.startsWith(QLatin1Char('-'))) {
        return false;
    }
    if (QFileInfo(word).fileName() == FileName::zorvMpirun) {
        return true;
    }
    Probe probe([&]() -> QJsonValue {
        const bool isPath = word.contains(QLatin1Char('/'));
        const QFileInfo program(isPath ? word : QStandardPaths::findExecutable(word));
        return program.exists() && program.canonicalFilePath() == launcherPath();
    });
    return probe.answer().toBool();
}

// False, with a message, when an option lacks its value.
bool takeRequest(const QStringList& arguments, const std::vector<char*>& words, Request* request)
{
    const QHash<QString, bool*> switches = {{QStringLiteral("--json"), &request->json},
                                            {QStringLiteral("--help"), &request->help},
                                            {QStringLiteral("--version"), &request->version},
                                            {QStringLiteral("--codes"), &request->codes},
                                            {QStringLiteral("--watch"), &request->watch}};
    const QHash<QString, QString*> values = {{QStringLiteral("--host"), &request->host},
                                             {QStringLiteral("--bundle"), &request->bundle}};
    qsizetype i = 1;
    for (; i < arguments.size(); ++i) {
        if (bool* const isGiven = switches.value(arguments.at(i))) {
            *isGiven = true;
        } else if (QString* const value = values.value(arguments.at(i))) {
            if (++i == arguments.size()) {
                fprintf(stderr, "option '%s' requires an argument\n", words.back());
                return false;
            }
            *value = arguments.at(i);
        } else {
            break;
        }
    }
    if (i < arguments.size() && namesLauncher(arguments.at(i))) {
        ++i;
    }
    request->commandLine = QStringList(FileName::zorvMpirun) + arguments.mid(i);
    request->arguments.assign(words.begin() + i, words.end());
    return true;
}

// The report itself may need more than the user's limits, which Request::start keeps.
void raiseLimit(__rlimit_resource resource, rlim_t soft)
{
    rlimit limit;
    if (getrlimit(resource, &limit) == 0 && limit.rlim_cur < soft) {
        limit.rlim_cur = std::min(limit.rlim_max, soft);
        setrlimit(resource, &limit);
    }
}

// Reports why a section is missing.
void addFailure(Report* report, const char* section, Probe::Outcome outcome, int number)
{
    const QLatin1String name(section);
    if (outcome == Probe::Outcome::NoAnswer) {
        report->find(Finding::NotLookedAt, "%1: no answer within %2 s", name,
                     sectionLimitMs / 1000);
    } else if (outcome == Probe::Outcome::Killed) {
        report->find(Finding::NotLookedAt, "%1: ended by signal %2", name, number);
    } else if (name == QLatin1String("commandLine")) {
        // Parsing a command line that asks for help ends the process of each section that
        // does it. One section reports that.
        report->find(number == 0 ? Finding::HelpAsked : Finding::UsageAsked,
                     "the launcher ends with status %1", number);
    }
}

// Makes all sections at once, each in its own process: the report takes as long as the
// slowest one.
void addSections(Report* report, const Request& request)
{
    std::deque<Probe> probes;
    for (const Section& section : sections) {
        const auto describe = [&](Report* part) { section.describe(part, request); };
        probes.emplace_back(partOfReport(section.name, describe), sectionLimitMs);
    }
    for (std::size_t i = 0; i < probes.size(); ++i) {
        Probe& probe = probes[i];
        if (probe.isAnswered()) {
            report->addPacked(probe.answer());
        } else {
            addFailure(report, sections[i].name, probe.wait(), probe.answer().toInt());
        }
    }
}

Report makeReport(const Request& request, std::optional<BundledFiles>* files)
{
    Report report;
    report.beginSection("version");
    describeVersion(&report, request);
    report.beginSection("start");
    describeStart(&report, request);
    raiseLimit(RLIMIT_NOFILE, RLIM_INFINITY);
    if (Probe([] { return QJsonValue(); }).isStarted()) {
        if (!request.bundle.isNull()) {
            files->emplace(request);
        }
        addSections(&report, request);
    } else {
        report.find(Finding::NotLookedAt, "the rest: %1", qt_error_string(errno));
    }
    return report;
}

int print(const QByteArray& text)
{
    if (fputs(text.constData(), stdout) == EOF || fflush(stdout) == EOF) {
        perror("stdout");
        return CouldNotLook;
    }
    return NothingFound;
}

int reported(const Request& request)
{
    std::optional<BundledFiles> files;
    const Report report = makeReport(request, &files);
    const bool isBundled =
        request.bundle.isNull() || writeBundle(request.bundle, report, files ? &*files : nullptr);
    const int status = print(request.json ? report.toJson() : report.toText());
    if (status == CouldNotLook || !isBundled) {
        return CouldNotLook;
    }
    if (report.has("error")) {
        return LaunchWouldFail;
    }
    return report.has("unknown") ? CouldNotLook : NothingFound;
}

} // namespace

int main(int argc, char** argv)
{
    // 1. The state at the start, before anything changes it.
    Request request;
    request.start = Start::ofThisProcess();
    raiseLimit(RLIMIT_STACK, comfortableStack);
    signal(SIGCHLD, SIG_DFL);

    // 2. The application. Standard error is for this program's own messages, not for Qt's:
    //    the report has their causes as findings.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    // QCoreApplication removes some from its list.
    const std::vector<char*> words(argv, argv + argc);
    QStringList arguments;
    for (const char* word : words) {
        arguments += QString::fromLocal8Bit(word);
    }
    QCoreApplication app(argc, argv);

    // 3. The request.
    if (!takeRequest(arguments, words, &request)) {
        return CouldNotLook;
    }
    if (request.help) {
        return print(help);
    }
    if (request.version) {
        return print(QByteArray("zorv-mpirun-info ") + ZORV_VERSION + " (" + HGID + ")\n");
    }
    if (request.codes) {
        return print(allFindings(request.json));
    }
    return request.watch ? watch(request) : reported(request);
}
