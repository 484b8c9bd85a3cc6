// The batch system that the launch runs in, and the MPI launchers on PATH.

#include "mpirun-info/probe.h"
#include "mpirun-info/sections.h"

#include "branding/filenames.h"
#include "common/compatibility_simple/process/processhelpers.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

struct BatchSystem
{
    const char* name;
    const char* sign; // the variable that identifies its jobs
    const char* job;
    const char* step;
    const char* task;
    const char* nodes;
};
constexpr BatchSystem batchSystems[] = {
    {"Slurm", "SLURM_JOB_ID", "SLURM_JOB_ID", "SLURM_STEP_ID", "SLURM_PROCID",
     "SLURM_JOB_NODELIST"},
    {"PBS", "PBS_JOBID", "PBS_JOBID", "", "PBS_TASKNUM", "PBS_NODEFILE"},
    {"LSF", "LSB_JOBID", "LSB_JOBID", "LSB_JOBINDEX", "LS_JOBPID", "LSB_HOSTS"},
    {"Flux", "FLUX_JOB_ID", "FLUX_JOB_ID", "", "FLUX_TASK_RANK", "FLUX_JOB_NNODES"},
    {"Grid Engine", "SGE_ROOT", "JOB_ID", "SGE_TASK_ID", "", "PE_HOSTFILE"},
    {"Cobalt", "COBALT_JOBID", "COBALT_JOBID", "", "", "COBALT_NODEFILE"},
};

// The number of tasks of the step that the launcher is in.
constexpr const char* taskCounts[] = {"SLURM_STEP_NUM_TASKS", "OMPI_COMM_WORLD_SIZE", "PMI_SIZE",
                                      "FLUX_JOB_SIZE", "PALS_SIZE"};

QJsonValue variable(const char* name)
{
    return *name ? orNull(qEnvironmentVariable(name)) : QJsonValue();
}

struct Kind
{
    const char* sign;
    const char* name;
};
// Text in the version output of MPI launchers. The first match counts.
constexpr Kind kinds[] = {
    {"Intel(R) MPI", "Intel MPI"},
    {"Spectrum MPI", "IBM Spectrum MPI"},
    {"MVAPICH", "MVAPICH"},
    {"HYDRA", "MPICH"},
    {"Open MPI", "Open MPI"},
    {"OpenRTE", "Open MPI"},
    {"PRRTE", "PRRTE"},
    {"slurm", "Slurm"},
    {"aprun", "ALPS"},
    {"jsrun", "JSM"},
    {"flux", "Flux"},
    {"PALS", "PALS"},
};

// The launchers to look for, and their kind if the name tells it.
constexpr Kind launcherNames[] = {
    {"mpirun", ""},    {"mpiexec", ""},  {"orterun", "Open MPI"}, {"prterun", "PRRTE"},
    {"srun", "Slurm"}, {"flux", "Flux"}, {"aprun", "ALPS"},       {"jsrun", "JSM"},
};

// The paths of the MPI launchers in a directory.
QJsonValue launchersIn(const QString& directory)
{
    QJsonArray found;
    for (const Kind& launcher : launcherNames) {
        const QFileInfo file(QDir(directory).filePath(QLatin1String(launcher.sign)));
        if (file.isFile() && file.isExecutable()) {
            found.append(file.filePath());
        }
    }
    return found;
}

// Whether the program is the suite's launcher, or a script that names it: running it could
// start a launch.
bool leadsToLauncher(const QString& path)
{
    return QFileInfo(QFileInfo(path).canonicalFilePath()).fileName() == FileName::zorvMpirun ||
           (sc_isScript(path) && systemFile(path).contains(FileName::zorvMpirun.toLatin1()));
}

// The name of the kind whose sign is in the text; null without one.
template <std::size_t Size> QString kindIn(const QString& text, const Kind (&table)[Size])
{
    for (const Kind& kind : table) {
        if (text.contains(QLatin1String(kind.sign))) {
            return QString::fromLatin1(kind.name);
        }
    }
    return QString();
}

QJsonValue askVersion(const QString& path)
{
    if (leadsToLauncher(path)) {
        return objectOf({{"path", path}, {"kind", FileName::zorvMpirun}, {"version", {}}});
    }
    const QString output = outputOf(path, {QStringLiteral("--version")});
    const QString kind = kindIn(output, kinds);
    static const QRegularExpression number(QStringLiteral("\\d+(\\.\\d+)+\\S*"));
    return objectOf(
        {{"path", path},
         {"kind", orNull(kind.isNull() ? kindIn(QFileInfo(path).fileName(), launcherNames) : kind)},
         // A number in other output, such as an error message, is not a version.
         {"version", kind.isNull() ? QJsonValue() : orNull(number.match(output).captured())}});
}

// The paths of the launchers that a shell would find.
QStringList findLaunchers(Report* report)
{
    QStringList directories =
        qEnvironmentVariable("PATH").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    directories.removeDuplicates();
    const QJsonArray answers = answersTo(launchersIn, directories);
    QStringList names;
    QStringList paths;
    for (qsizetype i = 0; i < directories.size(); ++i) {
        if (answers.at(i).isNull()) {
            report->find(Finding::NoAnswer, "%1 on PATH", directories.at(i));
        }
        const QStringList found = answers.at(i).toVariant().toStringList();
        for (const QString& path : found) {
            const QString name = QFileInfo(path).fileName();
            if (!names.contains(name)) {
                names += name;
                paths += path;
            }
        }
    }
    return paths;
}

} // namespace

void describeBatch(Report* report, const Request&)
{
    const BatchSystem* system = nullptr;
    for (const BatchSystem& row : batchSystems) {
        if (!system && qEnvironmentVariableIsSet(row.sign) && qEnvironmentVariableIsSet(row.job)) {
            system = &row;
        }
    }
    report->add("system", system ? QJsonValue(QLatin1String(system->name)) : QJsonValue());
    report->add("source", system ? QJsonValue(QLatin1String(system->sign)) : QJsonValue());
    report->add("job", system ? variable(system->job) : QJsonValue());
    report->add("step", system ? variable(system->step) : QJsonValue());
    report->add("task", system ? variable(system->task) : QJsonValue());
    report->add("nodes", system ? variable(system->nodes) : QJsonValue());
    QJsonValue tasks;
    for (const char* name : taskCounts) {
        const int count = qEnvironmentVariableIntValue(name);
        if (count > 1 && tasks.isNull()) {
            tasks = count;
            report->find(Finding::ManyLaunchers, "%1 is %2", QLatin1String(name), count);
        }
    }
    report->add("tasks", tasks);
}

void describeMpi(Report* report, const Request&)
{
    const QStringList paths = findLaunchers(report);
    QJsonArray launchers = answersTo(askVersion, paths);
    QStringList libraries;
    QStringList kindsSeen;
    for (qsizetype i = 0; i < paths.size(); ++i) {
        const QString& path = paths.at(i);
        if (launchers.at(i).isNull()) {
            launchers[i] = objectOf({{"path", path}, {"kind", {}}, {"version", {}}});
        }
        const QString kind = launchers.at(i)[QLatin1String("kind")].toString();
        const bool isLibrary = !kind.isEmpty() && kind != FileName::zorvMpirun;
        if (isLibrary && QFileInfo(path).fileName().startsWith(QLatin1String("mpi"))) {
            libraries += filled("%1 is of %2", path, kind);
            kindsSeen += kind;
        }
    }
    report->add("launchers", launchers);
    kindsSeen.removeDuplicates();
    if (kindsSeen.size() > 1) {
        report->find(Finding::MixedMpi, libraries.join(QStringLiteral("; ")));
    }
}
