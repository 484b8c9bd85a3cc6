// Address classification and host comparison, with a resolver of the test's own.

#include "common/compatibility_simple/addresses.h"
#include "common/compatibility_simple/resolver.h"
#include "common/compatibility_simple/systemidentity.h"
#include "common/env/zorvenv.h"
#include "tests/support/lookups.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

#include <QTest>

#include <limits>

namespace {

const char hostsFile[] = "127.0.0.1 localhost LOCALHOST\n"
                         "::1 many\n2001:db8::5 many\n127.0.0.1 many\n10.0.0.7 many\n"
                         "10.0.0.7 nodeb.cluster nodeb\nfd00::7 nodeb.cluster nodeb\n"
                         "10.0.0.7 nodeb-alias\n"
                         "127.0.1.1 self.cluster self\n"
                         "127.42.42.9 special\n"
                         "10.0.0.3 twice\n10.0.0.3 twice\n";

int lookups()
{
    return forwardLookups + reverseLookups;
}

} // namespace

class AddressesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void specialLoopback();
    void addressTexts();
    void looksUp_data();
    void looksUp();
    void loopbackAddresses();
    void loopbackTexts_data();
    void loopbackTexts();
    void sameAddress();
    void sameLists_data();
    void sameLists();
    void sameNames_data();
    void sameNames();
    void resolves();
    void namesAndAddresses();
};

void AddressesTest::init()
{
    clearSettings(
        {"FORCE_IP_HOSTNAME", "FAKE_BLUEGENE", "FORCE_BGQ_SUPPORT", "BG_NODE_TYPE", "BGQDRV"});
    resetLookups();
}

void AddressesTest::specialLoopback()
{
    QCOMPARE(specialLoopbackAddress(0), QHostAddress(text("127.42.42.1")));
    QCOMPARE(specialLoopbackAddress(254), QHostAddress(text("127.42.42.255")));
    QVERIFY(specialLoopbackAddress(255).isNull());
    QVERIFY(specialLoopbackAddress(std::numeric_limits<int>::max()).isNull());
    QVERIFY(isSpecialLoopbackAddress(specialLoopbackAddress(41)));
    QVERIFY(!isSpecialLoopbackAddress(QHostAddress(text("127.42.4.1"))));
    QVERIFY(isSpecialLoopbackAddress(text("127.42.42.x")));
    const QString mapped = text("::ffff:127.42.42.1");
    QVERIFY(!isSpecialLoopbackAddress(mapped) && !isSpecialLoopbackAddress(QHostAddress(mapped)));
}

void AddressesTest::addressTexts()
{
    for (const char* address : {"10.0.0.1", " 10.0.0.1 ", "::1", "fe80::1%lo"}) {
        QVERIFY2(!parseAddress(text(address)).isNull(), address);
    }
    for (const char* name : {"", "10", "127.1", "010.0.0.1", "0x7f.1", "10.0.0.256", "node"}) {
        QVERIFY2(parseAddress(text(name)).isNull(), name);
    }
}

void AddressesTest::looksUp_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("canonical");
    QTest::addColumn<QList<QHostAddress>>("addresses");

    QTest::newRow("alias") << text("nodeb") << text("nodeb.cluster")
                           << addressList("10.0.0.7 fd00::7");
    QTest::newRow("two equal lines") << text("twice") << text("twice") << addressList("10.0.0.3");
    QTest::newRow("address with a name")
        << text("10.0.0.7") << text("many") << addressList("10.0.0.7");
    QTest::newRow("IPv6 address with a name")
        << text("fd00::7") << text("nodeb.cluster") << addressList("fd00::7");
    QTest::newRow("address without a name")
        << text("10.0.0.99") << text("10.0.0.99") << addressList("10.0.0.99");
    QTest::newRow("unknown name") << text("nobody") << text("nobody") << addressList("");
    QTest::newRow("nothing") << text("") << text("") << addressList("");
    QTest::newRow("not even a name") << text("a b\n") << text("a b\n") << addressList("");
}

