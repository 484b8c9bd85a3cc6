// Who this host is, with interfaces and a resolver of the test's own.

#include "common/compatibility_simple/localhost.h"
#include "common/env/zorvenv.h"
#include "tests/support/lookups.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

#include <QTest>

#include <unistd.h>

class LocalHostTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void hostName();
    void loopbackForm_data();
    void loopbackForm();
    void addresses_data();
    void addresses();
    void names_data();
    void names();
    void lookupsAreCounted();
    void thisHost();
    void fixesAddresses();
    void fixesNames();
};

void LocalHostTest::init()
{
    clearSettings({"LOCALHOST", "LOCALHOST_IPV6", "NETWORK_INTERFACES", "HOSTNAME",
                   "FORCE_IP_HOSTNAME", "FAKE_BLUEGENE", "FORCE_BGQ_SUPPORT", "BG_NODE_TYPE",
                   "BGQDRV"});
    Namespace::setHosts("nodea", "127.0.0.1 localhost\n");
    resetLookups();
}

void LocalHostTest::hostName()
{
    QCOMPARE(sc_hostname(), text("nodea"));
    qputenv("HOSTNAME", "other");
    QCOMPARE(sc_hostname(), text("nodea"));
    // An empty name is a name.
    QCOMPARE(sethostname("", 0), 0);
    QCOMPARE(sc_hostname(), text(""));
}

void LocalHostTest::loopbackForm_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<QByteArray>("ipv6");
    QTest::addColumn<QString>("form");
    QTest::addColumn<QList<QHostAddress>>("addresses");

    const QByteArray unset;
    QTest::newRow("default") << unset << unset << text("127.0.0.1") << addressList("127.0.0.1");
    QTest::newRow("IPv6") << unset << QByteArray("x") << text("::1") << addressList("::1");
    QTest::newRow("IPv6 off") << unset << QByteArray("Off") << text("127.0.0.1")
                              << addressList("127.0.0.1");
    QTest::newRow("empty setting")
        << QByteArray("") << QByteArray("1") << text("::1") << addressList("::1");
    QTest::newRow("name") << QByteArray("localhost") << QByteArray("1") << text("localhost")
                          << addressList("127.0.0.1");
    QTest::newRow("unknown name") << QByteArray("nobody") << unset << text("nobody")
                                  << addressList("");
}

void LocalHostTest::loopbackForm()
{
    QFETCH(QByteArray, setting);
    QFETCH(QByteArray, ipv6);
    if (!setting.isNull()) {
        qputenv("ZORV_LOCALHOST", setting);
    }
    if (!ipv6.isNull()) {
        qputenv("PELK_LOCALHOST_IPV6", ipv6);
    }
    QTEST(sc_localhost(), "form");
    QTEST(sc_localhostAddresses(), "addresses");
}

void LocalHostTest::addresses_data()
{
    QTest::addColumn<QByteArray>("hosts");
    QTest::addColumn<QByteArray>("filter");
    QTest::addColumn<QList<QHostAddress>>("expected");

    const QByteArray unknown = "127.0.0.1 localhost\n";
    // Of the link-local addresses (RFC 4291, 2.5.6) those in fe80::/16 alone are left out.
    const auto all = addressList("10.0.0.5 2001:db8::5 fe90::1 127.42.42.2 192.168.1.5 fd00::5");
    QTest::newRow("unknown host name") << unknown << QByteArray() << all;
    QTest::newRow("empty filter") << unknown << QByteArray("") << all;
    QTest::newRow("filter without names") << unknown << QByteArray(",") << all;
    QTest::newRow("filter") << unknown << QByteArray("ib0 , eth9")
                            << addressList("192.168.1.5 fd00::5");
    QTest::newRow("filter in the order of the interfaces")
        << unknown << QByteArray("ib0,,eth0")
        << addressList("10.0.0.5 2001:db8::5 fe90::1 192.168.1.5 fd00::5");
    QTest::newRow("blank at the start of the filter")
        << unknown << QByteArray(" ib0") << addressList("");
    QTest::newRow("filter that names none") << unknown << QByteArray("IB0") << addressList("");
    QTest::newRow("resolver first")
        << QByteArray("192.168.1.5 nodea\n10.0.0.5 nodea\n") << QByteArray("eth0,ib0")
        << addressList("192.168.1.5 10.0.0.5 2001:db8::5 fe90::1 fd00::5");
    QTest::newRow("filter is not for the resolver")
        << QByteArray("192.168.1.5 nodea\n127.0.0.1 nodea\n") << QByteArray("eth0")
        << addressList("192.168.1.5 10.0.0.5 2001:db8::5 fe90::1");
}

void LocalHostTest::addresses()
{
    QFETCH(QByteArray, hosts);
    QFETCH(QByteArray, filter);
    Namespace::setHosts("nodea", hosts);
    if (!filter.isNull()) {
        qputenv("ZORV_NETWORK_INTERFACES", filter);
    }
    QTEST(localHostAddresses(), "expected");
}

