// What machine this is, on machines made up of files of the test's own. Most
// answers are found out once in a process, so each is asked of a process of its
// own: this program, with the question as its argument.

#include "branding/filenames.h"
#include "common/compatibility_simple/systemidentity.h"
#include "common/env/zorvenv.h"
#include "common/talvoraglobals.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <sys/mount.h>
#include <sys/utsname.h>

extern "C" {

int __real_uname(utsname* names);

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

using Answer = std::function<QString()>;

QString yesNo(bool yes)
{
    return yes ? text("yes") : text("no");
}

// As a switch, compute node, the same, system, has nodes, any.
QString bluegeneSigns()
{
    const bool found[] = {sc_isFakeBluegene(), sc_isBluegeneQNode(),  sc_isBluegeneNode(),
                          sc_isBluegeneQ(),    sc_hasBluegeneNodes(), sc_isBluegene()};
    QString signs;
    for (const bool yes : found) {
        signs += QLatin1Char(yes ? '1' : '0');
    }
    return signs;
}

const std::map<std::string, Answer> answers = {
    {"uname", sc_uname},
    {"subArch", [] { return sc_subArch().isNull() ? text("none") : sc_subArch(); }},
    {"isCray", [] { return yesNo(sc_isCray()); }},
    {"bluegene", bluegeneSigns},
    {"bluegeneLater",
     [] {
         sc_isFakeBluegene();
         sc_isBluegeneQ();
         qputenv("ZORV_FAKE_BLUEGENE", "bgq");
         qputenv("BG_NODE_TYPE", "cn");
         qputenv("BGQDRV", "");
         qputenv("ZORV_FORCE_BGQ_SUPPORT", "1");
         discardEnvCache();
         return bluegeneSigns();
     }},
    {"bluegeneAfterNode",
     [] {
         sc_isBluegeneQNode();
         qputenv("ZORV_FAKE_BLUEGENE", "bgq");
         discardEnvCache();
         return bluegeneSigns();
     }},
    {"bluegeneTold",
     [] {
         const bool before = sc_isBluegene();
         sc_setHasBluegeneNodes(true);
         return yesNo(!before && sc_hasBluegeneNodes() && sc_isBluegene() && !sc_isBluegeneQ());
     }},
};

using Variables = QMap<QString, QString>;

QString ask(const char* question, const Variables& variables = Variables())
{
    QProcess process;
    QProcessEnvironment environment;
    for (auto i = variables.begin(); i != variables.end(); ++i) {
        environment.insert(i.key(), i.value());
    }
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), {text("--ask"), text(question)});
    process.waitForFinished();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

QString kernelRelease()
{
    utsname names;
    uname(&names);
    return QString::fromLocal8Bit(names.release);
}

const char* const distributionFiles[] = {
    "cray_xt",           "centos-release",     "whitebox-release",  "fedora-release",
    "yellowdog-release", "turbolinux-release", "slackware-version", "mandriva-release",
    "mandrake-release",  "redhat-release",     "rawhide-release",   "SuSE-release",
    "gentoo-release",    "ubuntu_version",     "debian_version"};
const char* const distributionNames[] = {
    "Cray XT Compute Node", "CentOS",           "White Box Enterprise Linux",
    "Fedora Core",          "Yellow Dog Linux", "Turbolinux",
    "Slackware Linux",      "Mandriva Linux",   "Mandrake Linux",
    "Red Hat Linux",        "Raw Hide",         "SuSE Linux",
    "Gentoo Linux",         "Ubuntu",           "Debian GNU/Linux"};

QString etc(const char* name)
{
    return text("/etc/") + text(name);
}

// Translates every text into its context and itself.
class Translator : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* sourceText, const char* /*disambiguation*/,
                      int /*n*/) const override
    {
        return text(context) + text(": ") + text(sourceText);
    }
};

} // namespace

class SystemIdentityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void distributionTable();
    void describes_data();
    void describes();
    void describesByLsbRelease();
    void describesOtherKernels();
    void subArchitecture_data();
    void subArchitecture();
    void cray();
    void bluegeneBySettings_data();
    void bluegeneBySettings();
    void bluegeneByFiles();
    void otherArchitecture();
    void byteOrder();
    void optionsName();
};

void SystemIdentityTest::init()
{
    QFile::remove(text("/usr/bin/lsb_release"));
    for (const char* name : distributionFiles) {
        QFile::remove(etc(name));
    }
}

// From the last row to the first, each hides those after it.
void SystemIdentityTest::distributionTable()
{
    for (int row = 14; row >= 0; --row) {
        Namespace::writeFile(etc(distributionFiles[row]), "8.11\n");
        QCOMPARE(ask("uname"), text(distributionNames[row]) + text(" 8.11"));
    }
}

