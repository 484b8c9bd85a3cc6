// This host and others: their names and addresses, and what machine this is; with a
// resolver, interfaces and files of the test's own.

#include "branding/filenames.h"
#include "common/compatibility_simple.h"
#include "common/talvoraglobals.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

#include <QDir>
#include <QTest>

#include <netdb.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The names that were looked up, "reverse" for an address.
QStringList lookUps;

const char hostsFile[] = "127.0.0.1 localhost LOCALHOST localname\n"
                         "::1 many\n2001:db8::5 many\n127.0.0.1 many\n10.0.0.7 many\n"
                         "10.0.0.7 nodeb.cluster nodeb\nfd00::7 nodeb.cluster nodeb\n"
                         "10.0.0.7 nodeb-alias\n127.0.1.1 self.cluster self\n"
                         "127.42.42.9 special\n10.0.0.3 twice\n10.0.0.3 twice\n";

// Variables, a file, its content, and what machine this is then. It is Debian's unless the file
// says something else.
// clang-format off
const char* const machines[][4] = {
    {"", "/etc/none", "", "Debian GNU/Linux 8 000000"},
    {"", "/etc/centos-release", "\n  CentOS 6.5 (Final) \nx 1", "CentOS 6.5 (Final) 000000"},
    {"", "/etc/cray_xt", "8.11\n", "Cray XT Compute Node 8.11 000000"},
    {"", "/etc/redhat-release", "buster/sid\n", "Linux 1.2 000000"},
    {"", "/etc/redhat-release", "a.b", "a.b 000000"},
    {"", "/etc/redhat-release", "7th edition", "Red Hat Linux 7th edition 000000"},
    {"", "/etc/redhat-release", "\n \nRed Hat 7\n", "Linux 1.2 000000"},
    // What cannot be read is passed over: a directory is such a thing for root.
    {"", "/etc/redhat-release/x", "", "Debian GNU/Linux 8 000000"},
    {"KERNEL_NAME=Darwin KERNEL_MACHINE=x", "/etc/none", "", "Darwin 1.2 x 000000"},
    {"", "/usr/bin/lsb_release", "#!/bin/sh\ntest $* = -d && echo 'Description:\t CentOS 7 \nx'\n", "CentOS 7 000000"},
    // As many characters are dropped as the word has, wherever it stands.
    {"", "/usr/bin/lsb_release", "#!/bin/sh\necho 'x Description: y'\n", "n: y 000000"},
    {"", "/usr/bin/lsb_release", "#!/bin/sh\necho; echo 'Description: x'\n", "Debian GNU/Linux 8 000000"},
    {"TALVORA_FAKE_BLUEGENE=q", "/usr/bin/lsb_release", "#!/bin/sh\necho 'Description: x'\n", "Bluegene/Q Compute Node 111111"},
    {"", "/proc/cpuinfo", "processor\t: 0\nmodel name\t: Xeon Phi(TM)\nmodel name\t: Xeon\n", "Debian GNU/Linux 8 knl 000000"},
    {"KERNEL_MACHINE=aarch64 BGQDRV=", "/proc/cpuinfo", "model name\t: Xeon Phi(TM)\n", "Debian GNU/Linux 8 000111"},
    {"", "/proc/cpuinfo", "x model name: Xeon Phi\nmodel name\t: Xeon\nmodel name\t: Xeon Phi(TM)\n", "Debian GNU/Linux 8 000000"},
    {"KERNEL_MACHINE=ppc64 BGQDRV=", "/etc/none", "", "Debian GNU/Linux 8 bgq 000111"},
    {"KERNEL_MACHINE=ppc64 ZORV_FAKE_BLUEGENE=1", "/etc/opt/cray/x", "", "Debian GNU/Linux 8 cray 100000"},
    {"BG_NODE_TYPE=Disabled", "/sys/cray/x", "", "Debian GNU/Linux 8 cray 000000"},
    {"ZORV_FAKE_BLUEGENE=bgq", "/etc/none", "", "Bluegene/Q Compute Node 111111"},
    {"BG_NODE_TYPE=", "/etc/none", "", "Bluegene/Q Compute Node 011111"},
    {"ZORV_FORCE_BGQ_SUPPORT=1", "/etc/none", "", "Debian GNU/Linux 8 000111"},
    {"", "/dev/bgpers", "", "Bluegene/Q Compute Node 011111"},
    {"", "/bgsys/drivers/ppcfloor/bin/runjob", "", "Debian GNU/Linux 8 000111"},
};
// clang-format on

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

