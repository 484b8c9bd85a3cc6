#include "common/compatibility_simple/system/systemidentity.h"

#include "branding/filenames.h"
#include "common/compatibility_simple/process/processhelpers.h"
#include "common/env/zorvenv.h"
#include "common/talvoraglobals.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QRegularExpression>
#include <QTextStream>

#include <cstdlib>
#include <optional>
#include <sys/utsname.h>

namespace {

const QString knlMachineArch = QStringLiteral("x86_64");
const QString bgqMachineArch = QStringLiteral("ppc64");
const QString knlSubArch = QStringLiteral("knl");
const QString bgqSubArch = QStringLiteral("bgq");

bool g_hasBluegeneNodes = false;

struct Distribution
{
    const char* file;
    const char* name;
};

// The first file that can be read decides: a derived distribution comes before the one that
// it is derived from.
constexpr Distribution distros[] = {
    {"/etc/cray_xt", "Cray XT Compute Node"},
    {"/etc/centos-release", "CentOS"},
    {"/etc/whitebox-release", "White Box Enterprise Linux"},
    {"/etc/fedora-release", "Fedora Core"},
    {"/etc/yellowdog-release", "Yellow Dog Linux"},
    {"/etc/turbolinux-release", "Turbolinux"},
    {"/etc/slackware-version", "Slackware Linux"},
    {"/etc/mandriva-release", "Mandriva Linux"},
    {"/etc/mandrake-release", "Mandrake Linux"},
    {"/etc/redhat-release", "Red Hat Linux"},
    {"/etc/rawhide-release", "Raw Hide"},
    {"/etc/SuSE-release", "SuSE Linux"},
    {"/etc/gentoo-release", "Gentoo Linux"},
    {"/etc/ubuntu_version", "Ubuntu"},
    {"/etc/debian_version", "Debian GNU/Linux"},
};

utsname kernel()
{
    utsname names = {};
    uname(&names);
    return names;
}

std::optional<QString> descriptionOfLsbRelease()
{
    if (!QFile::exists(QStringLiteral("/usr/bin/lsb_release"))) {
        return std::nullopt;
    }
    const QString key = QStringLiteral("Description:");
    const QString line =
        sc_helper_exec(QStringLiteral("/usr/bin/lsb_release -d"), false, false, QString()).value(0);
    return line.contains(key) ? std::make_optional(line.mid(key.size()).trimmed()) : std::nullopt;
}

bool matches(const QString& line, const char* pattern)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(QString::fromLatin1(pattern)))
        .match(line)
        .hasMatch();
}

// The first line that is not empty, trimmed.
QString firstLine(QFile* file)
{
    QTextStream stream(file);
    QString line;
    do {
        line = stream.readLine();
    } while (line.isEmpty() && !line.isNull());
    return line.trimmed();
}

QString descriptionOfDistribution(const QString& kernelRelease)
{
    for (const Distribution& distribution : distros) {
        QFile file(QString::fromLatin1(distribution.file));
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        QString line = firstLine(&file);
        if (matches(line, "[^0-9]+[0-9.]+.*")) {
            return line;
        }
        return matches(line, "[0-9.]+.*")
                   ? QString::fromLatin1(distribution.name) + QLatin1Char(' ') + line
                   : QStringLiteral("Linux ") + kernelRelease;
    }
    return QStringLiteral("Linux");
}

QString describeSystem()
{
    const utsname names = kernel();
    const QString release = QString::fromLocal8Bit(names.release);
    if (sc_isBluegeneQNode()) {
        return QStringLiteral("Bluegene/Q Compute Node");
    }
    if (qstrcmp(names.sysname, "Linux") != 0) {
        return QStringLiteral("%1 %2 %3")
            .arg(QString::fromLocal8Bit(names.sysname), release,
                 QString::fromLocal8Bit(names.machine));
    }
    const std::optional<QString> description = descriptionOfLsbRelease();
    return description ? *description : descriptionOfDistribution(release);
}

