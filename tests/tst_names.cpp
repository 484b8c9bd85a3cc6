// The build identifiers, the raw texts and the embedded resource.

#include "branding/branding.h"
#include "branding/branding_c.h"
#include "branding/filenames.h"
#include "branding/filenames_c.h"
#include "common/filenames_common_c.h"
#include "version/hgid.h"

#include <QFile>
#include <QRegularExpression>
#include <QResource>
#include <QTest>

int qInitResources_qt_conf();
int qCleanupResources_qt_conf();

class NamesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesThatTheLauncherDependsOn();
    void buildIdentifiers();
    void embeddedConfiguration();
};

void NamesTest::namesThatTheLauncherDependsOn()
{
    QCOMPARE(FileName::zorvDebugger, QStringLiteral("zorv-debugger"));
    QCOMPARE(FileName::suiteDotConfigDir, QStringLiteral(".talvora"));
    QCOMPARE(FileName::suiteEnvVarPrefix, QStringLiteral("TALVORA_"));
    QCOMPARE(QLatin1String(FileNameZorvMpirun), FileName::zorvMpirun);
    QCOMPARE(QLatin1String(FileNameSuiteExecutable), FileName::suiteExecutable);
    QCOMPARE(QLatin1String(BrandingVelmorSupport), Branding::SupportTeamName);
    QCOMPARE(Branding::SuiteIconName, QStringLiteral("talvora-kinnet"));
    QCOMPARE(Branding::OrganizationName, QStringLiteral("Velmor"));
    for (const QString& text : {Branding::SuiteName, Branding::SupportFormURL}) {
        QVERIFY2(!text.isEmpty() && !text.contains(QLatin1Char('@')), qPrintable(text));
    }
}

void NamesTest::buildIdentifiers()
{
    const auto matches = [](const char* pattern, const char* text) {
        return QRegularExpression(QRegularExpression::anchoredPattern(QLatin1String(pattern)))
            .match(QLatin1String(text))
            .hasMatch();
    };
    QVERIFY2(matches("[0-9a-f]{12}", HGID), HGID);
    QVERIFY(*HGBRANCH);
    QVERIFY2(matches("\\d+\\.\\d+\\.\\d+", ZORV_VERSION), ZORV_VERSION);
    QCOMPARE(ZORV_RELEASE_VERSION, ZORV_VERSION);
}

void NamesTest::embeddedConfiguration()
{
    const QString path = QStringLiteral(":/qt/etc/qt.conf");
    const QResource resource(path);
    QVERIFY(resource.isValid());
    QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray content = file.readAll();
    QCOMPARE(content.size(), 236);
    QVERIFY(content.startsWith("[Paths]\nDocumentation = ../doc\n"));
    QVERIFY(content.endsWith("\nDemos = ../examples\n"));
    file.close();
    QCOMPARE(qCleanupResources_qt_conf(), 1);
    QVERIFY(!QFile::exists(path));
    QCOMPARE(qInitResources_qt_conf(), 1);
    QVERIFY(QFile::exists(path));
}

QTEST_APPLESS_MAIN(NamesTest)
#include "tst_names.moc"
