// This host and others: their names and addresses, and what machine this is; with a
// resolver, interfaces and files of the test's own.

#include "common/compatibility_simple.h"
#include "tests/support/namespace.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QHostAddress>
#include <QTest>

#include <sys/wait.h>
#include <unistd.h>

namespace {

// In the place of the machine's files: in /etc nothing of them but the loader's cache,
// in /usr/bin links to the programs. Directories of the machine are in neither.
const char ownFiles[] = R"(set -e
    mount -t tmpfs none /mnt
    mkdir -p /mnt/machine /mnt/etc/opt /mnt/usr/bin
    mount --rbind / /mnt/machine
    [ ! -e /etc/ld.so.cache ] || cp /etc/ld.so.cache /mnt/etc
    find /mnt/machine/usr/bin -mindepth 1 -maxdepth 1 ! -xtype d ! -name lsb_release \
        -exec ln -s -t /mnt/usr/bin {} +
    echo 8 >/mnt/etc/debian_version
    echo 'hosts: files' >/mnt/etc/nsswitch.conf
    echo 'multi on' >/mnt/etc/host.conf
    mount --bind /mnt/usr/bin /usr/bin
    mount --bind /mnt/etc /etc)";

const char ownInterfaces[] = R"(set -e
    ip link set lo up
    ip link add ib0 type veth peer name eth0
    for address in "127.42.42.2/8 dev lo" "192.168.1.5/16 dev ib0" "fd00::5/64 dev ib0" \
        "10.0.0.5/24 dev eth0" "fe80::1/64 dev eth0" "fe90::1/64 dev eth0" "2001:db8::5/64 dev eth0"
    do
        ip addr add $address
    done)";

const char hostsFile[] = "127.0.0.1 localhost\n127.0.1.1 self.cluster self\n127.42.42.9 special\n"
                         "::1 many\n2001:db8::5 many\n127.0.0.1 many\n10.0.0.7 many\n"
                         "10.0.0.7 nodeb.cluster nodeb\nfd00::7 nodeb.cluster nodeb\n"
                         "10.0.0.7 nodeb-alias\n10.0.0.3 twice\n10.0.0.3 twice\n";

// The names that were looked up, "reverse" for an address.
QStringList lookUps;

// Variables, a file, its content, and what machine this is then. It is Debian's unless the file
// says something else.
// clang-format off
const char* const machines[][4] = {
    {"", "/etc/centos-release", "\n  CentOS 6.5 (Final) \nx 1", "CentOS 6.5 (Final) 000000"},
    {"", "/usr/bin/lsb_release", "#!/bin/sh\ntest $* = -d && echo 'Description:\t CentOS 7 \nx'\n", "CentOS 7 000000"},
    {"BGQDRV=", "/etc/none", "", "Debian GNU/Linux 8 000111"},
    {"ZORV_FAKE_BLUEGENE=1", "/etc/opt/cray", "", "Debian GNU/Linux 8 cray 100000"},
    {"ZORV_FAKE_BLUEGENE=q", "/etc/none", "", "Bluegene/Q Compute Node 111111"},
    {"BG_NODE_TYPE=", "/etc/none", "", "Bluegene/Q Compute Node 011111"},
};
// clang-format on

QString machine()
{
    QString result = sc_uname() + text(sc_isCray() ? " cray " : " ");
    // As a switch, compute node, the same, system, has nodes, any.
    for (const auto question : {sc_isFakeBluegene, sc_isBluegeneQNode, sc_isBluegeneNode,
                                sc_isBluegeneQ, sc_hasBluegeneNodes, sc_isBluegene}) {
        result += text(question() ? "1" : "0");
    }
    return result;
}

QString joined(const QStringList& list)
{
    return list.join(QLatin1Char(','));
}

QString joined(const QList<QHostAddress>& addresses)
{
    QStringList texts;
    for (const QHostAddress& address : addresses) {
        texts += address.toString();
    }
    return joined(texts);
}

