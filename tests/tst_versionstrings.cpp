// Version strings and the compatibility key.

#include "common/compatibility_simple/versionstrings.h"
#include "common/env/zorvenv.h"
#include "version/hgid.h"

#include <QTest>

class VersionStringsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void settingsComeFirst();
    void withoutBuildTexts();
    void key_data();
    void key();
};

void VersionStringsTest::cleanup()
{
    qunsetenv("ZORV_VERSION");
    qunsetenv("PELK_RELEASE_VERSION");
    discardEnvCache();
}

void VersionStringsTest::settingsComeFirst()
{
    QCOMPARE(sc_version(), QString::fromLatin1(ZORV_VERSION));
    qputenv("ZORV_VERSION", "5.0.2");
    discardEnvCache();
    QCOMPARE(sc_version(), QStringLiteral("5.0.2"));
    QCOMPARE(sc_releaseVersion(), QStringLiteral("5.0.2"));
    QCOMPARE(sc_versionForCompatibility(7), QStringLiteral("5.0$7"));
    qputenv("PELK_RELEASE_VERSION", "");
    qputenv("ZORV_VERSION", "");
    discardEnvCache();
    QCOMPARE(sc_version(), QStringLiteral(""));
    QVERIFY(!sc_releaseVersion().isNull());
    QCOMPARE(sc_versionForCompatibility(7), QStringLiteral("$7"));
}

void VersionStringsTest::withoutBuildTexts()
{
    const char* const version = ZORV_VERSION;
    const char* const release = ZORV_RELEASE_VERSION;
    ZORV_VERSION = "";
    ZORV_RELEASE_VERSION = "";
    const QString unknown = QStringLiteral("<unknown>");
    const QStringList found = {sc_version(), sc_releaseVersion()};
    ZORV_VERSION = version;
    ZORV_RELEASE_VERSION = release;
    QCOMPARE(found, (QStringList{unknown, unknown}));
}

void VersionStringsTest::key_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("expected");
    const char* const rows[][2] = {
        {"4.2.1", "4.2$7"},
        {"4.2.0", "4.2.0$7"},
        {"4.2", "4.2$7"},
        {"4.2.x", "4.2.x$7"},
        {"4.2.1-preview3", "4.2preview3$7"},
        {"4.2.1-rc1-preview12-x", "4.2preview12$7"},
        {"4.2.1-Preview3", "4.2$7"},
        {"4.2.1-preview", "4.2$7"},
        {"4.2.20190601", "4.2$7"},
        {"4.2.1.20190601", "4.2$7"},
        {"4.2.1.5", "4.2.1.5$7"},
        {"4.2.release", "4.2.release$7"},
        {"4..1", "4.$7"},
        {"12345", "$7"},
        {"", "$7"},
        {"-", "$7"},
    };
    for (const auto& row : rows) {
        QTest::newRow(*row[0] ? row[0] : "empty")
            << QString::fromLatin1(row[0]) << QString::fromLatin1(row[1]);
    }
}

void VersionStringsTest::key()
{
    QFETCH(QString, version);
    QTEST(sc_versionForCompatibility_private(version, 7), "expected");
}

QTEST_APPLESS_MAIN(VersionStringsTest)
#include "tst_versionstrings.moc"