QString machine()
{
    const QString subArch = sc_subArch().isNull() ? QString() : text(" ") + sc_subArch();
    return sc_uname() + subArch + text(sc_isCray() ? " cray " : " ") + bluegeneSigns();
}

// Later signs change no answer; what the program itself is told does.
QString laterMachine()
{
    sc_isFakeBluegene();
    qEnvironmentVariableIsSet("NODE_ALONE") ? sc_isBluegeneQNode() : sc_isBluegeneQ();
    qputenv("BG_NODE_TYPE", "cn");
    setSetting("ZORV_FAKE_BLUEGENE", "bgq");
    const QString before = bluegeneSigns();
    sc_setHasBluegeneNodes(true);
    return before + QLatin1Char(' ') + bluegeneSigns();
}

// Most answers are given once in a process, so each is asked of a process of its own.
QString answer(QString (*question)(), const QStringList& variables)
{
    const pid_t child = fork();
    if (child == 0) {
        for (const QString& variable : variables) {
            putenv(qstrdup(qPrintable(variable)));
        }
        discardEnvCache();
        Namespace::writeFile(text("/etc/answer"), question().toLatin1());
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    QFile file(text("/etc/answer"));
    return file.open(QIODevice::ReadOnly) ? text(file.readAll().constData()) : QString();
}

QString joined(const QStringList& list)
{
    return list.join(QLatin1Char(','));
}

QString joined(const QList<QHostAddress>& addresses)
{
    return joined(words(addresses).split(QLatin1Char(' ')));
}

// The entries of a word that is a list, or that has two with a slash between them.
QStringList entries(const QString& word, int part = 0)
{
    return word.section(QLatin1Char('/'), part, part).split(QLatin1Char(','), Qt::SkipEmptyParts);
}

QList<QHostAddress> addresses(const QString& word, int part = 0)
{
    return addressList(qPrintable(entries(word, part).join(QLatin1Char(' '))));
}

QString yes(bool holds)
{
    return text(holds ? "yes" : "no");
}

void setFilter(const QString& word)
{
    setSetting("ZORV_NETWORK_INTERFACES", word.toLatin1().replace('_', ' '));
}

// The order of the candidates that follow a filter, as their positions; a dash after
// each of the four passes.
QString order(const QString& word)
{
    setFilter(word.section(QLatin1Char('/'), 0, 0));
    const QList<QHostAddress> candidates = addresses(word, 1);
    const QList<QHostAddress> ordered = sortAddressesByPotentialRoutability(candidates);
    QString positions;
    for (qsizetype i = 0; i < ordered.size(); ++i) {
        positions += QString::number(candidates.indexOf(ordered.at(i)));
        positions += text((i + 1) % (ordered.size() / 4) == 0 ? "-" : "");
    }
    return positions;
}

QString form(const QString& word)
{
    setSetting("ZORV_LOCALHOST", QByteArray("") + entries(word).join(QString()).toLatin1());
    setSetting("PELK_LOCALHOST_IPV6", word.section(QLatin1Char('/'), 1).toLatin1());
    return sc_localhost() + QLatin1Char('=') + joined(sc_localhostAddresses());
}

QString namesOf(const QString& word)
{
    setSetting("ZORV_FORCE_IP_HOSTNAME", word.section(QLatin1Char('/'), 1, 1).toLatin1());
    sc_setHasBluegeneNodes(word.endsWith(text("/bluegene")));
    const QStringList names = hostNameAndAddresses(entries(word).first());
    sc_setHasBluegeneNodes(false);
    return joined(names);
}

using Word = const QString&;

// What is asked about each of some words, what the answers are together, and which
// names are looked up, where that counts; with lines of the hosts file.
struct Question
{
    const char* name;
    QString (*ask)(Word w);
    const char* words;
    const char* answers;
    const char* lookUps = nullptr;
    const char* hosts = hostsFile;
};

// clang-format off
const Question questions[] = {
    {"look-ups give canonical names; addresses are IPv4's first, without loopback",
     [](Word w) { return lookUpHost(w).hostName() + QLatin1Char('=') + joined(hostAddresses(w)); },
     "nodeb fd00::7 10.0.0.7 10.0.0.99 many twice",
     "nodeb.cluster=10.0.0.7,fd00::7 nodeb.cluster=fd00::7 many=10.0.0.7 10.0.0.99=10.0.0.99 "
     "many=10.0.0.7,2001:db8::5 twice=10.0.0.3"},
    {"two architectures are big-endian",
     [](Word w) { return yes(endiannessFromArch(w) == ENDIAN_BIG); },
     "ppc64 ppc ppc64le PPC64 x86_64", "yes yes no no no"},
    {"four decimal numbers are an IPv4 address",
     [](Word w) { return yes(!parseAddress(w).isNull()); },
     "10.0.0.1 fe80::1%lo 10 127.1 010.0.0.1 0x7f.1 10.0.0.256", "yes yes no no no no no"},
    {"an index is a special address up to 254",
     [](Word w) { return specialLoopbackAddress(w.toInt()).toString(); },
     "254 255 2147483647", "127.42.42.255  "},
    {"loopback addresses", [](Word w) { return yes(isLoopback(QHostAddress(w))); },
     "127.0.0.1 127.255.255.254 ::1 ::ffff:127.1.2.3 ::ffff:127.42.42.1 none ::2 127.42.42.3 "
     "126.255.255.255 128.0.0.1 ::ffff:126.0.0.1 ::ffff:128.0.0.1",
     "yes yes yes yes yes no no no no no no no"},
    {"the first address decides for what is no text of loopback",
     [](Word w) { return yes(isLoopback(w)); },
     "localhost 127.nonsense ::1 ::ffff:127.0.0.1 ::ffff:127.42.42.1 127.42.42.3 LOCALHOST self "
     "many special nobody 0:0::1",
     "yes yes yes yes yes no yes yes yes no no yes", "LOCALHOST self many special nobody reverse"},
    {"a look-up that is there is not repeated",
     [](Word w) { return yes(isLoopback(lookUpHost(w))); },
     "localhost LOCALHOST self special nobody 127.42.42.3 127.nonsense", "yes yes yes no no no yes",
     "localhost LOCALHOST self special nobody reverse 127.nonsense"},
    {"names of one host: equal, both loopback, or with a common address",
     [](Word w) { return yes(isSameHost(entries(w).first(), entries(w, 1).first())); },
     "nobody/nobody localhost/127.0.0.1 many/localhost nodeb/nodeb-alias nodeb/localhost",
     "yes yes yes yes no", "many nodeb nodeb nodeb-alias nodeb nodeb localhost"},
    {"addresses of one host: equal or both loopback",
     [](Word w) { return yes(isSameHost(addresses(w).first(), addresses(w, 1).first())); },
     "127.0.0.1/::1 127.5.6.7/::ffff:127.0.0.1 127.42.42.1/127.42.42.1 127.42.42.1/127.0.0.1 "
     "::ffff:10.0.0.1/10.0.0.1",
     "yes yes yes no no"},
    {"lists of one host: with a common entry that is not loopback",
     [](Word w) {
         return yes(isSameHost(addresses(w), addresses(w, 1))) +
                yes(isSameHost(addresses(w), entries(w, 1))) +
                yes(isSameHost(entries(w), entries(w, 1)));
     },
     "127.0.0.1/127.0.0.1 ::1,10.1.1.1,10.1.1.2/127.0.0.1,10.1.1.2 127.42.42.1/127.42.42.1 "
     "10.1.1.1/10.1.1.2 10.0.0.7/nodeb NodeA/nodea",
     "nonono yesyesyes yesyesyes nonono nonono yesnono"},
    {"merging appends what the first list has not",
     [](Word w) { return joined(mergeAddressLists(addresses(w), addresses(w, 1))); },
     "1.1.1.1,2.2.2.2/2.2.2.2,3.3.3.3,3.3.3.3", "1.1.1.1,2.2.2.2,3.3.3.3,3.3.3.3"},
    {"the first name's addresses come first, and it is looked up last",
     [](Word w) { return joined(resolveHostNamesAndAddresses(entries(w))); },
     "10.0.0.2,10.0.0.1,10.0.0.2 , self,nodeb-alias,nobody,10.0.0.1",
     "10.0.0.2,10.0.0.1  127.0.1.1,10.0.0.7,10.0.0.1", "nodeb-alias nobody self"},
    {"names come before addresses, but after them when that is set and on a Blue Gene", namesOf,
     "nodeb/off nobody self nodeb/1 nodeb/off/bluegene",
     "nodeb,nodeb.cluster,10.0.0.7,fd00::7 nobody self 10.0.0.7,fd00::7,nodeb,nodeb.cluster "
     "10.0.0.7,fd00::7,nodeb,nodeb.cluster",
     "nodeb nobody self nodeb nodeb"},
    {"the host's name is the system's", [](Word) { return sc_hostname(); }, "-", "nodea"},
    {"loopback is IPv4's, or IPv6's, or set", form, "/Off /1 localhost/1",
     "127.0.0.1=127.0.0.1 ::1=::1 localhost=127.0.0.1", "localhost"},
    // Of the link-local addresses (RFC 4291, 2.5.6) those in fe80::/16 alone are left out.
    {"interfaces are those of the setting, a list of exact names",
     [](Word w) { setFilter(w); return joined(localHostAddresses()); },
     ", ib0_,_eth9 _ib0 IB0",
     "10.0.0.5,2001:db8::5,fe90::1%eth0,127.42.42.2,192.168.1.5,fd00::5 192.168.1.5,fd00::5  ",
     nullptr, ""},
    {"the name's addresses come first",
     [](Word w) { setFilter(w); return joined(localHostAddresses()); },
     "eth0", "192.168.1.5,10.0.0.5,2001:db8::5,fe90::1%eth0", nullptr,
     "192.168.1.5 nodea\n10.0.0.5 nodea\n127.0.0.1 nodea\n"},
    {"IPv4 addresses of interfaces add their names",
     [](Word w) { setFilter(w); return joined(localHostNamesAndAddresses()); },
     "eth0", "nodea,nodea.cluster,10.0.0.5,nodea-eth0,2001:db8::5,fe90::1%eth0", "nodea reverse",
     "10.0.0.5 nodea-eth0\n10.0.0.5 nodea.cluster nodea\n2001:db8::5 nodea-v6\n"},
    {"a canonical name of the loopback is left out",
     [](Word w) { setFilter(w); return joined(localHostNamesAndAddresses()); },
     "ib0", "nodea,192.168.1.5,fd00::5", nullptr, "127.0.1.1 nodea.cluster nodea\n"},
    {"this host is loopback, and its names and addresses as they stand",
     [](Word w) { return yes(isThisHost(w)) + yes(isThisHost(QHostAddress(w))); },
     "::1 127.9.9.9 fd00::5 127.42.42.2 10.0.0.6 127.42.42.3 nodea nodea.cluster NODEA alias",
     "yesyes yesyes yesyes yesyes nono nono yesno yesno nono nono", nullptr,
     "10.0.0.5 nodea.cluster nodea\n10.0.0.5 alias\n"},
    {"loopback is for this host alone: addresses",
     [](Word w) { return joined(fixLocalHost(addresses(w))); },
     "127.0.0.1,10.9.9.9 , 10.0.0.5 127.0.0.1,10.0.0.5",
     "10.9.9.9 127.0.0.1 10.0.0.5,127.0.0.1 127.0.0.1,10.0.0.5"},
    {"loopback is for this host alone: names",
     [](Word w) { return joined(fixLocalHost(entries(w))); },
     "localhost,localname,nodec , nodea 127.0.0.1,10.0.0.5",
     "nodec 127.0.0.1 nodea,127.0.0.1 127.0.0.1,10.0.0.5"},
    {"this host's name may be the loopback's",
     [](Word w) { return joined(fixLocalHost(entries(w))); },
     "nodea", "", nullptr, "127.0.1.1 nodea\n"},
    {"closest first: Ethernet before others, IPv4 before IPv6", order,
     "/192.168.9.9,10.0.0.77,10.9.9.9,2001:db8::99,127.0.0.1,::1 ib0/10.0.0.77,192.168.9.9 "
     "eth0/10.9.9.9,fe80::99 /127.42.42.5",
     "1203-3012-0123-0123- 01-01-10-01- 01-10-01-01- 0-0-0-0-"},
    {"2, 3, 4 and 7 bits, 3 to 63 are common; fewer than four do not count", order,
     "eth0/32.0.0.1,16.0.0.1,1.0.0.1,11.0.0.1 "
     "eth0/3001:db8::1,2000:db8::1,2001:d00::1,2001:df0::1,2001:db8:1::1,2001:db8:0:1::1",
     "3201-0123-0123-0123- 012345-543210-012345-012345-"},
    {"within the network all are equally close, and repeats stay", order,
     "eth0/10.0.0.200,10.0.0.2,10.0.0.200", "010-010-010-010-"},
    {"the first name's addresses are not ordered",
     [](Word w) { return joined(sortHostNamesAndAddressesByPotentialRoutability(entries(w))); },
     "10.9.9.9,192.168.9.9,10.0.0.77 , self,nobody,twice",
     "10.9.9.9,10.0.0.77,192.168.9.9,192.168.9.9,10.0.0.77,192.168.9.9,10.0.0.77,"
     "192.168.9.9,10.0.0.77  127.0.1.1,10.0.0.3,10.0.0.3,10.0.0.3,10.0.0.3",
     "nobody twice self"},
};
// clang-format on

} // namespace

