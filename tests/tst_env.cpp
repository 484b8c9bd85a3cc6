#include "common/env/zorvenv.h"
#include "tests/support/helpers.h"

#include <QTest>

using namespace Qt::StringLiterals;

class EnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings(); }

    void firstVariableThatIsSetCounts()
    {
        QVERIFY(envString("TST").isNull() && envPath("TST").isNull());
        QCOMPARE(envPath("TST", u"default"_s), u"default"_s);
        QVERIFY(!envFlag("TST") && !envIsSet("TST", false));
        setSetting("TALVORA_TST", "\xc3\xa9");
        QCOMPARE(envString("TST"), u"é"_s);
        setSetting("PELK_TST", "no");
        QCOMPARE(envPath("TST", u"default"_s), u"no"_s);
        QVERIFY(!envFlag("TST") && envIsSet("TST", false));
        setSetting("ZORV_TST", "");
        QCOMPARE(envString("TST"), u""_s);
        QVERIFY(!envString("TST").isNull() && envFlag("TST") && envIsSet("TST", false));
    }

    void certainWordsTurnASwitchOff()
    {
        for (const char* word : {"No", "OFF", "0", "disable", "Disabled"}) {
            setSetting("ZORV_TST", word);
            QVERIFY2(!envFlag("TST"), word);
        }
        for (const char* word : {"00", "false", "off "}) {
            setSetting("ZORV_TST", word);
            QVERIFY2(envFlag("TST"), word);
        }
    }

    void siteKeepsItsAnswerWhileCachingIsOn()
    {
        const auto site = [] { return envString("TST"); };
        qputenv("ZORV_TST", "first");
        QCOMPARE(site(), u"first"_s);
        qputenv("ZORV_TST", "second");
        QCOMPARE(site(), u"first"_s);
        discardEnvCache();
        QCOMPARE(site(), u"second"_s);
        disableEnvCaching();
        qputenv("ZORV_TST", "third");
        QCOMPARE(site(), u"third"_s);
        enableEnvCaching();
        qputenv("ZORV_TST", "fourth");
        QCOMPARE(site(), u"third"_s);
    }
};

QTEST_GUILESS_MAIN(EnvTest)
#include "tst_env.moc"
