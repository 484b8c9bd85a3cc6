// The sources of look-ups agree about the same files, and a getent that is not as it
// should be does no harm.

#include "common/compatibility_simple/lookups/backends_p.h"
#include "tests/support/helpers.h"
#include "tests/support/namespace.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

#include <arpa/inet.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

const char ownFiles[] = R"(set -e
    mount -t tmpfs none /mnt
    mkdir /mnt/etc
    cp /usr/bin/getent /mnt/machines-getent
    [ ! -e /etc/ld.so.cache ] || cp /etc/ld.so.cache /mnt/etc
    echo 'multi on' >/mnt/etc/host.conf
    printf 'hosts: files\npasswd: files\n' >/mnt/etc/nsswitch.conf
    printf '%s\n' '# comment' '127.0.0.1 localhost' '10.0.0.7	nodeb.cluster  nodeb # nodec' \
        'fd00:0::7 nodeb.cluster nodeb' '10.0.0.8 nodeb-alias nodeb' '10.0.0.9 Upper.cluster' \
        'fd00::9 six six.alias' '10.0.0.10' '10.0.0.7 other' >/mnt/etc/hosts
    printf '%s\n' 'root:x:0:0:root:/root:/bin/sh' \
        'ann:x:1000:1001:Ann B,,:/home/ann b:/bin/bash' '1234:x:77:77::/home/digits:' \
        'last:x:78:79::/home/last:/bin/false' >/mnt/etc/passwd
    touch /mnt/getent
    mount --bind /mnt/getent /usr/bin/getent
    mount --bind /mnt/etc /etc)";

struct Source
{
    const char* name;
    Lookups::Host (*hostOfName)(const QByteArray&);
    QByteArray (*nameOfAddress)(const QByteArray&);
    passwd* (*userOfName)(const QByteArray&);
    passwd* (*userOfId)(uid_t);
    hostent* (*hostentOfName)(const QByteArray&);
};

const Source sources[] = {
#ifdef WITH_C_LIBRARY
    {"C library", Lookups::CLibrary::hostOfName, Lookups::CLibrary::nameOfAddress,
     Lookups::CLibrary::userOfName, Lookups::CLibrary::userOfId, Lookups::CLibrary::hostentOfName},
#endif
    {"getent", Lookups::Getent::hostOfName, Lookups::Getent::nameOfAddress,
     Lookups::Getent::userOfName, Lookups::Getent::userOfId, Lookups::Getent::hostentOfName},
};

// Writes the script that is in the place of the machine's getent.
void replaceGetent(const QByteArray& script, mode_t mode = 0755,
                   const QByteArray& interpreter = "/bin/sh")
{
    QVERIFY(writeFile(u"/mnt/getent"_s, "#!" + interpreter + '\n' + script));
    chmod("/mnt/getent", mode);
}

} // namespace

Q_DECLARE_METATYPE(const Source*)

