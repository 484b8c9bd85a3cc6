// Version strings and the compatibility key.

#include "common/compatibility_simple/versionstrings.h"
#include "tests/support/settings.h"
#include "version/hgid.h"

#include <QTest>

namespace {

QStringList list(std::initializer_list<const char*> latin1Texts)
{
    QStringList texts;
    for (const char* latin1 : latin1Texts) {
        texts += QString::fromLatin1(latin1);
    }
    return texts;
}

} // namespace

class VersionStringsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void settingsComeFirst_data();
    void settingsComeFirst();
    void textsOfTheBuild_data();
    void textsOfTheBuild();
    void key_data();
    void key();
};

void VersionStringsTest::init()
{
    clearSettings({"VERSION", "RELEASE_VERSION"});
}

void VersionStringsTest::settingsComeFirst_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QByteArray>("release");
    QTest::addColumn<QStringList>("expected");

    const QByteArray given("5.0.2");
    QTest::newRow("version") << given << QByteArray() << list({"5.0.2", "5.0.2", "5.0$7"});
    QTest::newRow("both") << given << QByteArray("6.1.0") << list({"5.0.2", "6.1.0", "5.0$7"});
    QTest::newRow("empty release") << given << QByteArray("") << list({"5.0.2", "", "5.0$7"});
    QTest::newRow("empty version") << QByteArray("") << QByteArray() << list({"", "", "$7"});
}

void VersionStringsTest::settingsComeFirst()
{
    QFETCH(QByteArray, version);
    QFETCH(QByteArray, release);
    qputenv("ZORV_VERSION", version);
    if (!release.isNull()) {
        qputenv("PELK_RELEASE_VERSION", release);
    }
    const QStringList found = {sc_version(), sc_releaseVersion(), sc_versionForCompatibility(7)};
    QTEST(found, "expected");
}

void VersionStringsTest::textsOfTheBuild_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QByteArray>("release");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("two") << QByteArray("1.2.3") << QByteArray("4.5.6") << list({"1.2.3", "4.5.6"});
    QTest::newRow("none") << QByteArray("") << QByteArray("") << list({"<unknown>", "<unknown>"});
}

void VersionStringsTest::textsOfTheBuild()
{
    QFETCH(QByteArray, version);
    QFETCH(QByteArray, release);
    const char* const builtIn[] = {ZORV_VERSION, ZORV_RELEASE_VERSION};
    ZORV_VERSION = version.constData();
    ZORV_RELEASE_VERSION = release.constData();
    const QStringList found = {sc_version(), sc_releaseVersion()};
    ZORV_VERSION = builtIn[0];
    ZORV_RELEASE_VERSION = builtIn[1];
    QTEST(found, "expected");
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