// The model name of the first processor decides.
bool isKNL()
{
    QFile file(QStringLiteral("/proc/cpuinfo"));
    if (sc_arch() != knlMachineArch || !file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QStringList lines =
        QString::fromLocal8Bit(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        if (line.startsWith(QLatin1String("model name"))) {
            return line.contains(QLatin1String("Xeon Phi"));
        }
    }
    return false;
}

bool fakesBluegeneQ()
{
    const QString fake = sc_fakeBluegene();
    return fake == QLatin1String("q") || fake == QLatin1String("bgq");
}

} // namespace

QString sc_uname()
{
    static const QString cachedName = describeSystem();
    return cachedName;
}

QString sc_arch()
{
    static const QString cachedName = QString::fromLocal8Bit(kernel().machine);
    return cachedName;
}

QString sc_subArch()
{
    if (sc_arch() == knlMachineArch) {
        return isKNL() ? knlSubArch : QString();
    }
    return sc_arch() == bgqMachineArch && sc_isBluegeneQ() ? bgqSubArch : QString();
}

bool sc_isCray()
{
    return QFile::exists(QStringLiteral("/proc/cray_xt/nid")) ||
           QFile::exists(QStringLiteral("/sys/cray")) ||
           QFile::exists(QStringLiteral("/etc/opt/cray"));
}

QString sc_fakeBluegene()
{
    return envString("FAKE_BLUEGENE");
}

bool sc_isFakeBluegene()
{
    static const bool answer = envFlag("FAKE_BLUEGENE");
    return answer;
}

bool sc_isBluegeneQNode()
{
    static const bool answer = fakesBluegeneQ() || ZorvEnv::readsOn(getenv("BG_NODE_TYPE")) ||
                               QFile::exists(QStringLiteral("/dev/bgpers"));
    return answer;
}

bool sc_isBluegeneNode()
{
    return sc_isBluegeneQNode();
}

bool sc_isBluegeneQ()
{
    static const bool answer =
        sc_isBluegeneQNode() || fakesBluegeneQ() || getenv("BGQDRV") != nullptr ||
        QFile::exists(QStringLiteral("/bgsys/drivers/ppcfloor/bin/runjob")) ||
        envFlag("FORCE_BGQ_SUPPORT");
    return answer;
}

void sc_setHasBluegeneNodes(bool hasBluegeneNodes)
{
    g_hasBluegeneNodes = hasBluegeneNodes;
}

bool sc_hasBluegeneNodes()
{
    return sc_isBluegeneQ() || g_hasBluegeneNodes;
}

bool sc_isBluegene()
{
    return sc_hasBluegeneNodes() || sc_isBluegeneNode() || sc_isBluegeneQ();
}

QString sc_findArch(const QString& arch, const QString& relPath)
{
    const QDir binDirectory(
        QDir(TalvoraGlobals::instance()->installPath()).filePath(QStringLiteral("bin")));
    const QFileInfo helper(binDirectory.filePath(FileName::zorvDebugger + QLatin1Char('.') + arch));
    if (!helper.exists()) {
        return QString();
    }
    QDir root = QFileInfo(helper.canonicalFilePath()).dir();
    root.cdUp();
    return relPath.isNull() ? root.path() : root.filePath(relPath);
}

Endianness endiannessFromArch(const QString& arch)
{
    static const QStringList bigEndian = {QStringLiteral("ppc"), QStringLiteral("ppc64")};
    return bigEndian.contains(arch) ? ENDIAN_BIG : ENDIAN_LITTLE;
}

Endianness sc_localEndianness()
{
    return Q_BYTE_ORDER == Q_BIG_ENDIAN ? ENDIAN_BIG : ENDIAN_LITTLE;
}

bool sc_isPpc64Elf2()
{
#if defined(__powerpc64__) && defined(_CALL_ELF) && _CALL_ELF == 2
    return true;
#else
    return false;
#endif
}

QString sc_optionsName()
{
    return QObject::tr("Options");
}