void AddressesTest::looksUp()
{
    QFETCH(QString, name);
    const QHostInfo info = lookUpHost(name);
    QTEST(info.hostName(), "canonical");
    QFETCH(QList<QHostAddress>, addresses);
    // The order among the families is the resolver's own (RFC 6724).
    const QList<QHostAddress> found = info.addresses();
    QCOMPARE(found.size(), addresses.size());
    for (const QHostAddress& address : addresses) {
        QVERIFY(found.contains(address));
    }
}

void AddressesTest::loopbackAddresses()
{
    for (const QHostAddress& address :
         addressList("127.0.0.1 127.255.255.254 ::1 ::ffff:127.1.2.3 ::ffff:127.42.42.1")) {
        QVERIFY2(isLoopback(address), qPrintable(address.toString()));
    }
    for (const QHostAddress& address : addressList("127.42.42.3 ::2 ::ffff:10.0.0.1 fe80::1 "
                                                   "128.0.0.1 126.255.255.255 ::ffff:128.0.0.1")) {
        QVERIFY2(!isLoopback(address), qPrintable(address.toString()));
    }
    QVERIFY(!isLoopback(QHostAddress()));
}

void AddressesTest::loopbackTexts_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("loopback");
    QTest::addColumn<int>("count");

    for (const char* name : {"localhost", "127.0.1.1", "127.nonsense", "::1", "::ffff:127.0.0.1",
                             "::ffff:127.42.42.1"}) {
        QTest::newRow(name) << text(name) << true << 0;
    }
    QTest::newRow("special") << text("127.42.42.3") << false << 0;
    QTest::newRow("special text") << text("127.42.42.") << false << 0;
    QTest::newRow("other letter case") << text("LOCALHOST") << true << 1;
    QTest::newRow("name of a special address") << text("special") << false << 1;
    QTest::newRow("own name") << text("self") << true << 1;
    QTest::newRow("address in other words") << text("0:0::1") << true << 1;
    QTest::newRow("unknown") << text("nobody") << false << 1;
}

void AddressesTest::loopbackTexts()
{
    QFETCH(QString, name);
    QTEST(isLoopback(name), "loopback");
    QTEST(lookups(), "count");

    // The same of a result that is there already, without another look-up.
    const QHostInfo info = lookUpHost(name);
    const int before = lookups();
    QTEST(isLoopback(info), "loopback");
    QCOMPARE(lookups(), before);
}

void AddressesTest::sameAddress()
{
    const auto same = [](const char* one, const char* other) {
        return isSameHost(QHostAddress(text(one)), QHostAddress(text(other)));
    };
    QVERIFY(same("127.0.0.1", "::1"));
    QVERIFY(same("127.5.6.7", "::ffff:127.0.0.1"));
    QVERIFY(same("127.42.42.1", "127.42.42.1"));
    QVERIFY(!same("127.42.42.1", "127.0.0.1"));
    QVERIFY(!same("::ffff:10.0.0.1", "10.0.0.1"));
}

void AddressesTest::sameLists_data()
{
    QTest::addColumn<QStringList>("list1");
    QTest::addColumn<QStringList>("list2");
    QTest::addColumn<bool>("same");

    QTest::newRow("loopback alone") << list("127.0.0.1") << list("127.0.0.1") << false;
    QTest::newRow("common address")
        << list("::1 10.1.1.1 10.1.1.2") << list("127.0.0.1 10.1.1.2") << true;
    QTest::newRow("special") << list("127.42.42.1") << list("127.42.42.1") << true;
    QTest::newRow("nothing in common") << list("10.1.1.1") << list("10.1.1.2") << false;
    QTest::newRow("one empty") << list("10.1.1.1") << list("") << false;
}

