#include "common/env/zorvenv.h"
#include "tests/support/settings.h"

#include <QTest>

using namespace Qt::StringLiterals;

class EnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings({"TST"}); }

    void firstVariableThatIsSetCounts_data()
    {
        QTest::addColumn<QByteArray>("zorv");
        QTest::addColumn<QByteArray>("pelk");
        QTest::addColumn<QByteArray>("talvora");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("on");
        const QByteArray unset;
        QTest::newRow("none is set") << unset << unset << unset << QString() << false;
        QTest::newRow("ZORV_ before the others")
            << QByteArray("a") << QByteArray("off") << QByteArray("no") << u"a"_s << true;
        QTest::newRow("empty is set and on")
            << QByteArray("") << QByteArray("no") << QByteArray("x") << u""_s << true;
        QTest::newRow("PELK_ before TALVORA_")
            << unset << QByteArray("no") << QByteArray("x") << u"no"_s << false;
        QTest::newRow("TALVORA_ alone")
            << unset << unset << QByteArray("Disabled") << u"Disabled"_s << false;
        const auto addZorvRow = [&unset](const char* value, bool on) {
            QTest::newRow(value) << QByteArray(value) << unset << unset << QString::fromUtf8(value)
                                 << on;
        };
        for (const char* value : {"OFF", "0", "disable"}) {
            addZorvRow(value, false);
        }
        for (const char* value : {"00", "false", "off ", "\xc3\xa9"}) {
            addZorvRow(value, true);
        }
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

    // The variables stand for the first, the second and the third read of a site.
    void siteKeepsItsAnswerWhileCachingIsOn_data()
    {
        QTest::addColumn<QByteArray>("variable");
        for (const char* variable : {"ZORV_TST", "PELK_TST", "TALVORA_TST"}) {
            QTest::newRow(variable) << QByteArray(variable);
        }
    }

    void siteKeepsItsAnswerWhileCachingIsOn()
    {
        QFETCH(QByteArray, variable);
        const auto site = [] { return envString("TST"); };
        setSetting(variable.constData(), "first");
        QCOMPARE(site(), u"first"_s);
        qputenv(variable.constData(), "second");
        QCOMPARE(site(), u"first"_s);
        discardEnvCache();
        QCOMPARE(site(), u"second"_s);
        qunsetenv(variable.constData());
        QCOMPARE(site(), u"second"_s);
        disableEnvCaching();
        QVERIFY(site().isNull());
        enableEnvCaching();
        qputenv(variable.constData(), "third");
        QVERIFY(site().isNull());
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
