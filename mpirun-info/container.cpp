// Containers, namespaces, control groups and seccomp.

#include "mpirun-info/sections.h"

#include <QFile>

#include <unistd.h>

namespace {

struct Sign
{
    const char* file;
    const char* variable;
    const char* kind;
};
// The file or variable that identifies each kind of container.
constexpr Sign signs[] = {
    {"/.dockerenv", "", "Docker"},
    {"/run/.containerenv", "", "Podman"},
    {"/.singularity.d", "APPTAINER_CONTAINER", "Apptainer"},
    {"", "SINGULARITY_CONTAINER", "Singularity"},
    {"", "SHIFTER_IMAGEREQUEST", "Shifter"},
    {"", "CH_RUNNING", "Charliecloud"},
    {"", "KUBERNETES_SERVICE_HOST", "Kubernetes"},
    {"", "container", "systemd"},
};

// The number that the kernel gives the namespace of the processes of the host, see
// PROC_PID_INIT_INO in its linux/proc_ns.h.
constexpr const char* initialPidNamespace = "pid:[4026531836]";

void describeKind(Report* report)
{
    QJsonValue kind;
    QJsonValue source;
    for (const Sign& sign : signs) {
        const bool hasFile = *sign.file && access(sign.file, F_OK) == 0;
        const bool hasVariable = *sign.variable && qEnvironmentVariableIsSet(sign.variable);
        if (kind.isNull() && (hasFile || hasVariable)) {
            kind = QLatin1String(sign.kind);
            source = QLatin1String(hasFile ? sign.file : sign.variable);
        }
    }
    report->add("kind", kind);
    report->add("source", source);
}

struct ControlFile
{
    const char* key;
    const char* unified;    // its name in version 2
    const char* controller; // in version 1
    const char* own;        // its name there
};
constexpr ControlFile controlFiles[] = {
    {"processes", "pids.max", "pids", "pids.max"},
    {"processesNow", "pids.current", "pids", "pids.current"},
    {"memory", "memory.max", "memory", "memory.limit_in_bytes"},
    {"processorTime", "cpu.max", "cpu", "cpu.cfs_quota_us"},
    {"processors", "cpuset.cpus.effective", "cpuset", "cpuset.effective_cpus"},
};

// The path of the process in a hierarchy, from a line such as "4:pids:/job" of
// /proc/self/cgroup; version 2 has no controllers in its line, see cgroups(7).
QString groupOf(const QByteArray& groups, const QByteArray& controller)
{
    const QList<QByteArray> lines = groups.split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.split(':');
        if (fields.size() > 2 && fields.at(1).split(',').contains(controller)) {
            return QFile::decodeName(fields.mid(2).join(':'));
        }
    }
    return QString();
}

QByteArray limitOf(const QByteArray& groups, const ControlFile& file)
{
    const QByteArray limit = systemFile(
        filled("/sys/fs/cgroup%1/%2", groupOf(groups, QByteArray()), QLatin1String(file.unified)));
    return limit.isEmpty()
               ? systemFile(filled("/sys/fs/cgroup/%1%2/%3", QLatin1String(file.controller),
                                   groupOf(groups, file.controller), QLatin1String(file.own)))
               : limit;
}

void describeControlGroup(Report* report)
{
    const QByteArray groups = systemFile(QStringLiteral("/proc/self/cgroup"));
    report->add("controlGroups",
                orNull(QString::fromLatin1(groups).replace(QLatin1Char('\n'), QLatin1Char(' '))));
    QJsonObject limits;
    for (const ControlFile& file : controlFiles) {
        limits.insert(QLatin1String(file.key), orNull(QString::fromLatin1(limitOf(groups, file))));
    }
    report->add("controlGroupLimits", limits);
}

// By the number in proc_pid_status(5).
constexpr const char* seccompModes[] = {"none", "strict", "filter"};

} // namespace

void describeContainer(Report* report, const Request& request)
{
    const QString pidNamespace =
        QFile::symLinkTarget(QStringLiteral("/proc/self/ns/pid")).section(QLatin1Char('/'), -1);
    describeKind(report);
    report->add("pidNamespace", orNull(pidNamespace));
    report->add("hostPidNamespace", pidNamespace == QLatin1String(initialPidNamespace));
    report->add("processOne",
                orNull(QString::fromLocal8Bit(systemFile(QStringLiteral("/proc/1/comm")))));
    report->add("seccomp", QLatin1String(seccompModes[request.start.value("Seccomp").toInt()]));
    report->add("noNewPrivileges", request.start.value("NoNewPrivs") == QLatin1String("1"));
    describeControlGroup(report);
}
