#include "common/compatibility_simple/lookups/backends_p.h"
#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/localhost.h"
#include "common/compatibility_simple/network/resolver.h"
#include "common/compatibility_simple/network/routability.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "tests/support/helpers.h"
#include "tests/support/namespace.h"

#include <QHostAddress>
#include <QTest>

using namespace Qt::StringLiterals;

using Addresses = QList<QHostAddress>;
using Texts = std::initializer_list<const char*>;

namespace {

const char ownHost[] = R"(set -e
    hostname nodea
    mount -t tmpfs none /mnt
    touch /mnt/hosts
    mount --bind /mnt/hosts /etc/hosts
    ip link set lo up
    ip link add ib0 type veth peer name eth0
    for address in "127.42.42.2/8 dev lo" "192.168.1.5/16 dev ib0" "fd00::5/64 dev ib0" \
        "10.0.0.5/24 dev eth0" "fe80::1/64 dev eth0" "2001:db8::5/64 dev eth0"
    do
        ip addr add $address
    done)";

const char hostsFile[] = R"(
127.0.0.1 localhost
127.0.1.1 self.cluster self
::1 many
2001:db8::5 many
127.0.0.1 many
10.0.0.7 many
10.0.0.7 nodeb.cluster nodeb
fd00::7 nodeb.cluster nodeb
10.0.0.7 nodeb-alias
127.0.0.1 loop.cluster
10.0.0.8 loop.cluster hidden
)";

Addresses addresses(Texts texts)
{
    Addresses result;
    for (const char* address : texts) {
        result += QHostAddress(text(address));
    }
    return result;
}

} // namespace

// These take the place of the library's look-ups, and read /etc/hosts alone.
Lookups::Host Lookups::hostOfName(const QByteArray& name)
{
    return EtcFiles::hostOfName(name);
}

QByteArray Lookups::nameOfAddress(const QByteArray& address)
{
    return EtcFiles::nameOfAddress(address);
}

