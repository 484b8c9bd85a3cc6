// Addresses and hosts: which are loopback, which are the same, which are this
// one's, and which are tried first; with a resolver and interfaces of the test's own.

#include "common/compatibility_simple/addresses.h"
#include "common/compatibility_simple/localhost.h"
#include "common/compatibility_simple/resolver.h"
#include "common/compatibility_simple/routability.h"
#include "common/compatibility_simple/systemidentity.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

#include <QTest>

#include <limits>
#include <netdb.h>
#include <unistd.h>

namespace {

// The names that were looked up since the last resetLookups(), and the number of
// addresses. The program is linked with -Wl,--wrap=getaddrinfo,--wrap=getnameinfo.
QStringList lookedUpNames;
int reverseLookups = 0;

int lookups()
{
    return static_cast<int>(lookedUpNames.size()) + reverseLookups;
}

void resetLookups()
{
    lookedUpNames.clear();
    reverseLookups = 0;
}

const char hostsFile[] = "127.0.0.1 localhost LOCALHOST localname\n"
                         "::1 many\n2001:db8::5 many\n127.0.0.1 many\n10.0.0.7 many\n"
                         "10.0.0.7 nodeb.cluster nodeb\nfd00::7 nodeb.cluster nodeb\n"
                         "10.0.0.7 nodeb-alias\n"
                         "127.0.1.1 self.cluster self\n"
                         "127.42.42.9 special\n"
                         "10.0.0.3 twice\n10.0.0.3 twice\n";

// clang-format off
const char* const interfaceCommands[] = {
    "link set lo up", "addr add 127.42.42.2/8 dev lo", "link add ib0 type veth peer name eth0",
    "addr add 192.168.1.5/16 dev ib0", "addr add fd00::5/64 dev ib0", "addr add 10.0.0.5/24 dev eth0",
    "addr add fe80::1/64 dev eth0", "addr add fe90::1/64 dev eth0", "addr add 2001:db8::5/64 dev eth0",
};
// clang-format on

} // namespace

extern "C" {

decltype(getaddrinfo) __real_getaddrinfo;
decltype(getnameinfo) __real_getnameinfo;

int __wrap_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** results)
{
    lookedUpNames += QString::fromLocal8Bit(node);
    return __real_getaddrinfo(node, service, hints, results);
}

int __wrap_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                       char* service, socklen_t serviceLength, int flags)
{
    ++reverseLookups;
    return __real_getnameinfo(address, length, host, hostLength, service, serviceLength, flags);
}

} // extern "C"

class NetworkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearSettings({"FORCE_IP_HOSTNAME", "FAKE_BLUEGENE", "FORCE_BGQ_SUPPORT", "BG_NODE_TYPE",
                       "BGQDRV", "LOCALHOST", "LOCALHOST_IPV6", "NETWORK_INTERFACES", "HOSTNAME"});
        Namespace::setHosts("nodea", hostsFile);
        resetLookups();
    }

    void looksUp()
    {
        for (const char* address : {"10.0.0.1", " 10.0.0.1 ", "::1", "fe80::1%lo"}) {
            QVERIFY2(!parseAddress(text(address)).isNull(), address);
        }
        for (const char* name : {"", "10", "127.1", "010.0.0.1", "0x7f.1", "10.0.0.256", "node"}) {
            QVERIFY2(parseAddress(text(name)).isNull(), name);
        }
        // clang-format off
        const char* const rows[][3] = {
            {"nodeb", "nodeb.cluster", "10.0.0.7 fd00::7"}, {"twice", "twice", "10.0.0.3"},
            {"10.0.0.7", "many", "10.0.0.7"}, {"fd00::7", "nodeb.cluster", "fd00::7"},
            {"10.0.0.99", "10.0.0.99", "10.0.0.99"}, {"many", "many", "10.0.0.7 2001:db8::5"},
            {"nobody", "nobody", ""}, {"", "", ""}, {"a b\n", "a b\n", ""},
        };
        // clang-format on
        for (const auto& [name, canonical, addresses] : rows) {
            QCOMPARE(lookUpHost(text(name)).hostName(), text(canonical));
            QCOMPARE(words(hostAddresses(text(name))), text(addresses));
        }
        QCOMPARE(words(lookUpHost(text("twice")).addresses()), text("10.0.0.3"));
    }

    void loopback()
    {
        QCOMPARE(specialLoopbackAddress(254), QHostAddress(text("127.42.42.255")));
        QVERIFY(specialLoopbackAddress(255).isNull());
        QVERIFY(specialLoopbackAddress(std::numeric_limits<int>::max()).isNull());
        for (const QHostAddress& address :
             addressList("127.0.0.1 127.255.255.254 ::1 ::ffff:127.1.2.3 ::ffff:127.42.42.1")) {
            QVERIFY2(isLoopback(address), qPrintable(address.toString()));
        }
        for (const QHostAddress& address :
             addressList("127.42.42.3 ::2 ::ffff:10.0.0.1 fe80::1 128.0.0.1 126.255.255.255 "
                         "::ffff:126.0.0.1 ::ffff:128.0.0.1 none")) {
            QVERIFY2(!isLoopback(address), qPrintable(address.toString()));
        }
        // clang-format off
        const struct { const char* names; bool loopback; int lookups; } rows[] = {
            {"localhost 127.0.1.1 127.nonsense ::1 ::ffff:127.0.0.1 ::ffff:127.42.42.1", true, 0},
            {"127.42.42.3 127.42.42.", false, 0},
            {"LOCALHOST self 0:0::1", true, 1},
            {"special nobody", false, 1},
        };
        // clang-format on
        for (const auto& row : rows) {
            for (const QString& name : list(row.names)) {
                resetLookups();
                QVERIFY2(isLoopback(name) == row.loopback, qPrintable(name));
                QVERIFY2(lookups() == row.lookups, qPrintable(name));
                // The same of a result that is there already, without another look-up.
                const QHostInfo info = lookUpHost(name);
                resetLookups();
                QVERIFY2(isLoopback(info) == row.loopback && lookups() == 0, qPrintable(name));
            }
        }
    }

    void sameHost()
    {
        // clang-format off
        const struct { const char* one; const char* other; bool same; int lookups; } names[] = {
            {"nobody", "nobody", true, 0}, {"localhost", "127.0.0.1", true, 0},
            {"nodeb", "nodeb-alias", true, 3}, {"nobody", "noone", false, 3},
            {"many", "localhost", true, 1}, {"nodeb", "localhost", false, 3},
        };
        const struct { const char* one; const char* other; bool same; } addresses[] = {
            {"127.0.0.1", "::1", true}, {"127.5.6.7", "::ffff:127.0.0.1", true},
            {"127.42.42.1", "127.42.42.1", true}, {"127.42.42.1", "127.0.0.1", false},
            {"::ffff:10.0.0.1", "10.0.0.1", false},
        }, lists[] = {
            {"127.0.0.1", "127.0.0.1", false}, {"::1 10.1.1.1 10.1.1.2", "127.0.0.1 10.1.1.2", true},
            {"127.42.42.1", "127.42.42.1", true}, {"10.1.1.1", "10.1.1.2", false}, {"10.1.1.1", "", false},
        };
        // clang-format on
        for (const auto& row : names) {
            resetLookups();
            QVERIFY2(isSameHost(text(row.one), text(row.other)) == row.same, row.one);
            QVERIFY2(lookups() == row.lookups, row.one);
        }
        for (const auto& row : addresses) {
            const QHostAddress one(text(row.one));
            QVERIFY2(isSameHost(one, QHostAddress(text(row.other))) == row.same, row.one);
        }
        for (const auto& row : lists) {
            const auto one = addressList(row.one);
            QVERIFY2(isSameHost(list(row.one), list(row.other)) == row.same, row.one);
            QVERIFY2(isSameHost(one, list(row.other)) == row.same, row.one);
            QVERIFY2(isSameHost(one, addressList(row.other)) == row.same, row.one);
        }
        QVERIFY(!isSameHost(list("NodeA"), list("nodea")));
        QVERIFY(!isSameHost(addressList("10.0.0.7"), list("nodeb")));
    }

    void resolves()
    {
        QCOMPARE(words(mergeAddressLists(addressList("1.1.1.1 2.2.2.2"),
                                         addressList("2.2.2.2 3.3.3.3 3.3.3.3"))),
                 text("1.1.1.1 2.2.2.2 3.3.3.3 3.3.3.3"));
        const auto resolved = [](const char* names) {
            return words(resolveHostNamesAndAddresses(list(names)));
        };
        QCOMPARE(resolved("10.0.0.2 10.0.0.1 10.0.0.2"), text("10.0.0.2 10.0.0.1"));
        QCOMPARE(resolved(""), text(""));
        QCOMPARE(lookups(), 0);
        QCOMPARE(resolved("self nodeb-alias nobody 10.0.0.1"), text("127.0.1.1 10.0.0.7 10.0.0.1"));
        QCOMPARE(lookedUpNames, list("nodeb-alias nobody self"));

        const QStringList namesFirst = list("nodeb nodeb.cluster 10.0.0.7 fd00::7");
        const QStringList addressesFirst = list("10.0.0.7 fd00::7 nodeb nodeb.cluster");
        resetLookups();
        QCOMPARE(hostNameAndAddresses(text("nodeb")), namesFirst);
        QCOMPARE(lookups(), 1);
        QCOMPARE(hostNameAndAddresses(text("nobody")), list("nobody"));
        QCOMPARE(hostNameAndAddresses(text("self")), list("self"));
        setSetting("ZORV_FORCE_IP_HOSTNAME", "1");
        QCOMPARE(hostNameAndAddresses(text("nodeb")), addressesFirst);
        setSetting("ZORV_FORCE_IP_HOSTNAME", "off");
        QCOMPARE(hostNameAndAddresses(text("nodeb")), namesFirst);
        sc_setHasBluegeneNodes(true);
        const QStringList onBluegene = hostNameAndAddresses(text("nodeb"));
        sc_setHasBluegeneNodes(false);
        QCOMPARE(onBluegene, addressesFirst);
    }

    void ownNameAndLoopbackForm()
    {
        setSetting("HOSTNAME", "other");
        QCOMPARE(sc_hostname(), text("nodea"));
        // An empty name is a name.
        QCOMPARE(sethostname("", 0), 0);
        QCOMPARE(sc_hostname(), text(""));
        // clang-format off
        const char* const rows[][4] = {
            {nullptr, nullptr, "127.0.0.1", "127.0.0.1"}, {nullptr, "x", "::1", "::1"},
            {nullptr, "Off", "127.0.0.1", "127.0.0.1"}, {"", "1", "::1", "::1"},
            {"localhost", "1", "localhost", "127.0.0.1"}, {"nobody", nullptr, "nobody", ""},
        };
        // clang-format on
        for (const auto& [setting, ipv6, form, addresses] : rows) {
            setSetting("ZORV_LOCALHOST", setting);
            setSetting("PELK_LOCALHOST_IPV6", ipv6);
            QCOMPARE(sc_localhost(), text(form));
            QCOMPARE(words(sc_localhostAddresses()), text(addresses));
        }
    }

    void ownAddresses()
    {
        // Of the link-local addresses (RFC 4291, 2.5.6) those in fe80::/16 alone are left out.
        const char all[] = "10.0.0.5 2001:db8::5 fe90::1%eth0 127.42.42.2 192.168.1.5 fd00::5";
        // clang-format off
        const char* const rows[][3] = {
            {hostsFile, nullptr, all}, {hostsFile, "", all}, {hostsFile, ",", all},
            {hostsFile, "ib0 , eth9", "192.168.1.5 fd00::5"},
            {hostsFile, "ib0,,eth0", "10.0.0.5 2001:db8::5 fe90::1%eth0 192.168.1.5 fd00::5"},
            {hostsFile, " ib0", ""}, {hostsFile, "IB0", ""},
            {"192.168.1.5 nodea\n10.0.0.5 nodea\n", "eth0,ib0", "192.168.1.5 10.0.0.5 2001:db8::5 fe90::1%eth0 fd00::5"},
            {"192.168.1.5 nodea\n127.0.0.1 nodea\n", "eth0", "192.168.1.5 10.0.0.5 2001:db8::5 fe90::1%eth0"},
        };
        // IPv4 addresses of interfaces add their names.
        const char* const names[][3] = {
            {"10.0.0.5 nodea-eth0\n10.0.0.5 nodea.cluster nodea\n", "eth0", "nodea nodea.cluster 10.0.0.5 nodea-eth0 2001:db8::5 fe90::1%eth0"},
            {"2001:db8::5 nodea-v6\n", "eth0", "nodea 10.0.0.5 2001:db8::5 fe90::1%eth0"},
            {"127.0.1.1 nodea.cluster nodea\n", "ib0", "nodea 192.168.1.5 fd00::5"},
        };
        // clang-format on
        for (const auto& [hosts, filter, addresses] : rows) {
            Namespace::setHosts("nodea", hosts);
            setSetting("ZORV_NETWORK_INTERFACES", filter);
            QCOMPARE(words(localHostAddresses()), text(addresses));
        }
        for (const auto& [hosts, filter, expected] : names) {
            Namespace::setHosts("nodea", hosts);
            setSetting("ZORV_NETWORK_INTERFACES", filter);
            QCOMPARE(localHostNamesAndAddresses(), list(expected));
        }
        setSetting("ZORV_NETWORK_INTERFACES", QByteArray());
        resetLookups();
        localHostNamesAndAddresses();
        // The host's name, and the IPv4 addresses of eth0, ib0 and lo.
        QCOMPARE(lookedUpNames.size(), 1);
        QCOMPARE(lookups(), 1 + 3);
    }

    void thisHost()
    {
        QVERIFY(isThisHost(text("::1")) && isThisHost(QHostAddress(text("127.9.9.9"))));
        QCOMPARE(lookups(), 0);
        Namespace::setHosts("nodea", "10.0.0.5 nodea.cluster nodea\n10.0.0.5 alias\n");
        for (const char* name : {"nodea", "nodea.cluster", "10.0.0.5", "fd00::5", "127.42.42.2"}) {
            QVERIFY2(isThisHost(text(name)), name);
        }
        for (const char* name : {"NODEA", "alias", "10.0.0.6", "127.42.42.3"}) {
            QVERIFY2(!isThisHost(text(name)), name);
        }
        QVERIFY(isThisHost(QHostAddress(text("192.168.1.5"))));
        QVERIFY(!isThisHost(QHostAddress(text("192.168.1.6"))));

        const auto fixed = [](const char* names) {
            return words(fixLocalHost(addressList(names)));
        };
        QCOMPARE(fixed("127.0.0.1 10.9.9.9"), text("10.9.9.9"));
        QCOMPARE(fixed(""), text("127.0.0.1"));
        QCOMPARE(fixed("10.0.0.5"), text("10.0.0.5 127.0.0.1"));
        QCOMPARE(fixed("127.0.0.1 10.0.0.5"), text("127.0.0.1 10.0.0.5"));
        Namespace::setHosts("nodea", "10.0.0.5 nodea\n127.0.0.1 localname\n");
        QCOMPARE(fixLocalHost(list("localhost localname nodec")), list("nodec"));
        QCOMPARE(fixLocalHost(list("")), list("127.0.0.1"));
        QCOMPARE(fixLocalHost(list("nodea")), list("nodea 127.0.0.1"));
        QCOMPARE(fixLocalHost(list("127.0.0.1 nodea")), list("127.0.0.1 nodea"));
        Namespace::setHosts("nodea", "127.0.1.1 nodea\n");
        QCOMPARE(fixLocalHost(list("nodea")), QStringList());
    }

    // Each of four passes gives all candidates, those of the longest prefix that is
    // shared with an interface of the pass first: Ethernet before others, IPv4 before
    // IPv6. The digits say which candidates come first in each pass, the others follow
    // as they are.
    void ordersByRoutability()
    {
        // clang-format off
        const struct { const char* filter; const char* candidates; const char* first[4]; } rows[] = {
            {nullptr, "192.168.9.9 10.0.0.77 10.9.9.9 2001:db8::99", {"12", "3", "0", ""}},
            {"ib0", "10.0.0.77 192.168.9.9", {"", "", "1", ""}},
            // 2, 3, 4 and 7 bits; fewer than four do not count.
            {"eth0", "32.0.0.1 16.0.0.1 1.0.0.1 11.0.0.1", {"32", "", "", ""}},
            // Within the network all are equally close, and repeats stay.
            {"eth0", "10.0.0.200 10.0.0.2 10.0.0.200", {"", "", "", ""}},
            // 3, 15, 24, 25 and 63 bits.
            {"eth0", "3001:db8::1 2000:db8::1 2001:d00::1 2001:df0::1 2001:db8:0:1::1", {"", "4321", "", ""}},
            {"eth0", "10.9.9.9 fe80::99", {"", "1", "", ""}},
            {nullptr, "127.42.42.5", {"", "", "", ""}},
        };
        // clang-format on
        for (const auto& row : rows) {
            setSetting("ZORV_NETWORK_INTERFACES", row.filter);
            const QList<QHostAddress> candidates = addressList(row.candidates);
            QList<QHostAddress> expected;
            for (const QByteArray first : row.first) {
                for (char digit : first) {
                    expected += candidates.at(digit - '0');
                }
                for (qsizetype i = 0; i < candidates.size(); ++i) {
                    expected += first.contains(char('0' + i)) ? QList<QHostAddress>()
                                                              : candidates.mid(i, 1);
                }
            }
            const auto loopback = addressList("127.0.0.1 ::1");
            QCOMPARE(words(sortAddressesByPotentialRoutability(candidates + loopback)),
                     words(expected));
        }
        // The first name's addresses come first, and it is looked up last.
        const auto ordered = [](const char* names) {
            return words(sortHostNamesAndAddressesByPotentialRoutability(list(names)));
        };
        QCOMPARE(ordered(""), text(""));
        QCOMPARE(ordered("10.9.9.9 192.168.9.9 10.0.0.77"),
                 text("10.9.9.9 10.0.0.77 192.168.9.9 192.168.9.9 10.0.0.77 192.168.9.9 10.0.0.77 "
                      "192.168.9.9 10.0.0.77"));
        QCOMPARE(lookups(), 0);
        QCOMPARE(ordered("self nodeb-alias twice"),
                 text("127.0.1.1 10.0.0.7 10.0.0.3 10.0.0.7 10.0.0.3 10.0.0.7 10.0.0.3 10.0.0.7 "
                      "10.0.0.3"));
        QCOMPARE(lookedUpNames, list("nodeb-alias twice self"));
    }
};

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::makeWritable(text("/etc"));
    for (const char* command : interfaceCommands) {
        Namespace::run(text("ip ") + text(command));
    }
    NetworkTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_network.moc"