// The entries of a word that is a list, or that has two with a slash between them.
QStringList entries(const QString& word, int part = 0)
{
    return word.section(QLatin1Char('/'), part, part).split(QLatin1Char(','), Qt::SkipEmptyParts);
}

QList<QHostAddress> addresses(const QString& word, int part = 0)
{
    QList<QHostAddress> result;
    for (const QString& entry : entries(word, part)) {
        result += QHostAddress(entry);
    }
    return result;
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
    {"four decimal numbers are an IPv4 address",
     [](Word w) { return yes(!parseAddress(w).isNull()); },
     "10.0.0.1 fe80::1%lo 10 127.1 010.0.0.1", "yes yes no no no"},
    {"loopback: the text, or the first address that is looked up; never a special address",
     [](Word w) { return yes(isLoopback(w)) + yes(isLoopback(QHostAddress(w))); },
     "127.255.255.254 ::1 ::ffff:127.1.2.3 ::ffff:127.42.42.1 127.42.42.3 128.0.0.1 ::ffff:128.0.0.1 "
     "localhost many special nobody",
     "yesyes yesyes yesyes yesyes nono nono nono yesno yesno nono nono",
     "reverse reverse many special nobody"},
    {"names of one host: equal, both loopback, or with a common address",
     [](Word w) { return yes(isSameHost(entries(w).first(), entries(w, 1).first())); },
     "nobody/nobody localhost/127.0.0.1 many/localhost nodeb/nodeb-alias nodeb/localhost",
     "yes yes yes yes no", "many nodeb nodeb nodeb-alias nodeb nodeb localhost"},
    {"lists of one host: with a common entry that is not loopback",
     [](Word w) {
         return yes(isSameHost(addresses(w), addresses(w, 1))) + yes(isSameHost(addresses(w), entries(w, 1)));
     },
     "127.0.0.1/127.0.0.1 ::1,10.1.1.1,10.1.1.2/127.0.0.1,10.1.1.2 127.42.42.1/127.42.42.1 10.0.0.7/nodeb",
     "nono yesyes yesyes nono"},
    {"the first name's addresses come first, and it is looked up last",
     [](Word w) { return joined(resolveHostNamesAndAddresses(entries(w))); },
     "10.0.0.2,10.0.0.1,10.0.0.2 , self,nodeb-alias,nobody,10.0.0.1",
     "10.0.0.2,10.0.0.1  127.0.1.1,10.0.0.7,10.0.0.1", "nodeb-alias nobody self"},
    {"names come before addresses, but after them when that is set and on a Blue Gene", namesOf,
     "nodeb/off nobody self nodeb/1 nodeb/off/bluegene",
     "nodeb,nodeb.cluster,10.0.0.7,fd00::7 nobody self 10.0.0.7,fd00::7,nodeb,nodeb.cluster "
     "10.0.0.7,fd00::7,nodeb,nodeb.cluster",
     "nodeb nodeb.cluster nobody self self.cluster nodeb nodeb.cluster nodeb nodeb.cluster"},
    {"loopback is IPv4's, or IPv6's, or set", form, "/Off /1 localhost/1",
     "127.0.0.1=127.0.0.1 ::1=::1 localhost=127.0.0.1", "localhost"},
    // Of the link-local addresses (RFC 4291, 2.5.6) those in fe80::/16 alone are left out.
    {"interfaces are those of the setting, a list of exact names",
     [](Word w) { setFilter(w); return joined(localHostAddresses()); },
     ", ib0_,_eth9 IB0",
     "10.0.0.5,2001:db8::5,fe90::1%eth0,127.42.42.2,192.168.1.5,fd00::5 192.168.1.5,fd00::5 ",
     nullptr, ""},
    {"the name's addresses come first",
     [](Word w) { setFilter(w); return joined(localHostAddresses()); },
     "eth0", "192.168.1.5,10.0.0.5,2001:db8::5,fe90::1%eth0", nullptr,
     "192.168.1.5 nodea\n10.0.0.5 nodea\n127.0.0.1 nodea\n"},
    {"IPv4 addresses of interfaces add their names",
     [](Word w) { setFilter(w); return joined(localHostNamesAndAddresses()); },
     "eth0", "nodea,nodea.cluster,10.0.0.5,nodea-eth0,2001:db8::5,fe90::1%eth0", "nodea nodea.cluster reverse",
     "10.0.0.5 nodea-eth0\n10.0.0.5 nodea.cluster nodea\n2001:db8::5 nodea-v6\n"},
    {"this host is loopback, and its names and addresses as they stand",
     [](Word w) { return yes(isThisHost(w)) + yes(isThisHost(QHostAddress(w))); },
     "::1 fd00::5 127.42.42.2 10.0.0.6 nodea nodea.cluster NODEA alias",
     "yesyes yesyes yesyes nono yesno yesno nono nono", nullptr,
     "10.0.0.5 nodea.cluster nodea\n10.0.0.5 alias\n"},
    {"loopback is for this host alone",
     [](Word w) { return joined(fixLocalHost(addresses(w))) + QLatin1Char('=') + joined(fixLocalHost(entries(w))); },
     "127.0.0.1,10.9.9.9 , 10.0.0.5",
     "10.9.9.9=10.9.9.9 127.0.0.1=127.0.0.1 10.0.0.5,127.0.0.1=10.0.0.5,127.0.0.1"},
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

// Linked in the place of the look-ups by -Wl,--wrap, which knows the mangled names.
#define HOST_OF_NAME "_ZN7Lookups10hostOfNameERK10QByteArray"
#define NAME_OF_ADDRESS "_ZN7Lookups13nameOfAddressERK10QByteArray"
Lookups::Host realHostOfName(const QByteArray& name) __asm__("__real_" HOST_OF_NAME);
QByteArray realNameOfAddress(const QByteArray& address) __asm__("__real_" NAME_OF_ADDRESS);
Lookups::Host wrappedHostOfName(const QByteArray& name) __asm__("__wrap_" HOST_OF_NAME);
QByteArray wrappedNameOfAddress(const QByteArray& address) __asm__("__wrap_" NAME_OF_ADDRESS);

Lookups::Host wrappedHostOfName(const QByteArray& name)
{
    lookUps += QString::fromLatin1(name);
    return realHostOfName(name);
}

QByteArray wrappedNameOfAddress(const QByteArray& address)
{
    lookUps += text("reverse");
    return realNameOfAddress(address);
}

class HostTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Most answers are given once in a process, so each is asked of a process of its own.
    void identity()
    {
        clearSettings({"FAKE_BLUEGENE", "FORCE_BGQ_SUPPORT", "BG_NODE_TYPE", "BGQDRV"});
        for (const auto& [variables, name, content, expected] : machines) {
            QVERIFY(writeFile(text(name), content));
            QFile file(text(name));
            file.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
            const pid_t child = fork();
            if (child == 0) {
                for (const QString& variable : list(variables)) {
                    putenv(qstrdup(qPrintable(variable)));
                }
                discardEnvCache();
                [expected = text(expected)] { QCOMPARE(machine(), expected); }();
                _exit(QTest::currentTestFailed() ? 1 : 0);
            }
            int status = -1;
            waitpid(child, &status, 0);
            QVERIFY2(status == 0, expected);
            QVERIFY(file.remove());
        }
    }

    void hosts()
    {
        QCOMPARE(sethostname("nodea", 5), 0);
        for (const Question& question : questions) {
            clearSettings(
                {"FORCE_IP_HOSTNAME", "LOCALHOST", "LOCALHOST_IPV6", "NETWORK_INTERFACES"});
            QVERIFY(writeFile(text("/etc/hosts"), question.hosts));
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
    Namespace::run(text(ownFiles));
    Namespace::run(text(ownInterfaces));
    HostTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_host.moc"
