// Settings: precedence of the three prefixes, kinds and per-site caches.

#include "tests/support/settings.h"

#include <QTest>

using namespace Qt::StringLiterals;

class ZorvEnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings({"TST"}); }

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
            init();
            const char* expected = none;
            for (const auto& [name, value] : {std::pair("TALVORA_TST", row.talvora),
                                              {"PELK_TST", row.pelk},
                                              {"ZORV_TST", row.zorv}}) {
                if (value) {
                    qputenv(name, value);
                    expected = value;
                }
            }
            const QString inUse = u"default"_s;
            for (const QString& value : {envString("TST"), envPath("TST")}) {
                QCOMPARE(value, QString::fromUtf8(expected));
                QCOMPARE(value.isNull(), !expected);
            }
            QCOMPARE(envPath("TST", inUse), expected ? QString::fromUtf8(expected) : inUse);
            QVERIFY2(envFlag("TST") == row.on, expected);
            QVERIFY2(envIsSet("TST", false) == (expected != none), expected);
            QVERIFY(envIsSet("TST", true));
        }
    }

    void caches()
    {
        const auto one = [] { return envString("TST"); };
        const auto other = [] { return envString("TST"); };
        qputenv("PELK_TST", "first");
        QCOMPARE(one(), u"first"_s);
        // Not even a variable that comes first is looked for again.
        qputenv("ZORV_TST", "second");
        QCOMPARE(one(), u"first"_s);
        QCOMPARE(other(), u"second"_s);
        discardEnvCache();
        QCOMPARE(one(), u"second"_s);
        qputenv("ZORV_TST", "third");
        disableEnvCaching();
        QCOMPARE(one(), u"third"_s);
        qputenv("ZORV_TST", "fourth");
        enableEnvCaching();
        QCOMPARE(one(), u"third"_s);
    }

    void defaultIsTheCallersOfTheMoment()
    {
        const auto path = [](const QString& fallback) { return envPath("TST", fallback); };
        QCOMPARE(path(u"one"_s), u"one"_s);
        qputenv("TALVORA_TST", "value");
        QCOMPARE(path(u"two"_s), u"two"_s);
    }
};

QTEST_APPLESS_MAIN(ZorvEnvTest)
#include "tst_zorvenv.moc"
