#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "common/compatibility_simple/system/versionstrings.h"
#include "tests/support/helpers.h"
#include "tests/support/namespace.h"
#include "version/hgid.h"

#include <QTest>

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

using Environment = std::vector<const char*>;
Q_DECLARE_METATYPE(Environment)

namespace {

// In the place of the machine's files: in /etc nothing but the loader's cache and the users,
// in /usr/bin nothing but a shell.
const char ownFiles[] = R"(set -e
    mount -t tmpfs none /mnt
    mkdir -p /mnt/etc/opt /mnt/bin
    [ ! -e /etc/ld.so.cache ] || cp /etc/ld.so.cache /mnt/etc
    cp /etc/passwd /mnt/etc
    cp /bin/sh /mnt/bin
    mount --bind /mnt/etc /etc
    mount --bind /mnt/bin /usr/bin)";

// Entries need not hold an equals sign.
QString expandedIn(Environment environment, const QString& path)
{
    char** const previous = environ;
    environment.push_back(nullptr);
    environ = const_cast<char**>(environment.data());
    QString expanded = expandVars(path);
    environ = previous;
    return expanded;
}

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
        qunsetenv("BG_NODE_TYPE");
        qunsetenv("BGQDRV");
    }

    void expandsPaths_data()
    {
        QTest::addColumn<Environment>("environment");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expanded");
        const auto row = [](const char* name, const Environment& environment, const char* path,
                            const QByteArray& expanded) {
            QTest::newRow(name) << environment << text(path) << QString::fromUtf8(expanded);
        };
        row("tilde and variable", {"HOME=/home"}, "~/$HOME", "/home//home");
        row("tilde and name, up to a blank", {}, "~root x/y",
            getpwnam("root")->pw_dir + QByteArray(" x/y"));
        row("unknown user", {}, "~nobody-here/x", "~nobody-here/x");
        row("white space around", {}, " \ta b \n", "a b");
        row("with braces, or up to the end of a word", {"H=/h"}, "${H}/x ${H $H$H $HX ${HX} $NONE",
            "/h/x ${H /h/h $HX ${HX} $NONE");
        row("letters of every script are in words", {"H=/h"},
            "$H\xc3\xa9 $H\xf0\x9d\x94\xb8 $H\xe2\x82\xac",
            "$H\xc3\xa9 $H\xf0\x9d\x94\xb8 /h\xe2\x82\xac");
        row("value that looks like a replacement", {"H=\\1=\\\\$&\xc3\xa9"}, "$H",
            "\\1=\\\\$&\xc3\xa9");
        row("value that refers to a later variable", {"A=$B", "B=b"}, "$A", "b");
        row("entry without an equals sign", {"A", "B=b"}, "$A $B", "$A b");
        row("name that is no valid pattern", {"A(=x", "B=b"}, "$A( $B", "$A( b");
        row("name that is a pattern", {"A.C=\\1"}, "$ABC ${AxC} $ABC\xc3\xa9",
            "\\1 \\1 $ABC\xc3\xa9");
    }

    void expandsPaths()
    {
        QFETCH(Environment, environment);
        QFETCH(QString, path);
        QTEST(expandedIn(environment, path), "expanded");
    }

    void expansionEndsAtTheLongestText()
    {
        const QByteArray half = "HALF=" + QByteArray(8388608, 'x');
        const Environment environment = {half.constData()};
        QCOMPARE(expandedIn(environment, u"$HALF$HALF"_s).size(), 16777216);
        QCOMPARE(expandedIn(environment, u"$HALF$HALF/"_s), u"$HALF$HALF/"_s);
    }

    void knowsWhatMayNeedExpansion()
    {
        for (const char* path : {"100%", "a$b", "~x"}) {
            QVERIFY2(containsEnvVarOrTilde(text(path)), path);
        }
        QVERIFY(!containsEnvVarOrTilde(u"a~b"_s));
    }

    void compatibilityKey_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("key");
        QTest::newRow("third number is dropped") << u"4.2.1"_s << u"4.2$7"_s;
        QTest::newRow("third number 0 stays") << u"4.2.0"_s << u"4.2.0$7"_s;
        QTest::newRow("two numbers stay") << u"4.2"_s << u"4.2$7"_s;
        QTest::newRow("word stays") << u"4.2.x"_s << u"4.2.x$7"_s;
        QTest::newRow("date stamp is dropped first") << u"4.2.1.20190"_s << u"4.2$7"_s;
        QTest::newRow("four digits are no date stamp") << u"4.2.1.2019"_s << u"4.2.1.2019$7"_s;
        QTest::newRow("preview is marked") << u"4.2.1-rc1-preview12-x"_s << u"4.2preview12$7"_s;
        QTest::newRow("nothing") << u""_s << u"$7"_s;
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
        QCOMPARE(endiannessFromArch(u"ppc"_s), ENDIAN_BIG);
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
        describes(u"/etc/redhat-release"_s, "no version", u"Linux "_s + QSysInfo::kernelVersion());
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
        add("pretended by the long name", "ZORV_FAKE_BLUEGENE", "bgq", true, true, true);
        add("switch alone", "ZORV_FAKE_BLUEGENE", "1", true, false, false);
        add("node type", "BG_NODE_TYPE", "", false, true, true);
        add("node type off", "BG_NODE_TYPE", "no", false, false, false);
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

    void tellsACray()
    {
        QVERIFY(!sc_isCray());
        QVERIFY(writeFile(u"/etc/opt/cray"_s, ""));
        QVERIFY(sc_isCray());
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