void LocalHostTest::names_data()
{
    QTest::addColumn<QByteArray>("hosts");
    QTest::addColumn<QByteArray>("filter");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("with the name of an interface")
        << QByteArray("10.0.0.5 nodea-eth0\n10.0.0.5 nodea.cluster nodea\n") << QByteArray("eth0")
        << list("nodea nodea.cluster 10.0.0.5 nodea-eth0 2001:db8::5 fe90::1%eth0");
    QTest::newRow("IPv6 addresses add no name")
        << QByteArray("2001:db8::5 nodea-v6\n") << QByteArray("eth0")
        << list("nodea 10.0.0.5 2001:db8::5 fe90::1%eth0");
    QTest::newRow("loopback name") << QByteArray("127.0.1.1 nodea.cluster nodea\n")
                                   << QByteArray("ib0") << list("nodea 192.168.1.5 fd00::5");
}

void LocalHostTest::names()
{
    QFETCH(QByteArray, hosts);
    QFETCH(QByteArray, filter);
    Namespace::setHosts("nodea", hosts);
    qputenv("ZORV_NETWORK_INTERFACES", filter);
    QTEST(localHostNamesAndAddresses(), "expected");
}

void LocalHostTest::lookupsAreCounted()
{
    Namespace::setHosts("nodea", "10.0.0.5 nodea.cluster nodea\n");
    localHostNamesAndAddresses();
    QCOMPARE(forwardLookups, 1);
    // eth0, ib0 and the special address of lo.
    QCOMPARE(reverseLookups, 3);
    qputenv("ZORV_NETWORK_INTERFACES", "eth0");
    discardEnvCache();
    localHostNamesAndAddresses();
    QCOMPARE(forwardLookups, 2);
    QCOMPARE(reverseLookups, 4);
}

void LocalHostTest::thisHost()
{
    QVERIFY(isThisHost(text("::1")));
    QVERIFY(isThisHost(QHostAddress(text("127.9.9.9"))));
    QCOMPARE(forwardLookups + reverseLookups, 0);
    Namespace::setHosts("nodea", "10.0.0.5 nodea.cluster nodea\n10.0.0.5 alias\n");
    for (const char* name : {"nodea", "nodea.cluster", "10.0.0.5", "fd00::5", "127.42.42.2"}) {
        QVERIFY2(isThisHost(text(name)), name);
    }
    for (const char* name : {"NODEA", "alias", "10.0.0.6", "127.42.42.3"}) {
        QVERIFY2(!isThisHost(text(name)), name);
    }
    QVERIFY(isThisHost(QHostAddress(text("192.168.1.5"))));
    QVERIFY(!isThisHost(QHostAddress(text("192.168.1.6"))));
}

void LocalHostTest::fixesAddresses()
{
    const auto fixed = [](const char* words) { return fixLocalHost(addressList(words)); };
    QCOMPARE(fixed("127.0.0.1 10.9.9.9"), addressList("10.9.9.9"));
    QCOMPARE(fixed(""), addressList("127.0.0.1"));
    QCOMPARE(fixed("10.0.0.5"), addressList("10.0.0.5 127.0.0.1"));
    QCOMPARE(fixed("127.0.0.1 10.0.0.5"), addressList("127.0.0.1 10.0.0.5"));
    qputenv("ZORV_LOCALHOST_IPV6", "1");
    discardEnvCache();
    QCOMPARE(fixed(""), addressList("::1"));
}

void LocalHostTest::fixesNames()
{
    Namespace::setHosts("nodea", "10.0.0.5 nodea\n127.0.0.1 localname\n");
    QCOMPARE(fixLocalHost(list("localhost localname nodec")), list("nodec"));
    QCOMPARE(fixLocalHost(QStringList()), list("127.0.0.1"));
    QCOMPARE(fixLocalHost(list("nodea")), list("nodea 127.0.0.1"));
    QCOMPARE(fixLocalHost(list("127.0.0.1 nodea")), list("127.0.0.1 nodea"));
    Namespace::setHosts("nodea", "127.0.1.1 nodea\n");
    QCOMPARE(fixLocalHost(list("nodea")), QStringList());
}

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::makeWritable(text("/etc"));
    for (const char* command :
         {"ip link set lo up", "ip addr add 127.42.42.2/8 dev lo",
          "ip link add ib0 type veth peer name eth0", "ip addr add 192.168.1.5/24 dev ib0",
          "ip addr add fd00::5/64 dev ib0", "ip addr add 10.0.0.5/24 dev eth0",
          "ip addr add fe80::1/64 dev eth0", "ip addr add fe90::1/64 dev eth0",
          "ip addr add 2001:db8::5/64 dev eth0"}) {
        Namespace::run(text(command));
    }
    LocalHostTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_localhost.moc"