void SystemIdentityTest::describes_data()
{
    QTest::addColumn<QByteArray>("centos");
    QTest::addColumn<QByteArray>("redhat");
    QTest::addColumn<QString>("expected");

    const QByteArray none;
    const QString fallback = text("Linux ") + kernelRelease();
    QTest::newRow("no file") << none << none << text("Linux");
    QTest::newRow("whole line") << QByteArray("\n  CentOS release 6.5 (Final) \nx 1")
                                << QByteArray("Red Hat 7") << text("CentOS release 6.5 (Final)");
    QTest::newRow("no number") << none << QByteArray("buster/sid\n") << fallback;
    QTest::newRow("number at the end of a word") << none << QByteArray("x7") << text("x7");
    QTest::newRow("dots count as a number") << none << QByteArray("a.b") << text("a.b");
    QTest::newRow("letters first, then a number in words")
        << none << QByteArray("7th edition") << text("Red Hat Linux 7th edition");
    QTest::newRow("empty") << none << QByteArray("") << fallback;
    QTest::newRow("blanks end the search for a line")
        << none << QByteArray("\n \nRed Hat 7\n") << fallback;
}

void SystemIdentityTest::describes()
{
    QFETCH(QByteArray, centos);
    QFETCH(QByteArray, redhat);
    if (!centos.isNull()) {
        Namespace::writeFile(etc("centos-release"), centos);
    }
    if (!redhat.isNull()) {
        Namespace::writeFile(etc("redhat-release"), redhat);
    }
    QTEST(ask("uname"), "expected");

    // What cannot be read is passed over: a directory is such a thing for root.
    QFile::remove(etc("centos-release"));
    QDir().mkdir(etc("centos-release"));
    if (centos.isNull()) {
        QTEST(ask("uname"), "expected");
    }
    QDir().rmdir(etc("centos-release"));
}

void SystemIdentityTest::describesByLsbRelease()
{
    Namespace::writeFile(etc("centos-release"), "CentOS release 6.5 (Final)\n");
    const QString command = text("/usr/bin/lsb_release");
    Namespace::writeFile(command,
                         "#!/bin/sh\n[ \"$*\" = -d ] && printf 'Description:\\t CentOS Linux "
                         "release 7.4.1708 (Core) \\nRelease: 7\\n'\n",
                         0755);
    QCOMPARE(ask("uname"), text("CentOS Linux release 7.4.1708 (Core)"));
    // As many characters are dropped as the word has, wherever it stands.
    Namespace::writeFile(command, "#!/bin/sh\necho 'x Description: y'\n", 0755);
    QCOMPARE(ask("uname"), text("n: y"));
    for (const char* script :
         {"#!/bin/sh\necho; echo 'Description: x'\n", "#!/bin/sh\n", "", "#!/none\n"}) {
        Namespace::writeFile(command, script, 0755);
        QCOMPARE(ask("uname"), text("CentOS release 6.5 (Final)"));
    }
    QCOMPARE(ask("uname", {{text("TALVORA_FAKE_BLUEGENE"), text("q")}}),
             text("Bluegene/Q Compute Node"));
}

void SystemIdentityTest::describesOtherKernels()
{
    Namespace::writeFile(etc("debian_version"), "8.11\n");
    QCOMPARE(ask("uname", {{text("KERNEL_NAME"), text("Darwin")},
                           {text("KERNEL_RELEASE"), text("17.3.0")},
                           {text("KERNEL_MACHINE"), text("x86_64")}}),
             text("Darwin 17.3.0 x86_64"));
}

void SystemIdentityTest::subArchitecture_data()
{
    QTest::addColumn<QString>("machine");
    QTest::addColumn<QByteArray>("cpuinfo");
    QTest::addColumn<QString>("sign");
    QTest::addColumn<QString>("expected");
    const QByteArray phi = "model name\t: Intel(R) Xeon Phi(TM) CPU 7250\n";
    const QByteArray xeon = "model name\t: Intel(R) Xeon(R) CPU\n";
    const QString x86 = text("x86_64");
    const QString power = text("ppc64");
    const QString none = text("none");
    QTest::newRow("Xeon Phi") << x86 << "processor\t: 0\n\n" + phi + xeon << none << text("knl");
    QTest::newRow("only the first counts") << x86 << xeon + phi << none << none;
    QTest::newRow("another line") << x86 << QByteArray("x model name: Xeon Phi\n") << none << none;
    QTest::newRow("empty") << x86 << QByteArray() << none << none;
    QTest::newRow("Xeon Phi elsewhere") << text("aarch64") << phi << none << none;
    QTest::newRow("Blue Gene/Q") << power << QByteArray() << text("BGQDRV") << text("bgq");
    QTest::newRow("other POWER") << power << QByteArray() << none << none;
}

void SystemIdentityTest::subArchitecture()
{
    QFETCH(QString, machine);
    QFETCH(QByteArray, cpuinfo);
    QFETCH(QString, sign);
    const QTemporaryDir dir;
    const QString file = dir.filePath(text("cpuinfo"));
    Namespace::writeFile(file, cpuinfo);
    QCOMPARE(mount(qPrintable(file), "/proc/cpuinfo", nullptr, MS_BIND, nullptr), 0);
    const QString answer = ask("subArch", {{text("KERNEL_MACHINE"), machine}, {sign, text("")}});
    umount("/proc/cpuinfo");
    QTEST(answer, "expected");
}

