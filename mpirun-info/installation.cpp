// The installation, the helper, and the versions and libraries of the programs.

#include "mpirun-info/probe.h"
#include "mpirun-info/sections.h"

#include "branding/filenames.h"
#include "common/compatibility_simple/process/executable.h"
#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/system/versionstrings.h"
#include "common/installation.h"
#include "common/talvoraglobals.h"
#include "version/hgid.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <unistd.h>

namespace {

// Shells move the descriptor of their script to 10 or above.
constexpr rlim_t descriptorsOfShell = 11;

// The findings of the helper's faults are in the same order as the faults.
Finding findingOf(ProgramFault fault)
{
    const int index = static_cast<int>(fault) - static_cast<int>(ProgramFault::Missing);
    return static_cast<Finding>(static_cast<int>(Finding::HelperMissing) + index);
}

void addPath(Report* report, const char* key, const QString& path, const QString& state)
{
    report->add(key, objectOf({{"path", path}, {"state", state}}));
}

// The libraries that the loader does not find for a binary.
QStringList missingLibraries(const QString& path)
{
    const QString loader = loaderOf(path);
    QStringList missing;
    if (!loader.isEmpty()) {
        // The messages of glibc and musl.
        static const QRegularExpression notFound(
            QStringLiteral("(?:loading shared libraries: |Error loading shared library )([^: ]+)|"
                           "(\\S+) => not found"));
        const QString output = outputOf(loader, {QStringLiteral("--list"), path});
        for (const QRegularExpressionMatch& match : notFound.globalMatch(output)) {
            missing += match.captured(1) + match.captured(2);
        }
    }
    return missing;
}

void findFaultsOfProgram(Report* report, const QString& path, rlim_t descriptors)
{
    if (QFileInfo(path).canonicalFilePath() == launcherPath()) {
        report->find(Finding::HelperIsLauncher, path);
    }
    const QStringList missing = missingLibraries(path);
    if (!missing.isEmpty()) {
        report->find(Finding::HelperLibrary, "%1 needs %2", path,
                     missing.join(QStringLiteral(", ")));
    }
    if (access(QFile::encodeName(path).constData(), R_OK) == -1) {
        report->find(Finding::HelperUnreadable, path);
    }
    if (sc_isScript(path) && descriptors < descriptorsOfShell) {
        report->find(Finding::DescriptorsExhausted,
                     "%1 is a script, and a shell needs at least %2 descriptors", path,
                     descriptorsOfShell);
    }
}

void lookAtHelper(Report* report, const QString& path, rlim_t descriptors)
{
    const ProgramState state = examineProgram(path);
    if (state.fault == ProgramFault::None) {
        addPath(report, "helper", path, QStringLiteral("present"));
        findFaultsOfProgram(report, path, descriptors);
    } else {
        addPath(report, "helper", path, state.cause);
        report->find(findingOf(state.fault), "%1: %2", path, state.cause);
    }
}

void describeHelper(Report* report, const Request& request, const QString& path)
{
    Probe probe(partOfReport("installation", [&](Report* part) {
        lookAtHelper(part, path, request.start.limits[RLIMIT_NOFILE].rlim_cur);
    }));
    if (probe.isAnswered()) {
        report->addPacked(probe.answer());
    } else {
        addPath(report, "helper", path, QStringLiteral("no answer"));
        report->find(Finding::LaunchWouldHang, path);
    }
}

void describeDirectory(Report* report, const char* key, const QString& path)
{
    const bool present = QFileInfo(path).isDir();
    addPath(report, key, path, present ? QStringLiteral("present") : QStringLiteral("missing"));
    if (!present) {
        report->find(Finding::DirectoryMissing, path);
    }
}

// The paths of the libraries that the loader has mapped into this program.
QStringList loadedLibraries()
{
    QStringList libraries;
    const QList<QByteArray> lines = systemFile(QStringLiteral("/proc/self/maps")).split('\n');
    for (const QByteArray& line : lines) {
        const qsizetype start = line.indexOf('/');
        if (start != -1 && line.indexOf(".so", line.lastIndexOf('/')) != -1) {
            libraries += QFile::decodeName(line.mid(start));
        }
    }
    libraries.removeDuplicates();
    libraries.sort();
    return libraries;
}

// The libraries that are loaded because of variables of the loader, see ld.so(8).
QStringList foreignLibraries(const QStringList& libraries)
{
    static const QRegularExpression separator(QStringLiteral("[: ;]"));
    QStringList places;
    for (const char* variable : {"LD_LIBRARY_PATH", "LD_PRELOAD"}) {
        places += qEnvironmentVariable(variable).split(separator, Qt::SkipEmptyParts);
    }
    QStringList foreign;
    for (const QString& place : std::as_const(places)) {
        const QString path = QFileInfo(place).canonicalFilePath();
        for (const QString& library : libraries) {
            if (library == path || QFileInfo(library).path() == path) {
                foreign += library;
            }
        }
    }
    return foreign;
}

} // namespace

void describeVersion(Report* report, const Request&)
{
    report->add("version", sc_version());
    report->add("releaseVersion", sc_releaseVersion());
    report->add("changeset", QString::fromLatin1(HGID));
    report->add("releaseTag", QString::fromLatin1(HGBRANCH));
    report->add("compatibilityKey", sc_versionForCompatibility(0));
    report->add("qt", QString::fromLatin1(qVersion()));
}

void describeInstallation(Report* report, const Request& request)
{
    const InstallationLayout layout = chooseInstallationLayout();
    if (layout == InstallationLayout::Unknown) {
        report->find(Finding::NotLookedAt,
                     QStringLiteral("the installation: the file of this program was replaced"));
        return;
    }
    report->add("layout", layout == InstallationLayout::Flat ? QStringLiteral("flat")
                                                             : QStringLiteral("installed"));
    const TalvoraGlobals* const globals = TalvoraGlobals::instance();
    describeDirectory(report, "root", globals->installPath());
    describeDirectory(report, "bin", globals->binPath());
    describeDirectory(report, "lib", globals->libPath());
    describeDirectory(report, "libexec", globals->libexecPath());
    describeHelper(report, request, QDir(globals->binPath()).filePath(FileName::zorvDebugger));
}

void describeLibraries(Report* report, const Request&)
{
    const QStringList libraries = loadedLibraries();
    const bool isOrdinary = !libraries.filter(QStringLiteral("/libQt6Core.so")).isEmpty();
    report->add("build", isOrdinary ? QStringLiteral("ordinary") : QStringLiteral("portable"));
    report->add("libraryPath", orNull(qEnvironmentVariable("LD_LIBRARY_PATH")));
    report->add("preload", orNull(qEnvironmentVariable("LD_PRELOAD")));
    report->add("loaded", QJsonArray::fromStringList(libraries));
    const QStringList foreign = foreignLibraries(libraries);
    if (!foreign.isEmpty()) {
        report->find(Finding::ForeignLibrary, foreign.join(QStringLiteral(", ")));
    }
}
