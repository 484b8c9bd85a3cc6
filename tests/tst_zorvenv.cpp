// Settings: precedence of the three prefixes, kinds and per-site caches.

#include "common/env/zorvenv.h"

#include <QTest>

class ZorvEnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { discardEnvCache(); }
    void firstSetPrefixWins();
};

void ZorvEnvTest::firstSetPrefixWins()
{
    const auto text = [] { return envString("TST_TEXT"); };
    QVERIFY(text().isNull());
    qputenv("TALVORA_TST_TEXT", "third");
    QVERIFY(text().isNull());
    discardEnvCache();
    QCOMPARE(text(), QStringLiteral("third"));
    qputenv("ZORV_TST_TEXT", "");
    discardEnvCache();
    QVERIFY(text().isEmpty() && !text().isNull());
}

QTEST_APPLESS_MAIN(ZorvEnvTest)
#include "tst_zorvenv.moc"