void AddressesTest::sameLists()
{
    QFETCH(QStringList, list1);
    QFETCH(QStringList, list2);
    QFETCH(bool, same);
    const auto addresses = [](const QStringList& texts) {
        return resolveHostNamesAndAddresses(texts);
    };
    QCOMPARE(isSameHost(list1, list2), same);
    QCOMPARE(isSameHost(addresses(list1), list2), same);
    QCOMPARE(isSameHost(addresses(list1), addresses(list2)), same);

    QVERIFY(isSameHost(list("nodeA 10.1.1.1"), list("10.1.1.1")));
    QVERIFY(!isSameHost(list("NodeA"), list("nodea")));
    QVERIFY(!isSameHost(list("localhost"), list("localhost")));
    QVERIFY(!isSameHost(addressList("10.0.0.7"), list("nodeb")));
}

void AddressesTest::sameNames_data()
{
    QTest::addColumn<QString>("name1");
    QTest::addColumn<QString>("name2");
    QTest::addColumn<bool>("same");
    QTest::addColumn<int>("count");

    QTest::newRow("equal texts") << text("nobody") << text("nobody") << true << 0;
    QTest::newRow("loopback") << text("localhost") << text("127.0.0.1") << true << 0;
    QTest::newRow("aliases") << text("nodeb") << text("nodeb-alias") << true << 3;
    QTest::newRow("unknown") << text("nobody") << text("noone") << false << 3;
    QTest::newRow("loopback in common only") << text("many") << text("localhost") << true << 1;
    QTest::newRow("the second alone is loopback")
        << text("nodeb") << text("localhost") << false << 3;
}

void AddressesTest::sameNames()
{
    QFETCH(QString, name1);
    QFETCH(QString, name2);
    QTEST(isSameHost(name1, name2), "same");
    QTEST(lookups(), "count");
}

void AddressesTest::resolves()
{
    QCOMPARE(
        mergeAddressLists(addressList("1.1.1.1 2.2.2.2"), addressList("2.2.2.2 3.3.3.3 3.3.3.3")),
        addressList("1.1.1.1 2.2.2.2 3.3.3.3 3.3.3.3"));
    QCOMPARE(resolveHostNamesAndAddresses(list("10.0.0.2 10.0.0.1 10.0.0.2")),
             addressList("10.0.0.2 10.0.0.1"));
    QCOMPARE(resolveHostNamesAndAddresses(QStringList()), addressList(""));
    QCOMPARE(lookups(), 0);
    QCOMPARE(resolveHostNamesAndAddresses(list("self nodeb-alias nobody 10.0.0.1")),
             addressList("127.0.1.1 10.0.0.7 10.0.0.1"));
    QCOMPARE(lookedUpNames, list("nodeb-alias nobody self"));
    QCOMPARE(hostAddresses(text("many")), addressList("10.0.0.7 2001:db8::5"));
    QCOMPARE(hostAddresses(text("nobody")), addressList(""));
}

void AddressesTest::namesAndAddresses()
{
    const QStringList namesFirst = list("nodeb nodeb.cluster 10.0.0.7 fd00::7");
    const QStringList addressesFirst = list("10.0.0.7 fd00::7 nodeb nodeb.cluster");
    QCOMPARE(hostNameAndAddresses(text("nodeb")), namesFirst);
    QCOMPARE(lookups(), 1);
    QCOMPARE(hostNameAndAddresses(text("nobody")), list("nobody"));
    QCOMPARE(hostNameAndAddresses(text("self")), list("self"));
    qputenv("ZORV_FORCE_IP_HOSTNAME", "1");
    discardEnvCache();
    QCOMPARE(hostNameAndAddresses(text("nodeb")), addressesFirst);
    qputenv("ZORV_FORCE_IP_HOSTNAME", "off");
    discardEnvCache();
    QCOMPARE(hostNameAndAddresses(text("nodeb")), namesFirst);
    sc_setHasBluegeneNodes(true);
    const QStringList onBluegene = hostNameAndAddresses(text("nodeb"));
    sc_setHasBluegeneNodes(false);
    QCOMPARE(onBluegene, addressesFirst);
}

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::makeWritable(QStringLiteral("/etc"));
    Namespace::setHosts("nodea", hostsFile);
    AddressesTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_addresses.moc"
