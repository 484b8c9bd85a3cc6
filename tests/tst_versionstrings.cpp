// Version strings and the compatibility key.

#include "common/compatibility_simple/versionstrings.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"
#include "version/hgid.h"

#include <QTest>

class VersionStringsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clearSettings({"VERSION", "RELEASE_VERSION"}); }

    void settingsComeFirst()
    {
        const char* const rows[][5] = {
            {"5.0.2", nullptr, "5.0.2", "5.0.2", "5.0$7"},
            {"5.0.2", "6.1.0", "5.0.2", "6.1.0", "5.0$7"},
            {"5.0.2", "", "5.0.2", "", "5.0$7"},
            {"", nullptr, "", "", "$7"},
        };
        for (const auto& [version, release, expected, expectedRelease, key] : rows) {
            setSetting("ZORV_VERSION", version);
            setSetting("PELK_RELEASE_VERSION", release);
            QCOMPARE(sc_version(), text(expected));
            QCOMPARE(sc_releaseVersion(), text(expectedRelease));
            QCOMPARE(sc_versionForCompatibility(7), text(key));
        }
    }

    void textsOfTheBuild()
    {
        const char* const builtIn[] = {ZORV_VERSION, ZORV_RELEASE_VERSION};
        ZORV_VERSION = "1.2.3";
        ZORV_RELEASE_VERSION = "4.5.6";
        const QStringList found = {sc_version(), sc_releaseVersion()};
        ZORV_VERSION = ZORV_RELEASE_VERSION = "";
        const QStringList foundNone = {sc_version(), sc_releaseVersion()};
        ZORV_VERSION = builtIn[0];
        ZORV_RELEASE_VERSION = builtIn[1];
        QCOMPARE(found, list("1.2.3 4.5.6"));
        QCOMPARE(foundNone, list("<unknown> <unknown>"));
    }

    void key()
    {
        // clang-format off
        const char* const rows[][2] = {
            {"4.2.1", "4.2$7"}, {"4.2.0", "4.2.0$7"}, {"4.2", "4.2$7"}, {"4.2.x", "4.2.x$7"},
            {"4.2.1-preview3", "4.2preview3$7"}, {"4.2.1-rc1-preview12-x", "4.2preview12$7"},
            {"4.2.1-Preview3", "4.2$7"}, {"4.2.1-preview", "4.2$7"}, {"4.2.20190601", "4.2$7"},
            {"4.2.1.20190601", "4.2$7"}, {"4.2.1.5", "4.2.1.5$7"}, {"4.2.release", "4.2.release$7"},
            {"4..1", "4.$7"}, {"12345", "$7"}, {"", "$7"}, {"-", "$7"},
        };
        // clang-format on
        for (const auto& [version, expected] : rows) {
            QCOMPARE(sc_versionForCompatibility_private(text(version), 7), text(expected));
        }
    }
};

QTEST_APPLESS_MAIN(VersionStringsTest)
#include "tst_versionstrings.moc"
