// The order in which a host's addresses are tried, with interfaces of the
// test's own.

#include "common/compatibility_simple/routability.h"
#include "tests/support/lookups.h"
#include "tests/support/namespace.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"

#include <QNetworkInterface>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>

class RoutabilityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void orders_data();
    void orders();
    void ordersNames();
    void isTheLongestSharedPrefix();
};

void RoutabilityTest::init()
{
    clearSettings({"NETWORK_INTERFACES"});
    resetLookups();
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
    QTest::newRow("link-local addresses count")
        << QByteArray() << addressList("10.9.9.9 fe80::99")
        << addressList("10.9.9.9 fe80::99 fe80::99 10.9.9.9 10.9.9.9 fe80::99 10.9.9.9 fe80::99");
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
    QCOMPARE(lookedUpNames, list("nodec nodeb"));
}

// Against the rule as QHostAddress itself tells subnets.
void RoutabilityTest::isTheLongestSharedPrefix()
{
    using Networks = QList<QPair<QHostAddress, int>>;
    const Networks v4 = {{QHostAddress(text("10.1.2.3")), 24}};
    const Networks v6 = {{QHostAddress(text("2001:db8:1::10")), 64},
                         {QHostAddress(text("fe80::1")), 64}};
    QRandomGenerator random(1);
    QList<QHostAddress> candidates;
    for (int i = 0; i < 300; ++i) {
        candidates += QHostAddress(0x0a010203u ^ (random.generate() >> random.bounded(32)));
        candidates += QHostAddress(random.generate());
        Q_IPV6ADDR bytes = v6.at(i % 2).first.toIPv6Address();
        for (int bit = random.bounded(128); bit < 128; ++bit) {
            bytes[bit / 8] ^= quint8(random.bounded(2) << (7 - bit % 8));
        }
        candidates += QHostAddress(bytes);
    }
    const auto best = [](const QHostAddress& candidate, const Networks& networks) {
        int longest = 0;
        for (const auto& network : networks) {
            int prefix = network.second;
            while (prefix > 3 && !candidate.isInSubnet(network.first, prefix)) {
                --prefix;
            }
            longest = qMax(longest, prefix > 3 ? prefix : 0);
        }
        return longest;
    };
    const auto sorted = [&](const Networks& networks) {
        QList<QHostAddress> result = candidates;
        std::stable_sort(result.begin(), result.end(), [&](const auto& a, const auto& b) {
            return best(a, networks) > best(b, networks);
        });
        return result;
    };
    qputenv("ZORV_NETWORK_INTERFACES", "eth0");
    const QList<QHostAddress> ordered = sortAddressesByPotentialRoutability(candidates);
    QCOMPARE(ordered.mid(0, candidates.size()), sorted(v4));
    QCOMPARE(ordered.mid(candidates.size(), candidates.size()), sorted(v6));
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
          "ip addr add fe80::1/64 dev eth0", "ip addr add 192.168.7.1/16 dev ib0"}) {
        Namespace::run(text(command));
    }
    RoutabilityTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_routability.moc"