// This host is "nodea".
class NetworkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearSettings();
        QVERIFY(writeFile(u"/etc/hosts"_s, hostsFile));
        sc_setHasBluegeneNodes(false);
    }

    void loopback_data()
    {
        QTest::addColumn<bool>("isLoopbackName");
        QTest::addColumn<bool>("isLoopbackAddress");
        for (const char* address : {"127.255.255.254", "::1", "::ffff:127.42.42.1"}) {
            QTest::newRow(address) << true << true;
        }
        QTest::newRow("127.42.42.3") << false << false;
        QTest::newRow("128.0.0.1") << false << false;
        QTest::newRow("many") << true << false;
        QTest::newRow("nobody") << false << false;
    }

    void loopback()
    {
        const QString host = text(QTest::currentDataTag());
        QTEST(isLoopback(host), "isLoopbackName");
        QTEST(isLoopback(lookUpHost(host)), "isLoopbackName");
        QTEST(isLoopback(QHostAddress(host)), "isLoopbackAddress");
    }

    void sameHostByName()
    {
        QVERIFY(isSameHost(u"nobody"_s, u"nobody"_s));
        QVERIFY(isSameHost(u"localhost"_s, u"many"_s));
        QVERIFY(isSameHost(u"nodeb"_s, u"nodeb-alias"_s));
        QVERIFY(!isSameHost(u"nodeb"_s, u"localhost"_s));
        QVERIFY(!isSameHost(u"nobody"_s, u"none"_s));
    }

    void sameHostByAddress()
    {
        QVERIFY(isSameHost(QHostAddress(u"127.0.0.1"_s), QHostAddress(u"::1"_s)));
        QVERIFY(isSameHost(specialLoopbackAddress(0), QHostAddress(u"127.42.42.1"_s)));
        QVERIFY(!isSameHost(specialLoopbackAddress(0), QHostAddress(u"127.0.0.1"_s)));

        const auto check = [](Texts texts1, Texts texts2, bool isSame) {
            QCOMPARE(isSameHost(list(texts1), list(texts2)), isSame);
            QCOMPARE(isSameHost(addresses(texts1), list(texts2)), isSame);
            QCOMPARE(isSameHost(addresses(texts1), addresses(texts2)), isSame);
        };
        check({"::1", "10.1.1.1", "10.1.1.2"}, {"127.0.0.1", "10.1.1.2"}, true);
        check({"127.0.0.1"}, {"127.0.0.1"}, false);
    }

    void addressesOfTheFirstEntryComeFirst()
    {
        QCOMPARE(resolveHostNamesAndAddresses(list({"self", "nodeb-alias", "nobody", "127.0.1.1"})),
                 addresses({"127.0.1.1", "10.0.0.7"}));
    }

    void namesOfAHostComeBeforeItsAddresses()
    {
        QCOMPARE(hostNameAndAddresses(u"nodeb"_s),
                 list({"nodeb", "nodeb.cluster", "10.0.0.7", "fd00::7"}));
        QCOMPARE(hostNameAndAddresses(u"nobody"_s), list({"nobody"}));
        // The name has one address that is not loopback, its canonical name another.
        QCOMPARE(hostNameAndAddresses(u"hidden"_s), list({"hidden", "10.0.0.8"}));
        // IPv4 comes first, and loopback addresses are left out.
        QCOMPARE(hostNameAndAddresses(u"many"_s), list({"many", "10.0.0.7", "2001:db8::5"}));
    }

    void addressesComeFirstByASettingAndOnABlueGene()
    {
        const QStringList addressesFirst = list({"10.0.0.7", "fd00::7", "nodeb", "nodeb.cluster"});
        setSetting("ZORV_FORCE_IP_HOSTNAME", "1");
        QCOMPARE(hostNameAndAddresses(u"nodeb"_s), addressesFirst);
        setSetting("ZORV_FORCE_IP_HOSTNAME", "off");
        sc_setHasBluegeneNodes(true);
        QCOMPARE(hostNameAndAddresses(u"nodeb"_s), addressesFirst);
    }

    void settingsChooseTheLoopbackForm()
    {
        QCOMPARE(sc_localhost(), u"127.0.0.1"_s);
        QCOMPARE(sc_localhostAddresses(), addresses({"127.0.0.1"}));
        setSetting("PELK_LOCALHOST_IPV6", "1");
        QCOMPARE(sc_localhost(), u"::1"_s);
        QCOMPARE(sc_localhostAddresses(), addresses({"::1"}));
        setSetting("ZORV_LOCALHOST", "nodeb-alias");
        QCOMPARE(sc_localhost(), u"nodeb-alias"_s);
        QCOMPARE(sc_localhostAddresses(), addresses({"10.0.0.7"}));
    }

    // Link-local addresses are left out.
    void addressesOfThisHostAreThoseOfItsEthernetFirst()
    {
        QCOMPARE(localHostAddresses(),
                 addresses({"10.0.0.5", "2001:db8::5", "127.42.42.2", "192.168.1.5", "fd00::5"}));
    }

    void settingChoosesTheInterfacesOfThisHost()
    {
        setSetting("ZORV_NETWORK_INTERFACES", "ib0 , ETH0,eth");
        QCOMPARE(localHostAddresses(), addresses({"192.168.1.5", "fd00::5"}));
    }

    void namesAndAddressesOfTheHostsNameComeFirst()
    {
        QVERIFY(writeFile(u"/etc/hosts"_s, "192.168.1.5 nodea.cluster nodea\n"
                                           "10.0.0.5 nodea-eth0\n127.0.0.1 nodea\n"));
        QCOMPARE(localHostAddresses(),
                 addresses({"192.168.1.5", "10.0.0.5", "2001:db8::5", "127.42.42.2", "fd00::5"}));
        QCOMPARE(localHostNamesAndAddresses(),
                 list({"nodea", "nodea.cluster", "192.168.1.5", "10.0.0.5", "nodea-eth0",
                       "2001:db8::5", "127.42.42.2", "fd00::5"}));
    }

    void thisHostIsKnownByItsNamesAndAddresses()
    {
        QVERIFY(writeFile(u"/etc/hosts"_s, "10.0.0.5 nodea.cluster nodea\n"));
        for (const char* host : {"::1", "127.42.42.2", "nodea", "nodea.cluster"}) {
            QVERIFY2(isThisHost(text(host)), host);
        }
        QVERIFY(!isThisHost(u"10.0.0.6"_s));
        QVERIFY(isThisHost(QHostAddress(u"::1"_s)));
        QVERIFY(isThisHost(QHostAddress(u"127.42.42.2"_s)));
        QVERIFY(!isThisHost(QHostAddress(u"10.0.0.6"_s)));
    }

    void loopbackIsForThisHostAlone()
    {
        const auto check = [](Texts entries, Texts fixed) {
            QCOMPARE(fixLocalHost(list(entries)), list(fixed));
            QCOMPARE(fixLocalHost(addresses(entries)), addresses(fixed));
        };
        check({"127.0.0.1", "10.9.9.9"}, {"10.9.9.9"});
        check({"10.0.0.5"}, {"10.0.0.5", "127.0.0.1"});
        check({"127.0.0.1", "10.0.0.5"}, {"127.0.0.1", "10.0.0.5"});
        // Nothing stands for this host.
        check({}, {"127.0.0.1"});
    }

    // Each block of the result is by one kind of interface: Ethernet IPv4 and IPv6, other
    // IPv4 and IPv6. Of the common bits, only the network's own count, and no fewer than four.
    void closestAddressesAreFirstInABlockForEachKindOfInterface()
    {
        const Addresses mixed = addresses({"32.0.0.1", "16.0.0.1", "192.168.9.9", "127.42.42.5",
                                           "10.0.0.77", "10.0.0.6", "11.9.9.9", "2001:db8::99"});
        QCOMPARE(sortAddressesByPotentialRoutability(mixed + addresses({"127.0.0.1", "::1"})),
                 addresses({"10.0.0.77", "10.0.0.6", "11.9.9.9", "32.0.0.1", "16.0.0.1",
                            "192.168.9.9", "127.42.42.5", "2001:db8::99"}) +
                     addresses({"2001:db8::99", "32.0.0.1", "16.0.0.1", "192.168.9.9",
                                "127.42.42.5", "10.0.0.77", "10.0.0.6", "11.9.9.9"}) +
                     addresses({"192.168.9.9", "127.42.42.5", "32.0.0.1", "16.0.0.1", "10.0.0.77",
                                "10.0.0.6", "11.9.9.9", "2001:db8::99"}) +
                     mixed);
    }

    void addressesOfTheFirstNameAreNotOrdered()
    {
        QCOMPARE(sortHostNamesAndAddressesByPotentialRoutability(
                     list({"self", "192.168.9.9", "nobody", "nodeb-alias"})),
                 addresses({"127.0.1.1", "10.0.0.7", "192.168.9.9", "192.168.9.9", "10.0.0.7",
                            "192.168.9.9", "10.0.0.7", "192.168.9.9", "10.0.0.7"}));
        QCOMPARE(sortHostNamesAndAddressesByPotentialRoutability({}), Addresses());
    }
};

int main(int argc, char** argv)
{
    if (!Namespace::enter(ownHost)) {
        return Namespace::Skipped;
    }
    NetworkTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_network.moc"
