#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "common/compatibility_simple/system/versionstrings.h"
#include "tests/support/helpers.h"
#include "tests/support/namespace.h"
#include "version/hgid.h"

#include <QTest>

#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// In the place of the machine's files: in /etc nothing but the loader's cache and a user, in
// /usr/bin nothing but a shell.
const char ownFiles[] = R"(set -e
    mount -t tmpfs none /mnt
    mkdir /mnt/etc /mnt/bin
    [ ! -e /etc/ld.so.cache ] || cp /etc/ld.so.cache /mnt/etc
    echo ann:x:1000:1000::/home/ann: >/mnt/etc/passwd
    cp /bin/sh /mnt/bin
    mount --bind /mnt/etc /etc
    mount --bind /mnt/bin /usr/bin)";

// Runs the function, which may fail the test, in a process of its own: some answers are
// given once in a process.
template <typename Function> void inOwnProcess(const Function& function)
{
    const pid_t child = fork();
    if (child == 0) {
        function();
        _exit(QTest::currentTestFailed() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    QCOMPARE(status, 0);
}

} // namespace

class SystemTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearSettings();
        for (const char* variable : {"BG_NODE_TYPE", "BGQDRV", "HALF"}) {
            qunsetenv(variable);
        }
    }

    void expandsPaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expanded");
        QTest::newRow("tilde and variable") << u"~/$HOME"_s << u"/home//home"_s;
        QTest::newRow("tilde and name, up to a blank") << u"~ann x/y"_s << u"/home/ann x/y"_s;
        QTest::newRow("unknown user") << u"~nobody-here/x"_s << u"~nobody-here/x"_s;
        QTest::newRow("white space around") << u" \ta b \n"_s << u"a b"_s;
        QTest::newRow("with braces, or up to the end of a word")
            << u"${H}/x ${H $H$H $HX ${HX} $NONE $Hé"_s << u"/h/x ${H /h/h $HX ${HX} $NONE $Hé"_s;
        QTest::newRow("value that looks like a replacement") << u"$R"_s << u"\\1=\\\\$&é"_s;
        QTest::newRow("value that refers to a later variable") << u"$H1"_s << u"/h"_s;
    }

    void expandsPaths()
    {
        QFETCH(QString, path);
        qputenv("HOME", "/home");
        qputenv("H1", "$H");
        qputenv("H", "/h");
        qputenv("R", "\\1=\\\\$&\xc3\xa9");
        QTEST(expandVars(path), "expanded");
        QVERIFY(containsEnvVarOrTilde(path) || expandVars(path) == path.trimmed());
        QVERIFY(!containsEnvVarOrTilde(u"a~b"_s));
    }

    void expansionEndsAtTheLongestText()
    {
        qputenv("HALF", QByteArray(8388608, 'x'));
        QCOMPARE(expandVars(u"$HALF$HALF"_s).size(), 16777216);
        QCOMPARE(expandVars(u"$HALF$HALF/"_s), u"$HALF$HALF/"_s);
    }

    void compatibilityKey_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("key");
        QTest::newRow("third number 0 stays") << u"4.2.0"_s << u"4.2.0$7"_s;
        QTest::newRow("date stamp is dropped first") << u"4.2.1.20190"_s << u"4.2$7"_s;
        QTest::newRow("four digits are no date stamp") << u"4.2.1.2019"_s << u"4.2.1.2019$7"_s;
        QTest::newRow("preview is marked") << u"4.2.1-rc1-preview12-x"_s << u"4.2preview12$7"_s;
    }

    void compatibilityKey()
    {
        QFETCH(QString, version);
        QTEST(sc_versionForCompatibility_private(version, 7), "key");
    }

    void settingsReplaceTheVersions()
    {
        QCOMPARE(sc_version(), text(ZORV_VERSION));
        QCOMPARE(sc_releaseVersion(), text(ZORV_RELEASE_VERSION));
        setSetting("ZORV_VERSION", "5.0.2");
        QCOMPARE(sc_releaseVersion(), u"5.0.2"_s);
        QCOMPARE(sc_versionForCompatibility(7), u"5.0$7"_s);
        setSetting("ZORV_RELEASE_VERSION", "");
        QCOMPARE(sc_version(), u"5.0.2"_s);
        QCOMPARE(sc_releaseVersion(), u""_s);
    }

    void byteOrderOfArchitectures()
    {
        QCOMPARE(endiannessFromArch(u"ppc64"_s), ENDIAN_BIG);
        QCOMPARE(endiannessFromArch(u"ppc64le"_s), ENDIAN_LITTLE);
        QCOMPARE(endiannessFromArch(sc_arch()), sc_localEndianness());
    }

    // Debian's file is there, and the last one that is looked for.
    void lsbReleaseOrTheFirstFileDescribesTheSystem()
    {
        const QString lsbRelease = u"/usr/bin/lsb_release"_s;
        const auto describes = [](const QString& fileName, const QByteArray& content,
                                  const QString& description) {
            QFile file(fileName);
            QVERIFY(writeFile(fileName, content));
            QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner));
            inOwnProcess([&] { QCOMPARE(sc_uname(), description); });
            QVERIFY(file.remove());
        };
        QVERIFY(writeFile(u"/etc/debian_version"_s, "8\n"));
        describes(lsbRelease, "#!/bin/sh\ntest $* = -d && echo 'Description:\t CentOS 7 \nx'\n",
                  u"CentOS 7"_s);
        describes(lsbRelease, "#!/bin/sh\necho no description\n", u"Debian GNU/Linux 8"_s);
        describes(u"/etc/centos-release"_s, "\n  CentOS 6.5 (Final) \nx 1",
                  u"CentOS 6.5 (Final)"_s);
    }

    void tellsABlueGene_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("fake");
        QTest::addColumn<bool>("node");
        QTest::addColumn<bool>("system");
        const auto add = [](const char* name, const QByteArray& variable, const QByteArray& value,
                            bool fake, bool node, bool system) {
            QTest::newRow(name) << variable << value << fake << node << system;
        };
        add("no", "NONE", {}, false, false, false);
        add("pretended", "ZORV_FAKE_BLUEGENE", "q", true, true, true);
        add("switch alone", "ZORV_FAKE_BLUEGENE", "1", true, false, false);
        add("node type", "BG_NODE_TYPE", "", false, true, true);
        add("drivers", "BGQDRV", "", false, false, true);
        add("forced", "PELK_FORCE_BGQ_SUPPORT", "1", false, false, true);
    }

    void tellsABlueGene()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, value);
        inOwnProcess([&] {
            setSetting(variable.constData(), value);
            QTEST(sc_isFakeBluegene(), "fake");
            QTEST(sc_isBluegeneQNode(), "node");
            QTEST(sc_isBluegeneQ(), "system");
            QTEST(sc_isBluegene(), "system");
        });
    }
};

int main(int argc, char** argv)
{
    if (!Namespace::enter(ownFiles)) {
        return Namespace::Skipped;
    }
    SystemTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_system.moc"
