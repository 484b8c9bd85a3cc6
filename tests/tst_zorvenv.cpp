// Settings: precedence of the three prefixes, kinds and per-site caches.

#include "common/env/zorvenv.h"

#include <QTest>

#include <cstdlib>

// The link replaces getenv() by __wrap_getenv(), so that reads can be counted.
extern "C" char* __real_getenv(const char* name);
extern "C" char* __wrap_getenv(const char* name);

static int readCount = 0;
static const char* vanishing = nullptr;

char* __wrap_getenv(const char* name)
{
    ++readCount;
    char* value = __real_getenv(name);
    if (vanishing && qstrcmp(name, vanishing) == 0) {
        unsetenv(name);
    }
    return value;
}

class ZorvEnvTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void firstSetPrefixWins_data();
    void firstSetPrefixWins();
    void presence_data();
    void presence();
    void cachesPerSite();
    void controls();
    void variableThatVanishes();
    void defaultIsTheCallersOfTheMoment();
};

void ZorvEnvTest::init()
{
    for (const char* name : {"ZORV_TST", "PELK_TST", "TALVORA_TST", "PELK_TST_FALLBACK"}) {
        qunsetenv(name);
    }
    vanishing = nullptr;
    discardEnvCache();
}

void ZorvEnvTest::firstSetPrefixWins_data()
{
    QTest::addColumn<QByteArray>("zorv");
    QTest::addColumn<QByteArray>("pelk");
    QTest::addColumn<QByteArray>("talvora");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("on");

    const QByteArray unset;
    const QByteArray empty("");
    QTest::newRow("none") << unset << unset << unset << QString() << false;
    QTest::newRow("empty hides the others")
        << empty << QByteArray("no") << QByteArray("x") << QStringLiteral("") << true;
    QTest::newRow("second hides the third")
        << unset << QByteArray("false") << QByteArray("no") << QStringLiteral("false") << true;
    QTest::newRow("third") << unset << unset << QByteArray("Disabled") << QStringLiteral("Disabled")
                           << false;
    for (const char* word : {"no", "OFF", "Disable", "0"}) {
        QTest::newRow(word) << QByteArray(word) << unset << unset << QString::fromLatin1(word)
                            << false;
    }
    for (const char* word : {"off ", "00", "false", "n", "\xc3\xa9"}) {
        QTest::newRow(word) << QByteArray(word) << unset << unset << QString::fromUtf8(word)
                            << true;
    }
}

void ZorvEnvTest::firstSetPrefixWins()
{
    const char* names[] = {"ZORV_TST", "PELK_TST", "TALVORA_TST"};
    QFETCH(QByteArray, zorv);
    QFETCH(QByteArray, pelk);
    QFETCH(QByteArray, talvora);
    QFETCH(QString, text);
    QFETCH(bool, on);

    const QByteArray values[] = {zorv, pelk, talvora};
    for (int i = 0; i < 3; ++i) {
        if (!values[i].isNull()) {
            qputenv(names[i], values[i]);
        }
    }
    const QString inUse = QStringLiteral("default");
    for (const QString& value : {envString("TST"), envPath("TST")}) {
        QCOMPARE(value, text);
        QCOMPARE(value.isNull(), text.isNull());
    }
    QCOMPARE(envPath("TST", inUse), text.isNull() ? inUse : text);
    QCOMPARE(envFlag("TST"), on);
    QCOMPARE(ZorvEnv::uncachedValue("TST") != nullptr, !text.isNull());
}

void ZorvEnvTest::presence_data()
{
    QTest::addColumn<bool>("set");
    QTest::addColumn<bool>("fallback");
    QTest::addColumn<bool>("expected");
    QTest::newRow("neither") << false << false << false;
    QTest::newRow("the fallback alone, whatever its value") << false << true << true;
    QTest::newRow("set to an off-word") << true << false << true;
}

void ZorvEnvTest::presence()
{
    QFETCH(bool, set);
    QFETCH(bool, fallback);
    if (set) {
        qputenv("TALVORA_TST", "0");
    }
    if (fallback) {
        qputenv("PELK_TST_FALLBACK", "0");
    }
    QTEST(envIsSet("TST", ZorvEnv::uncachedValue("TST_FALLBACK") != nullptr), "expected");
}

void ZorvEnvTest::cachesPerSite()
{
    const auto one = [] { return envString("TST"); };
    const auto other = [] { return envString("TST"); };
    qputenv("PELK_TST", "first");
    readCount = 0;
    QCOMPARE(one(), QStringLiteral("first"));
    // Is the first set, is the second, what is the second.
    QCOMPARE(readCount, 3);
    qputenv("PELK_TST", "second");
    QCOMPARE(one(), QStringLiteral("first"));
    QCOMPARE(readCount, 3);
    QCOMPARE(other(), QStringLiteral("second"));
}

void ZorvEnvTest::controls()
{
    const auto site = [] { return envString("TST"); };
    qputenv("ZORV_TST", "first");
    QCOMPARE(site(), QStringLiteral("first"));
    qputenv("ZORV_TST", "second");
    discardEnvCache();
    QCOMPARE(site(), QStringLiteral("second"));
    qputenv("ZORV_TST", "third");
    disableEnvCaching();
    QCOMPARE(site(), QStringLiteral("third"));
    qputenv("ZORV_TST", "fourth");
    enableEnvCaching();
    QCOMPARE(site(), QStringLiteral("third"));
}

void ZorvEnvTest::variableThatVanishes()
{
    const auto path = [] { return envPath("TST", QStringLiteral("default")); };
    qputenv("ZORV_TST", "value");
    vanishing = "ZORV_TST";
    QCOMPARE(path(), QStringLiteral("default"));
}

void ZorvEnvTest::defaultIsTheCallersOfTheMoment()
{
    const auto path = [](const QString& fallback) { return envPath("TST", fallback); };
    QCOMPARE(path(QStringLiteral("one")), QStringLiteral("one"));
    readCount = 0;
    QCOMPARE(path(QStringLiteral("two")), QStringLiteral("two"));
    QCOMPARE(readCount, 0);
}

QTEST_APPLESS_MAIN(ZorvEnvTest)
#include "tst_zorvenv.moc"