// Linked in the place of the system's own by -Wl,--wrap.
extern "C" {

decltype(getaddrinfo) __real_getaddrinfo;
decltype(getnameinfo) __real_getnameinfo;
decltype(uname) __real_uname;

int __wrap_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** results)
{
    lookUps += text(node);
    return __real_getaddrinfo(node, service, hints, results);
}

int __wrap_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                       char* service, socklen_t serviceLength, int flags)
{
    lookUps += text("reverse");
    return __real_getnameinfo(address, length, host, hostLength, service, serviceLength, flags);
}

// The kernel that the variables describe.
int __wrap_uname(utsname* names)
{
    const int result = __real_uname(names);
    qstrncpy(names->sysname, getenv("KERNEL_NAME"), sizeof names->sysname);
    qstrncpy(names->release, "1.2", sizeof names->release);
    qstrncpy(names->machine, getenv("KERNEL_MACHINE"), sizeof names->machine);
    return result;
}

} // extern "C"

class HostTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        clearSettings({"FORCE_IP_HOSTNAME", "FAKE_BLUEGENE", "FORCE_BGQ_SUPPORT", "BG_NODE_TYPE",
                       "BGQDRV", "LOCALHOST", "LOCALHOST_IPV6", "NETWORK_INTERFACES", "HOSTNAME"});
    }

    // Before the others, which would have the answers found out here.
    void identity()
    {
        for (const auto& [variables, file, content, expected] : machines) {
            Namespace::writeFile(text(file), content, 0755);
            QCOMPARE(answer(machine, list(variables)), text(expected));
            QFile::remove(text(file));
            QDir().rmpath(QFileInfo(text(file)).path());
        }
        QCOMPARE(answer(laterMachine, {}), text("000000 000011"));
        // A system is still recognised when it was found to be no compute node.
        QCOMPARE(answer(laterMachine, {text("NODE_ALONE=1")}), text("000111 000111"));
    }

    void otherArchitecture()
    {
        const QString helper = text("/etc/x/ppc64/bin/") + FileName::zorvDebugger;
        const QString link = text("/etc/suite/bin/") + FileName::zorvDebugger + text(".ppc64");
        Namespace::writeFile(helper, "");
        QVERIFY(QDir().mkpath(text("/etc/suite/bin")) && QFile::link(helper, link));
        TalvoraGlobals::instance()->setLocationsAsFlatPath(text("/etc/suite"));
        const QString ppc64 = text("ppc64");
        const QStringList found = {sc_findArch(ppc64, QString()), sc_findArch(ppc64, text("lib")),
                                   sc_findArch(ppc64, text("/lib"))};
        QCOMPARE(found, list("/etc/x/ppc64 /etc/x/ppc64/lib /lib"));
        QVERIFY(sc_findArch(text("ppc"), text("lib")).isNull());
    }

    void hosts()
    {
        for (const Question& question : questions) {
            clearSettings(
                {"FORCE_IP_HOSTNAME", "LOCALHOST", "LOCALHOST_IPV6", "NETWORK_INTERFACES"});
            Namespace::setHosts("nodea", question.hosts);
            lookUps.clear();
            QStringList answers;
            for (const QString& word : list(question.words)) {
                answers += question.ask(word);
            }
            const QString found = answers.join(QLatin1Char(' '));
            QVERIFY2(found == text(question.answers),
                     qPrintable(text(question.name) + text(": ") + found));
            QVERIFY2(!question.lookUps || lookUps == list(question.lookUps),
                     qPrintable(text(question.name) + text(": ") + joined(lookUps)));
        }
    }
};

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::run(text("ip link set lo up && ip addr add 127.42.42.2/8 dev lo &&"
                        "ip link add ib0 type veth peer name eth0 &&"
                        "ip addr add 192.168.1.5/16 dev ib0 && ip addr add fd00::5/64 dev ib0 &&"
                        "for address in 10.0.0.5/24 fe80::1/64 fe90::1/64 2001:db8::5/64; do"
                        "    ip addr add $address dev eth0 || exit; done"));
    for (const char* directory : {"/etc", "/usr/bin", "/dev", "/sys"}) {
        Namespace::makeWritable(text(directory));
    }
    Namespace::run(text("rm -rf /usr/bin/lsb_release /etc/*-release /etc/opt"));
    Namespace::writeFile(text("/etc/debian_version"), "8\n");
    // A file of our own in the place of the kernel's.
    Namespace::writeFile(text("/etc/cpuinfo"), "");
    Namespace::run(text("mount --bind /etc/cpuinfo /proc/cpuinfo"));
    qputenv("KERNEL_NAME", "Linux");
    qputenv("KERNEL_MACHINE", "x86_64");
    HostTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_host.moc"
