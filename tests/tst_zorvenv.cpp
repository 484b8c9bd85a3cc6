// Settings: precedence of the three prefixes, kinds and per-site caches.

#include "tests/support/settings.h"

#include <QTest>

using namespace Qt::StringLiterals;

class ZorvEnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstSetPrefixWins()
    {
        const char* const none = nullptr;
        // clang-format off
        const struct { const char *zorv, *pelk, *talvora; bool on; } rows[] = {
            {none, none, none, false}, {"", "no", "x", true}, {none, "false", "no", true},
            {none, none, "Disabled", false}, {"no", none, "x", false}, {"OFF", none, none, false},
            {"Disable", none, none, false}, {"0", none, none, false}, {"off ", none, none, true},
            {"00", none, none, true}, {"n", none, none, true}, {"\xc3\xa9", none, none, true},
        };
        // clang-format on
        for (const auto& row : rows) {
            setSetting("ZORV_TST", row.zorv);
            setSetting("PELK_TST", row.pelk);
            setSetting("TALVORA_TST", row.talvora);
            const char* const first = row.zorv ? row.zorv : row.pelk ? row.pelk : row.talvora;
            const QString expected = QString::fromUtf8(first);
            QCOMPARE(envString("TST"), expected);
            QCOMPARE(envString("TST").isNull(), !first);
            QCOMPARE(envPath("TST"), expected);
            QCOMPARE(envPath("TST").isNull(), !first);
            QCOMPARE(envPath("TST", u"default"_s), first ? expected : u"default"_s);
            QCOMPARE(envFlag("TST"), row.on);
            QCOMPARE(envIsSet("TST", false), first != nullptr);
            QVERIFY(envIsSet("TST", true));
        }
    }

    void caches()
    {
        clearSettings({"TST"});
        const auto one = [] { return envString("TST"); };
        const auto other = [](const QString& absent) { return envPath("TST", absent); };
        // The default is the caller's of the moment.
        QCOMPARE(other(u"a"_s), u"a"_s);
        qputenv("PELK_TST", "first");
        QCOMPARE(other(u"b"_s), u"b"_s);
        QCOMPARE(one(), u"first"_s);
        // Not even a variable that comes first is looked for again.
        qputenv("ZORV_TST", "second");
        QCOMPARE(one(), u"first"_s);
        discardEnvCache();
        QCOMPARE(one(), u"second"_s);
        qputenv("ZORV_TST", "third");
        disableEnvCaching();
        QCOMPARE(one(), u"third"_s);
        qputenv("ZORV_TST", "fourth");
        enableEnvCaching();
        QCOMPARE(one(), u"third"_s);
        QCOMPARE(other(u"c"_s), u"fourth"_s);
        QCOMPARE(other(u"d"_s), u"fourth"_s);
    }
};

QTEST_APPLESS_MAIN(ZorvEnvTest)
#include "tst_zorvenv.moc"
