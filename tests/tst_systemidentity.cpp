// What machine this is, on machines made up of files of the test's own. Most
// answers are found out once in a process, so each is asked of a process of its
// own: this program, with the question as its argument.

#include "branding/filenames.h"
#include "common/compatibility_simple/systemidentity.h"
#include "common/talvoraglobals.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <sys/mount.h>
#include <sys/utsname.h>

extern "C" {

decltype(uname) __real_uname;

// The kernel that the variables describe; what they leave out is this one's. The
// program is linked with -Wl,--wrap=uname.
int __wrap_uname(utsname* names)
{
    const int result = __real_uname(names);
    const auto replace = [](auto& field, const char* variable) {
        if (const char* const value = getenv(variable)) {
            qstrncpy(field, value, sizeof field);
        }
    };
    replace(names->sysname, "KERNEL_NAME");
    replace(names->release, "KERNEL_RELEASE");
    replace(names->machine, "KERNEL_MACHINE");
    return result;
}

} // extern "C"

namespace {

// As a switch, compute node, the same, system, has nodes, any.
QString bluegeneSigns()
{
    QString signs;
    for (const auto question : {sc_isFakeBluegene, sc_isBluegeneQNode, sc_isBluegeneNode,
                                sc_isBluegeneQ, sc_hasBluegeneNodes, sc_isBluegene}) {
        signs += QLatin1Char(question() ? '1' : '0');
    }
    return signs;
}

const std::map<std::string, std::function<QString()>> answers = {
    {"uname", sc_uname},
    {"subArch", [] { return sc_subArch().isNull() ? text("none") : sc_subArch(); }},
    {"isCray", [] { return text(sc_isCray() ? "yes" : "no"); }},
    {"bluegene", bluegeneSigns},
    {"bluegeneLater",
     [] {
         sc_isFakeBluegene();
         sc_isBluegeneQ();
         qputenv("BG_NODE_TYPE", "cn");
         qputenv("BGQDRV", "");
         setSetting("ZORV_FAKE_BLUEGENE", "bgq");
         setSetting("ZORV_FORCE_BGQ_SUPPORT", "1");
         return bluegeneSigns();
     }},
    {"bluegeneAfterNode",
     [] {
         sc_isBluegeneQNode();
         setSetting("ZORV_FAKE_BLUEGENE", "bgq");
         return bluegeneSigns();
     }},
    {"bluegeneTold",
     [] {
         const QString before = bluegeneSigns();
         sc_setHasBluegeneNodes(true);
         return before + text(", then ") + bluegeneSigns();
     }},
};

QString ask(const char* question, const QStringList& variables = {})
{
    QProcess process;
    process.setEnvironment(variables);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), {text("--ask"), text(question)});
    process.waitForFinished();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

// The question, variables, a file, or a directory when it ends with a slash, the
// file's content, and the answer. The machines are Debian's, with debian_version,
// unless that file says something else.
// clang-format off
const char* const machines[][5] = {
    {"uname", "", "", "", "Debian GNU/Linux 8.11"},
    {"uname", "KERNEL_RELEASE=1.2", "/etc/centos-release", "\n  CentOS release 6.5 (Final) \nx 1", "CentOS release 6.5 (Final)"},
    {"uname", "", "/etc/cray_xt", "8.11\n", "Cray XT Compute Node 8.11"},
    {"uname", "", "/etc/ubuntu_version", "22.04\n", "Ubuntu 22.04"},
    {"uname", "KERNEL_RELEASE=1.2", "/etc/redhat-release", "buster/sid\n", "Linux 1.2"},
    {"uname", "KERNEL_RELEASE=1.2", "/etc/redhat-release", "x7", "x7"},
    {"uname", "KERNEL_RELEASE=1.2", "/etc/redhat-release", "a.b", "a.b"},
    {"uname", "KERNEL_RELEASE=1.2", "/etc/redhat-release", "7th edition", "Red Hat Linux 7th edition"},
    {"uname", "KERNEL_RELEASE=1.2", "/etc/redhat-release", "\n \nRed Hat 7\n", "Linux 1.2"},
    // What cannot be read is passed over: a directory is such a thing for root.
    {"uname", "KERNEL_RELEASE=1.2", "/etc/redhat-release/", "", "Debian GNU/Linux 8.11"},
    {"uname", "KERNEL_NAME=Darwin KERNEL_RELEASE=17.3.0 KERNEL_MACHINE=x", "", "", "Darwin 17.3.0 x"},
    {"uname", "", "/usr/bin/lsb_release", "#!/bin/sh\n[ \"$*\" = -d ] && printf 'Description:\\t CentOS 7.4 (Core) \\nRelease: 7\\n'\n", "CentOS 7.4 (Core)"},
    // As many characters are dropped as the word has, wherever it stands.
    {"uname", "", "/usr/bin/lsb_release", "#!/bin/sh\necho 'x Description: y'\n", "n: y"},
    {"uname", "", "/usr/bin/lsb_release", "#!/bin/sh\necho; echo 'Description: x'\n", "Debian GNU/Linux 8.11"},
    {"uname", "", "/usr/bin/lsb_release", "#!/none\n", "Debian GNU/Linux 8.11"},
    {"uname", "TALVORA_FAKE_BLUEGENE=q", "/usr/bin/lsb_release", "#!/bin/sh\necho 'Description: x'\n", "Bluegene/Q Compute Node"},
    {"subArch", "KERNEL_MACHINE=x86_64", "/proc/cpuinfo", "processor\t: 0\n\nmodel name\t: Xeon Phi(TM)\nmodel name\t: Xeon\n", "knl"},
    {"subArch", "KERNEL_MACHINE=x86_64", "/proc/cpuinfo", "model name\t: Xeon\nmodel name\t: Xeon Phi(TM)\n", "none"},
    {"subArch", "KERNEL_MACHINE=x86_64", "/proc/cpuinfo", "x model name: Xeon Phi\n", "none"},
    {"subArch", "KERNEL_MACHINE=aarch64", "/proc/cpuinfo", "model name\t: Xeon Phi(TM)\n", "none"},
    {"subArch", "KERNEL_MACHINE=ppc64 BGQDRV=", "", "", "bgq"},
    {"subArch", "KERNEL_MACHINE=ppc64", "", "", "none"},
    {"isCray", "", "", "", "no"},
    {"isCray", "", "/etc/opt/cray/", "", "yes"},
    {"isCray", "", "/sys/cray/", "", "yes"},
    {"bluegene", "", "", "", "000000"},
    {"bluegene", "ZORV_FAKE_BLUEGENE=bgq", "", "", "111111"},
    {"bluegene", "PELK_FAKE_BLUEGENE=q", "", "", "111111"},
    {"bluegene", "ZORV_FAKE_BLUEGENE=1", "", "", "100000"},
    {"bluegene", "BG_NODE_TYPE=", "", "", "011111"},
    {"bluegene", "BG_NODE_TYPE=Disabled", "", "", "000000"},
    {"bluegene", "BGQDRV=", "", "", "000111"},
    {"bluegene", "ZORV_FORCE_BGQ_SUPPORT=1", "", "", "000111"},
    {"bluegene", "", "/dev/bgpers", "", "011111"},
    {"bluegene", "", "/bgsys/drivers/ppcfloor/bin/runjob", "", "000111"},
    // Each of three answers is given once and for all.
    {"bluegeneLater", "", "", "", "000000"},
    {"bluegeneAfterNode", "", "", "", "100111"},
    {"bluegeneTold", "", "", "", "000000, then 000011"},
};
// clang-format on

} // namespace

class SystemIdentityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void asks()
    {
        for (const auto& [question, variables, file, content, expected] : machines) {
            if (QByteArray(file).endsWith('/')) {
                QVERIFY(QDir().mkpath(text(file)));
            } else if (*file) {
                Namespace::writeFile(text(file), content, 0755);
            }
            const QString answer = ask(question, list(variables));
            remove(file);
            QVERIFY2(answer == text(expected),
                     qPrintable(answer + text(" is not ") + text(expected)));
        }
    }

    void otherArchitecture()
    {
        const QTemporaryDir dir;
        const QString helper = dir.filePath(text("x/ppc64/bin/") + FileName::zorvDebugger);
        Namespace::writeFile(helper, "");
        QDir().mkpath(dir.filePath(text("suite/bin")));
        TalvoraGlobals::instance()->setLocationsFromInstallPath(dir.filePath(text("suite")));
        const QString stem = dir.filePath(text("suite/bin/") + FileName::zorvDebugger);
        QVERIFY(QFile::link(helper, stem + text(".ppc64")));
        const QString root = QFileInfo(dir.filePath(text("x/ppc64"))).canonicalFilePath();
        QCOMPARE(sc_findArch(text("ppc64"), QString()), root);
        QCOMPARE(sc_findArch(text("ppc64"), text("")), root);
        QCOMPARE(sc_findArch(text("ppc64"), text("lib")), root + text("/lib"));
        QCOMPARE(sc_findArch(text("ppc64"), text("/lib")), text("/lib"));
        QVERIFY(sc_findArch(text("ppc"), text("lib")).isNull());
        for (const char* arch : {"ppc64", "ppc", "ppc64le", "PPC64", "", "x86_64"}) {
            const bool big = strncmp(arch, "ppc", 3) == 0 && !strstr(arch, "le");
            QVERIFY2((endiannessFromArch(text(arch)) == ENDIAN_BIG) == big, arch);
        }
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && std::string(argv[1]) == "--ask") {
        fputs(qPrintable(answers.at(argv[2])()), stdout);
        return 0;
    }
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    for (const char* directory : {"/etc", "/usr/bin", "/dev", "/sys"}) {
        Namespace::makeWritable(text(directory));
    }
    for (const char* file : {"/usr/bin/lsb_release", "/etc/redhat-release", "/etc/centos-release",
                             "/etc/fedora-release", "/etc/SuSE-release", "/etc/gentoo-release"}) {
        remove(file);
    }
    Namespace::writeFile(text("/etc/debian_version"), "8.11\n");
    // A file of our own in the place of the kernel's.
    Namespace::writeFile(text("/etc/cpuinfo"), "");
    if (mount("/etc/cpuinfo", "/proc/cpuinfo", nullptr, MS_BIND, nullptr) == -1) {
        perror("/proc/cpuinfo");
        return 1;
    }
    const QCoreApplication application(argc, argv);
    SystemIdentityTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_systemidentity.moc"