void SystemIdentityTest::cray()
{
    QCOMPARE(ask("isCray"), text("no"));
    QDir().mkpath(text("/etc/opt/cray"));
    QCOMPARE(ask("isCray"), text("yes"));
    QDir().rmdir(text("/etc/opt/cray"));
    QDir().mkdir(text("/sys/cray"));
    QCOMPARE(ask("isCray"), text("yes"));
    QDir().rmdir(text("/sys/cray"));
}

void SystemIdentityTest::bluegeneBySettings_data()
{
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected");

    QTest::newRow("none") << text("X") << text("1") << text("000000");
    QTest::newRow("pretended") << text("ZORV_FAKE_BLUEGENE") << text("bgq") << text("111111");
    QTest::newRow("pretended, short") << text("PELK_FAKE_BLUEGENE") << text("q") << text("111111");
    QTest::newRow("switch alone") << text("ZORV_FAKE_BLUEGENE") << text("1") << text("100000");
    QTest::newRow("other letter case")
        << text("ZORV_FAKE_BLUEGENE") << text("BGQ") << text("100000");
    QTest::newRow("node type, empty") << text("BG_NODE_TYPE") << text("") << text("011111");
    QTest::newRow("node type") << text("BG_NODE_TYPE") << text("cn") << text("011111");
    QTest::newRow("node type off") << text("BG_NODE_TYPE") << text("Disabled") << text("000000");
    QTest::newRow("driver, empty") << text("BGQDRV") << text("") << text("000111");
    QTest::newRow("forced") << text("ZORV_FORCE_BGQ_SUPPORT") << text("1") << text("000111");
    QTest::newRow("not forced") << text("ZORV_FORCE_BGQ_SUPPORT") << text("no") << text("000000");
}

void SystemIdentityTest::bluegeneBySettings()
{
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QTEST(ask("bluegene", {{variable, value}}), "expected");
}

void SystemIdentityTest::bluegeneByFiles()
{
    // Each of three answers is given once and for all.
    QCOMPARE(ask("bluegeneLater"), text("000000"));
    QCOMPARE(ask("bluegeneAfterNode"), text("100111"));
    QCOMPARE(ask("bluegeneTold"), text("yes"));
    Namespace::writeFile(text("/dev/bgpers"), "");
    QCOMPARE(ask("bluegene"), text("011111"));
    QFile::remove(text("/dev/bgpers"));
    Namespace::writeFile(text("/bgsys/drivers/ppcfloor/bin/runjob"), "");
    QCOMPARE(ask("bluegene"), text("000111"));
    QFile::remove(text("/bgsys/drivers/ppcfloor/bin/runjob"));
}

void SystemIdentityTest::otherArchitecture()
{
    const QTemporaryDir dir;
    const QString helper = dir.filePath(text("x/ppc64/bin/") + FileName::zorvDebugger);
    Namespace::writeFile(helper, "");
    QDir().mkpath(dir.filePath(text("suite/bin")));
    TalvoraGlobals::instance()->setLocationsFromInstallPath(dir.filePath(text("suite")));
    QVERIFY(sc_findArch(text("ppc64"), text("lib")).isNull());

    const QString root = QFileInfo(dir.filePath(text("x/ppc64"))).canonicalFilePath();
    const QString link = dir.filePath(text("suite/bin/") + FileName::zorvDebugger + text(".ppc64"));
    QVERIFY(QFile::link(helper, link));
    QCOMPARE(sc_findArch(text("ppc64"), QString()), root);
    QCOMPARE(sc_findArch(text("ppc64"), text("lib")), root + text("/lib"));
    QCOMPARE(sc_findArch(text("ppc64"), text("/lib")), text("/lib"));
    QVERIFY(sc_findArch(text("ppc"), text("lib")).isNull());
}

void SystemIdentityTest::byteOrder()
{
    QCOMPARE(endiannessFromArch(text("ppc64")), ENDIAN_BIG);
    QCOMPARE(endiannessFromArch(text("ppc")), ENDIAN_BIG);
    for (const char* arch : {"ppc64le", "PPC64", "", "x86_64"}) {
        QCOMPARE(endiannessFromArch(text(arch)), ENDIAN_LITTLE);
    }
    const quint16 number = 1;
    const bool little = *reinterpret_cast<const char*>(&number) == 1;
    QCOMPARE(sc_localEndianness(), little ? ENDIAN_LITTLE : ENDIAN_BIG);
}

void SystemIdentityTest::optionsName()
{
    QCOMPARE(sc_optionsName(), text("Options"));
    Translator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QCOMPARE(sc_optionsName(), text("QObject: Options"));
}

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
    const QCoreApplication application(argc, argv);
    SystemIdentityTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_systemidentity.moc"
