#include "common/env/zorvenv.h"
#include "tests/support/settings.h"

#include <QTest>

using namespace Qt::StringLiterals;

class EnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings(); }

    void firstVariableThatIsSetCounts_data()
    {
        QTest::addColumn<QByteArray>("zorv");
        QTest::addColumn<QByteArray>("pelk");
        QTest::addColumn<QByteArray>("talvora");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("on");
        const auto add = [](const char* name, const char* zorv, const char* pelk,
                            const char* talvora, const QString& text, bool on) {
            QTest::newRow(name) << QByteArray(zorv) << QByteArray(pelk) << QByteArray(talvora)
                                << text << on;
        };
        add("none is set", nullptr, nullptr, nullptr, {}, false);
        add("ZORV_ before the others", "a", "off", "no", u"a"_s, true);
        add("empty is set and on", "", "no", "x", u""_s, true);
        add("PELK_ before TALVORA_", nullptr, "no", "x", u"no"_s, false);
        add("TALVORA_ alone", nullptr, nullptr, "\xc3\xa9", u"é"_s, true);
    }

    void firstVariableThatIsSetCounts()
    {
        QFETCH(QByteArray, zorv);
        QFETCH(QByteArray, pelk);
        QFETCH(QByteArray, talvora);
        QFETCH(QString, text);
        setSetting("ZORV_TST", zorv);
        setSetting("PELK_TST", pelk);
        setSetting("TALVORA_TST", talvora);
        QCOMPARE(envString("TST"), text);
        QCOMPARE(envString("TST").isNull(), text.isNull());
        QCOMPARE(envPath("TST"), text);
        QCOMPARE(envPath("TST", u"default"_s), text.isNull() ? u"default"_s : text);
        QTEST(envFlag("TST"), "on");
        QCOMPARE(envIsSet("TST", false), !text.isNull());
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
        qputenv("TALVORA_TST", "last prefix");
        QCOMPARE(site(), u"last prefix"_s);
        qputenv("TALVORA_TST", "changed");
        qputenv("ZORV_TST", "first prefix");
        QCOMPARE(site(), u"last prefix"_s);
        discardEnvCache();
        QCOMPARE(site(), u"first prefix"_s);
        qunsetenv("ZORV_TST");
        QCOMPARE(site(), u"first prefix"_s);
        disableEnvCaching();
        QCOMPARE(site(), u"changed"_s);
        enableEnvCaching();
        qputenv("TALVORA_TST", "changed again");
        QCOMPARE(site(), u"changed"_s);
    }

    void absentPathHasTheDefaultOfTheMoment()
    {
        const auto site = [](const QString& path) { return envPath("TST", path); };
        QCOMPARE(site(u"/a"_s), u"/a"_s);
        QCOMPARE(site(u"/b"_s), u"/b"_s);
    }
};

QTEST_GUILESS_MAIN(EnvTest)
#include "tst_env.moc"
