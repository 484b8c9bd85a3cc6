// The sources of look-ups agree about the same files, and a getent that is not as it
// should be does no harm.

#include "common/compatibility_simple/lookups/backends_p.h"
#include "tests/support/namespace.h"
#include "tests/support/texts.h"

#include <QTest>

#include <arpa/inet.h>
#include <sys/stat.h>

namespace {

const char ownFiles[] = R"(set -e
    mount -t tmpfs none /mnt
    mkdir /mnt/etc
    [ ! -e /etc/ld.so.cache ] || cp /etc/ld.so.cache /mnt/etc
    echo 'multi on' >/mnt/etc/host.conf
    printf 'hosts: files\npasswd: files\n' >/mnt/etc/nsswitch.conf
    printf '%s\n' '# comment' '127.0.0.1 localhost' '10.0.0.7	nodeb.cluster  nodeb # nodec' \
        'fd00:0::7 nodeb.cluster nodeb' '10.0.0.8 nodeb-alias nodeb' '10.0.0.9 Upper.cluster' \
        'fd00::9 six six.alias' 'fe80::9 local' 'none bad' '10.0.0.300 bad' '10.0.0.10' \
        '10.0.0.7 other' '10.0.0.11 last' >/mnt/etc/hosts
    printf '%s\n' 'root:x:0:0:root:/root:/bin/sh' \
        'ann:x:1000:1001:Ann  B,,:/home/ann b:/bin/bash' '1234:x:77:77::/home/digits:' \
        'short:x:9' 'last:x:78:79::/home/last:/bin/false' >/mnt/etc/passwd
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

QByteArray userText(const passwd* user)
{
    QByteArrayList fields;
    if (user) {
        fields = {user->pw_name,
                  user->pw_passwd,
                  QByteArray::number(user->pw_uid),
                  QByteArray::number(user->pw_gid),
                  user->pw_gecos,
                  user->pw_dir,
                  user->pw_shell};
    }
    return fields.join(':');
}

// Puts a shell script in the place of the machine's getent.
void replaceGetent(const char* script, mode_t mode = 0755)
{
    QVERIFY(writeFile(text("/mnt/getent"), QByteArray("#!/bin/sh\n") + script));
    chmod("/mnt/getent", mode);
    Namespace::run(text("mount --bind /mnt/getent /usr/bin/getent"));
}

} // namespace

Q_DECLARE_METATYPE(const Source*)

class LookupsTest : public QObject
{
    Q_OBJECT

    // The test function of the row, once with each source, and once with a machine that
    // has no getent.
    template <typename... Values> static void addRows(const char* name, const Values&... values)
    {
        const Source* const getent = std::end(sources) - 1;
        for (const Source& source : sources) {
            (QTest::addRow("%s, %s", name, source.name) << &source << true << ... << values);
        }
        (QTest::addRow("%s, files", name) << getent << false << ... << values);
    }

    static void addColumns()
    {
        QTest::addColumn<const Source*>("source");
        QTest::addColumn<bool>("withGetent");
    }

    bool mReplaced = false;

private Q_SLOTS:
    void init()
    {
        QFETCH(const bool, withGetent);
        if (!withGetent) {
            replaceGetent("", 0644);
            mReplaced = true;
        }
    }

    void cleanup()
    {
        if (mReplaced) {
            Namespace::run(text("umount /usr/bin/getent"));
            mReplaced = false;
        }
    }

    void findsHosts_data()
    {
        addColumns();
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("canonicalName");
        QTest::addColumn<QByteArrayList>("addresses");
        const auto add = [](const char* row, const char* name, const char* canonicalName,
                            const QByteArrayList& addresses) {
            addRows(row, QByteArray(name), QByteArray(canonicalName), addresses);
        };
        add("alias of several lines", "nodeb", "nodeb.cluster",
            {"10.0.0.7", "10.0.0.8", "fd00::7"});
        add("name of one line", "nodeb-alias", "nodeb-alias", {"10.0.0.8"});
        add("other letter case", "upper.CLUSTER", "Upper.cluster", {"10.0.0.9"});
        add("IPv6 address alone", "six.alias", "six", {"fd00::9"});
        add("link-local address", "local", "local", {"fe80::9"});
        add("address", "10.0.0.7", "10.0.0.7", {"10.0.0.7"});
        add("name in a comment", "nodec", "", {});
        add("line with a wrong address", "bad", "", {});
        add("unknown name", "nobody", "", {});
        add("name like an option", "--version", "", {});
        add("empty name", "", "", {});
        add("last line", "last", "last", {"10.0.0.11"});
    }

    void findsHosts()
    {
        QFETCH(const Source*, source);
        QFETCH(const QByteArray, name);
        QFETCH(const QByteArray, canonicalName);
        QFETCH(const QByteArrayList, addresses);
        const Lookups::Host host = source->hostOfName(name);
        QCOMPARE(host.canonicalName, canonicalName);
        // The resolver's order depends on the host's own addresses; the files have none.
        QByteArrayList sorted = host.addresses;
        std::sort(sorted.begin(), sorted.end());
        QCOMPARE(sorted, addresses);
    }

    void namesAddresses_data()
    {
        addColumns();
        QTest::addColumn<QByteArray>("address");
        QTest::addColumn<QByteArray>("name");
        const auto add = [](const char* row, const char* address, const char* name) {
            addRows(row, QByteArray(address), QByteArray(name));
        };
        add("first of several lines", "10.0.0.7", "nodeb.cluster");
        add("IPv6 address in another form", "fd00:0:0::7", "nodeb.cluster");
        add("no name", "10.0.0.10", "");
        add("no address", "nodeb", "");
    }

