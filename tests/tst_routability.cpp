// The order in which a host's addresses are tried, with interfaces of the
// test's own.

#include "common/compatibility_simple/routability.h"
#include "common/env/zorvenv.h"
#include "tests/support/lookups.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"

#include <QNetworkInterface>
#include <QRandomGenerator>
#include <QTest>

class RoutabilityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void orders_data();
    void orders();
    void ordersNames();
    void isTheLongestSharedPrefix();
};

void RoutabilityTest::cleanup()
{
    qunsetenv("ZORV_NETWORK_INTERFACES");
    discardEnvCache();
}

void RoutabilityTest::orders_data()
{
    QTest::addColumn<QByteArray>("filter");
    QTest::addColumn<QList<QHostAddress>>("candidates");
    QTest::addColumn<QList<QHostAddress>>("expected");

    const auto candidates = addressList("192.168.9.9 10.1.2.77 10.9.9.9 2001:db8:1::99 127.0.0.1");
    QTest::newRow("four blocks") << QByteArray() << candidates
                                 << addressList("10.1.2.77 10.9.9.9 192.168.9.9 2001:db8:1::99 "
                                                "2001:db8:1::99 192.168.9.9 10.1.2.77 10.9.9.9 "
                                                "192.168.9.9 10.1.2.77 10.9.9.9 2001:db8:1::99 "
                                                "192.168.9.9 10.1.2.77 10.9.9.9 2001:db8:1::99");
    QTest::newRow("filter") << QByteArray("ib0") << addressList("10.1.2.77 192.168.9.9")
                            << addressList("10.1.2.77 192.168.9.9 10.1.2.77 192.168.9.9 "
                                           "192.168.9.9 10.1.2.77 10.1.2.77 192.168.9.9");
    // Shared with 10.1.2.3: 3, 3, 5 and 7 bits.
    QTest::newRow("fewer than four bits do not count")
        << QByteArray("eth0") << addressList("16.0.0.1 24.0.0.1 15.0.0.1 11.0.0.1")
        << addressList("11.0.0.1 15.0.0.1 16.0.0.1 24.0.0.1 16.0.0.1 24.0.0.1 15.0.0.1 11.0.0.1 "
                       "16.0.0.1 24.0.0.1 15.0.0.1 11.0.0.1 16.0.0.1 24.0.0.1 15.0.0.1 11.0.0.1");
    // Within the network all are equally close.
    QTest::newRow("no longer than the network's prefix, repeats stay")
        << QByteArray("eth0") << addressList("10.1.2.200 10.1.2.2 10.1.2.200")
        << addressList("10.1.2.200 10.1.2.2 10.1.2.200 10.1.2.200 10.1.2.2 10.1.2.200 "
                       "10.1.2.200 10.1.2.2 10.1.2.200 10.1.2.200 10.1.2.2 10.1.2.200");
    QTest::newRow("special loopback")
        << QByteArray() << addressList("127.42.42.5 ::1")
        << addressList("127.42.42.5 127.42.42.5 127.42.42.5 127.42.42.5");
    QTest::newRow("nothing") << QByteArray() << addressList("") << addressList("");
}

void RoutabilityTest::orders()
{
    QFETCH(QByteArray, filter);
    QFETCH(QList<QHostAddress>, candidates);
    if (!filter.isNull()) {
        qputenv("ZORV_NETWORK_INTERFACES", filter);
    }
    QTEST(sortAddressesByPotentialRoutability(candidates), "expected");
    QCOMPARE(forwardLookups + reverseLookups, 0);
}

void RoutabilityTest::ordersNames()
{
    const auto ordered = sortHostNamesAndAddressesByPotentialRoutability;
    QCOMPARE(ordered(list("10.9.9.9 192.168.9.9 10.1.2.77")),
             addressList("10.9.9.9 10.1.2.77 192.168.9.9 192.168.9.9 10.1.2.77 "
                         "192.168.9.9 10.1.2.77 192.168.9.9 10.1.2.77"));
    QCOMPARE(ordered(QStringList()), addressList(""));
    QCOMPARE(forwardLookups, 0);
    QCOMPARE(ordered(list("nodeb nodec")),
             addressList("127.0.0.1 10.0.0.7 10.1.2.8 10.1.2.8 10.1.2.8 10.1.2.8"));
    QCOMPARE(forwardLookups, 2);
}

// Against the rule as QHostAddress itself tells subnets.
void RoutabilityTest::isTheLongestSharedPrefix()
{
    QRandomGenerator random(1);
    QList<QHostAddress> candidates;
    for (int i = 0; i < 300; ++i) {
        const bool near = i % 2 == 0;
        const quint32 bits = random.generate() >> random.bounded(32);
        candidates += QHostAddress(near ? 0x0a010203u ^ bits : random.generate());
    }
    const auto best = [](const QHostAddress& candidate) {
        for (int prefix = 24; prefix > 3; --prefix) {
            if (candidate.isInSubnet(QHostAddress(0x0a010203u), prefix)) {
                return prefix;
            }
        }
        return 0;
    };
    QList<QHostAddress> expected = candidates;
    std::stable_sort(expected.begin(), expected.end(),
                     [best](const auto& a, const auto& b) { return best(a) > best(b); });
    qputenv("ZORV_NETWORK_INTERFACES", "eth0");
    discardEnvCache();
    QCOMPARE(sortAddressesByPotentialRoutability(candidates).mid(0, candidates.size()), expected);
}

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::makeWritable(text("/etc"));
    Namespace::setHosts("nodea", "10.0.0.7 nodeb\n127.0.0.1 nodeb\n10.1.2.8 nodec\n");
    for (const char* command :
         {"ip link set lo up", "ip link add eth0 type veth peer name ib0",
          "ip addr add 10.1.2.3/24 dev eth0", "ip addr add 2001:db8:1::10/64 dev eth0",
          "ip addr add 192.168.7.1/16 dev ib0"}) {
        Namespace::run(text(command));
    }
    RoutabilityTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_routability.moc"