// Every row runs with each source, and with a machine that has no getent, where the files
// are read.
class LookupsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data()
    {
        QTest::addColumn<const Source*>("source");
        QTest::addColumn<bool>("withGetent");
        for (const Source& source : sources) {
            QTest::newRow(source.name) << &source << true;
        }
        QTest::newRow("files") << std::end(sources) - 1 << false;
    }

    void init()
    {
        QFETCH_GLOBAL(const bool, withGetent);
        replaceGetent("exec /mnt/machines-getent \"$@\"", withGetent ? 0755 : 0644);
    }

    void findsHosts_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("canonicalName");
        QTest::addColumn<QByteArrayList>("addresses");
        const auto add = [](const char* row, const QByteArray& name,
                            const QByteArray& canonicalName, const QByteArrayList& addresses) {
            QTest::newRow(row) << name << canonicalName << addresses;
        };
        add("alias of several lines", "nodeb", "nodeb.cluster",
            {"10.0.0.7", "10.0.0.8", "fd00::7"});
        add("other letter case", "upper.CLUSTER", "Upper.cluster", {"10.0.0.9"});
        add("IPv6 address alone", "six.alias", "six", {"fd00::9"});
        add("name in a comment", "nodec", "", {});
    }

    void findsHosts()
    {
        QFETCH_GLOBAL(const Source*, source);
        QFETCH(const QByteArray, name);
        Lookups::Host host = source->hostOfName(name);
        QTEST(host.canonicalName, "canonicalName");
        // The resolver's order depends on the host's own addresses; the files have none.
        std::sort(host.addresses.begin(), host.addresses.end());
        QTEST(host.addresses, "addresses");
    }

    void namesAddresses()
    {
        QFETCH_GLOBAL(const Source*, source);
        QCOMPARE(source->nameOfAddress("10.0.0.7"), "nodeb.cluster");
        QCOMPARE(source->nameOfAddress("fd00:0:0::7"), "nodeb.cluster");
        QCOMPARE(source->nameOfAddress("10.0.0.10"), QByteArray());
        QCOMPARE(source->nameOfAddress("nodeb"), QByteArray());
    }

    void findsUsers()
    {
        QFETCH_GLOBAL(const Source*, source);
        QVERIFY(source->userOfName("ann"));
        QVERIFY(source->userOfName("1234"));
        // The number of another user.
        QVERIFY(!source->userOfName("78"));
        QVERIFY(!source->userOfName("nobody"));
        QVERIFY(!source->userOfId(4242));
        const passwd* const user = source->userOfId(1000);
        QVERIFY(user);
        QCOMPARE(user->pw_name, "ann");
        QCOMPARE(user->pw_uid, 1000U);
        QCOMPARE(user->pw_gid, 1001U);
        QCOMPARE(user->pw_dir, "/home/ann b");
        QCOMPARE(user->pw_shell, "/bin/bash");
    }

    void givesHostEntries()
    {
        QFETCH_GLOBAL(const Source*, source);
        const hostent* const entry = source->hostentOfName("nodeb-alias");
        QVERIFY(entry);
        QCOMPARE(entry->h_name, "nodeb-alias");
        QCOMPARE(QByteArray(entry->h_addr_list[0], 4), "\x0a\0\0\x08"_ba);
        QCOMPARE(entry->h_addr_list[1], nullptr);
        QVERIFY(!source->hostentOfName("six"));
    }
};

class GetentTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void asksAnOldGetentWithoutTheOption()
    {
        replaceGetent("case $* in\n"
                      "*--*) echo Usage; exit 64 ;;\n"
                      "ahosts*) echo 10.0.0.1 STREAM a.cluster ;;\n"
                      "hosts*) echo fd00::1 a.cluster a ;;\n"
                      "esac");
        const Lookups::Host host = Lookups::Getent::hostOfName("a");
        QCOMPARE(host.canonicalName, "a.cluster");
        QCOMPARE(host.addresses, QByteArrayList({"10.0.0.1", "fd00::1"}));
    }

    void takesNothingElseForAnAnswer()
    {
        for (const char* script : {"head -c 9999 /dev/zero; echo; seq 100; echo a:b:c:d:e:f:g",
                                   "echo bob:x:1:2::/home/bob:", "echo ann:x:1"}) {
            replaceGetent(script);
            QVERIFY2(Lookups::Getent::hostOfName("a").addresses.isEmpty(), script);
            QVERIFY2(!Lookups::Getent::userOfName("ann"), script);
        }
    }

    // A stop before the exec would block the caller. A shell would unblock the signals.
    void isNotStoppedFromTheTerminal()
    {
        replaceGetent("from signal import *\n"
                      "if pthread_sigmask(SIG_BLOCK, []) == {SIGTSTP, SIGTTIN, SIGTTOU}:\n"
                      "    print('bob:x:1:2::/home/bob:')\n",
                      0755, "/usr/bin/python3");
        QVERIFY(Lookups::Getent::userOfName("bob"));
    }

    // The last: nothing is asked after it.
    void asksNoMoreAfterAnEndlessAnswer()
    {
        replaceGetent("echo >>/mnt/asked; exec yes 10.0.0.1");
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QTest::ignoreMessage(QtWarningMsg, "getent ahosts: no answer; no more names are looked up");
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(Lookups::Getent::hostOfName("a").addresses, QByteArrayList());
        }
        QCOMPARE(QFileInfo(u"/mnt/asked"_s).size(), 1);
    }
};

int main(int argc, char** argv)
{
    if (!Namespace::enter(ownFiles)) {
        return Namespace::Skipped;
    }
    LookupsTest lookups;
    GetentTest getent;
    const int status = QTest::qExec(&lookups, argc, argv);
    return status + QTest::qExec(&getent, argc, argv);
}

#include "tst_lookups.moc"