    void namesAddresses()
    {
        QFETCH(const Source*, source);
        QFETCH(const QByteArray, address);
        QFETCH(const QByteArray, name);
        QCOMPARE(source->nameOfAddress(address), name);
    }

    void findsUsers_data()
    {
        addColumns();
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("uid");
        QTest::addColumn<QByteArray>("user");
        const auto add = [](const char* row, const char* name, int uid, const char* user) {
            addRows(row, QByteArray(name), uid, QByteArray(user));
        };
        add("name", "ann", -1, "ann:x:1000:1001:Ann  B,,:/home/ann b:/bin/bash");
        add("number", "", 1000, "ann:x:1000:1001:Ann  B,,:/home/ann b:/bin/bash");
        add("name of digits", "1234", -1, "1234:x:77:77::/home/digits:");
        add("digits that are another user's number", "78", -1, "");
        add("number zero", "", 0, "root:x:0:0:root:/root:/bin/sh");
        add("unknown name", "nobody", -1, "");
        add("unknown number", "", 4242, "");
        add("line with too few fields", "short", -1, "");
    }

    void findsUsers()
    {
        QFETCH(const Source*, source);
        QFETCH(const QByteArray, name);
        QFETCH(const int, uid);
        QFETCH(const QByteArray, user);
        const passwd* const found =
            uid == -1 ? source->userOfName(name) : source->userOfId(uid_t(uid));
        QCOMPARE(userText(found), user);
    }

    void givesHostEntries_data()
    {
        addColumns();
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("entry");
        const auto add = [](const char* row, const char* name, const char* entry) {
            addRows(row, QByteArray(name), QByteArray(entry));
        };
        add("alias", "nodeb-alias", "nodeb-alias 10.0.0.8");
        add("address", "10.0.0.7", "10.0.0.7 10.0.0.7");
        add("IPv6 address alone", "six", "");
        add("unknown name", "nobody", "");
    }

    void givesHostEntries()
    {
        QFETCH(const Source*, source);
        QFETCH(const QByteArray, name);
        QFETCH(const QByteArray, entry);
        QByteArray seen;
        if (const hostent* const found = source->hostentOfName(name)) {
            QCOMPARE(found->h_addrtype, AF_INET);
            char address[INET_ADDRSTRLEN];
            seen = found->h_name;
            for (char** next = found->h_addr_list; *next; ++next) {
                seen += ' ';
                seen += inet_ntop(AF_INET, *next, address, sizeof address);
            }
        }
        QCOMPARE(seen, entry);
    }

    void survivesGetent_data()
    {
        QTest::addColumn<bool>("withGetent");
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QByteArrayList>("addresses");
        QTest::addColumn<QByteArray>("home");
        const auto add = [](const char* row, const char* script, const QByteArrayList& addresses,
                            const char* home) {
            QTest::newRow(row) << true << QByteArray(script) << addresses << QByteArray(home);
        };
        add("one that does not know --no-addrconfig",
            "case $* in\n"
            "*--*) echo Usage; exit 64 ;;\n"
            "ahosts*) echo 10.0.0.1 STREAM a.cluster ;;\n"
            "hosts*) echo fd00::1 a.cluster a ;;\n"
            "*) echo ann:x:1:2::/home/ann: ;;\n"
            "esac",
            {"10.0.0.1", "fd00::1"}, "/home/ann");
        add("garbage", "head -c 9999 /dev/zero; echo; seq 100; echo a:b:c:d:e:f:g", {}, "");
        add("another user's line", "echo bob:x:1:2::/home/bob:", {}, "");
        add("no answer", "exit 2", {}, "");
        add("crash", "kill -SEGV $$", {}, "");
        add("streams that are closed", "exec >&- 2>&- <&-; sleep 0.1", {}, "");
    }

    void survivesGetent()
    {
        QFETCH(const QByteArray, script);
        QFETCH(const QByteArrayList, addresses);
        QFETCH(const QByteArray, home);
        replaceGetent(script.constData());
        mReplaced = true;
        QCOMPARE(Lookups::Getent::hostOfName("a").addresses, addresses);
        const passwd* const user = Lookups::Getent::userOfName("ann");
        QCOMPARE(QByteArray(user ? user->pw_dir : ""), home);
    }

    // The last: nothing is asked after it.
    void asksNoMoreAfterAnEndlessAnswer_data()
    {
        QTest::addColumn<bool>("withGetent");
        QTest::newRow("endless answer") << true;
    }

    void asksNoMoreAfterAnEndlessAnswer()
    {
        replaceGetent("echo >>/mnt/asked; exec yes 10.0.0.1");
        mReplaced = true;
        const MessageCollector messages;
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(Lookups::Getent::hostOfName("a").addresses, QByteArrayList());
        }
        QCOMPARE(messages.texts(), list({"getent ahosts: no answer; no more names are looked up"}));
        QFile asked(text("/mnt/asked"));
        QVERIFY(asked.open(QIODevice::ReadOnly));
        QCOMPARE(asked.readAll(), QByteArray("\n"));
    }
};

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    Namespace::run(text(ownFiles));
    LookupsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_lookups.moc"
