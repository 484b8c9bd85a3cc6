// The installation's directories, the build's identity and Qt's configuration.

#include "common/talvoraglobals.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"
#include "version/hgid.h"

#include <QCoreApplication>
#include <QTest>

#include <cstdlib>

using namespace Qt::StringLiterals;

class TalvoraGlobalsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void layouts()
    {
        clearSettings({"BG_TMPDIR"});
        TalvoraGlobals* globals = TalvoraGlobals::instance();
        QCOMPARE(globals->bluegeneTmpDir(), u"/tmp"_s);
        const auto paths = [&] {
            return bracketed({globals->installPath(), globals->binPath(), globals->libPath(),
                              globals->libexecPath(), globals->resourcesPath(),
                              globals->iconsPath(), globals->metricsPath()});
        };
        globals->setLocationsAsFlatPath(u"/f"_s);
        QCOMPARE(paths(), u"</f></f></f></f></f></f>null"_s);
        globals->setLocationsFromInstallPath(u"/no/x"_s);
        QCOMPARE(paths(), u"</no/x></no/x/bin></no/x/lib></no/x/libexec></no/x/resource>"
                          "</no/x/icons></no/x/pelk/metrics>"_s);
        // The metrics stay where they are.
        globals->setLocationsAsFlatPath(u"/f"_s);
        QCOMPARE(paths(), u"</f></f></f></f></f></f></no/x/pelk/metrics>"_s);
        globals->initPaths();
        QCOMPARE(globals->installPath(), QCoreApplication::applicationDirPath() + u"/.."_s);
        QCOMPARE(globals->localConfigDir(), u".talvora"_s);
    }

    void identity()
    {
        QVERIFY(*HGID);
        QCOMPARE(QFile(u":/qt/etc/qt.conf"_s).size(), 236);
    }
};

int main(int argc, char** argv)
{
    // Registered before the instance is made, so called after it is gone.
    atexit([] { TalvoraGlobals::instance() ? abort() : void(); });
    QCoreApplication app(argc, argv);
    TalvoraGlobalsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_talvoraglobals.moc"
