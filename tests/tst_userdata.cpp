// The session record: how it is read, resolved and saved, and what its files are called.

#include "backend/backendoptions.h"
#include "backend/backenduserdata.h"
#include "common/talvoraglobals.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class Record : public BackendUserData
{
public:
    Record() = default;
    explicit Record(const char* attributes)
    {
        UserData::load({}, u"<session %1/>"_s.arg(text(attributes)));
    }
    using UserData::getSessionFile;
    using UserData::mUseSessionCookies;

    // The fields that are not as in a new record, after a letter for the source.
    QString state() const
    {
        const QStringList names = list("hosts port session cookie use shared tarball file");
        const QStringList letters = u" , g:, e:, f:, o:, d:"_s.split(u',');
        QString result = isValid() ? u"valid"_s : u"invalid"_s;
        result += isExplicitPort() ? u" explicit"_s : QString();
        for (int i = 0; i < FieldCount; ++i) {
            const QString value = values().at(i).toString();
            if (source(Field(i)) != Source::Default || values().at(i) != Record().values().at(i)) {
                result += letters.at(int(source(Field(i)))) + names.at(i) + u'=' + value;
            }
        }
        return result;
    }

private:
    QVariantList values() const
    {
        return QVariantList() << getHostNamesAndAddresses().join(u'|') << getPort() << getSession()
                              << sessionCookie() << getUseSessionCookies() << getSharedDirectory()
                              << mTarballFileName << sessionFileName();
    }
};

// The files in a directory with their modes, and where its links lead.
QString listing(const QString& directory)
{
    QStringList texts;
    const QDir dir(directory, QString(), QDir::Name, QDir::Files | QDir::System | QDir::Hidden);
    for (const QFileInfo& entry : dir.entryInfoList()) {
        const std::filesystem::path path(entry.filePath().toStdString());
        texts += entry.fileName() + (entry.isSymLink()
                                         ? u"->"_s + QString::fromStdString(read_symlink(path))
                                         : u":%1"_s.arg(uint(status(path).permissions()), 0, 8));
    }
    return texts.join(u' ');
}

} // namespace

// Each test has a working directory of its own; the installation is there, the session
// directory is "s" in it.
class UserDataTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> mRoot;

private Q_SLOTS:
    void init()
    {
        clearSettings({"HOST", "PORT", "SESSION", "SESSION_COOKIE", "SESSION_FILE", "SESSION_PATH",
                       "SHARED_DIRECTORY", "NO_SESSION_COOKIE", "TARBALL", "TMPDIR", "LOGNAME"});
        setSetting("ZORV_SESSION_PATH", "s");
        mRoot = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir::setCurrent(mRoot->path()));
        for (const char* name : {"bin", "lib", "libexec", "s"}) {
            QDir().mkdir(text(name));
        }
        TalvoraGlobals::instance()->setLocationsFromInstallPath(u"."_s);
    }

    // In the place of a record's fields, which stay when nothing replaces them.
    void reads()
    {
        QVERIFY(writeFile(u"old"_s, "<session port='1'/>"));
        QCOMPARE(system("touch -md yesterday old && mkfifo fifo"), 0);
        const char* const before = "valid hosts=a port=42 session=2 cookie=c";
        // clang-format off
        const struct { const char *name, *xml; bool result; const char* expected; } rows[] = {
            {"file", "<session session='3' cookie='d' host='b,,c' port='1' other='x'/>", true,
             "valid explicit hosts=b||c port=1 session=3 cookie=d"},
            {"file", "<x:session host='b'><session host='b'/></x:session>", true, before},
            // A port that is no number ends the reading, a session is 0 then.
            {"file", "<session port='0x1' host='b'/>", false, "valid hosts=a session=2 cookie=c"},
            {"file", "<session session='x' host='b' cookie=''/>", false, "valid hosts=b port=42 session=0"},
            // What is not well-formed changes nothing.
            {"file", "<session host='b'/><", false, before},
            {"file", "<!DOCTYPE s [<!ENTITY e SYSTEM '/etc/passwd'>]><session host='&e;'/>", false, before},
            {"file", "<!DOCTYPE s [<!ENTITY e ''>]><session host='b'/>", false, before},
            {"file", "<?xml version='1.0' encoding='UTF-7'?><session host='b'/>", false, before},
            {"file", "<?xml version='1.0' encoding='iso-8859-1'?><session host='\xe9'/>", true, "valid hosts=\xe9 port=42 session=2 cookie=c"},
            {"fifo", nullptr, false, before},
            // The port of a file of today is explicit.
            {"old", nullptr, true, "valid hosts=a port=1 session=2 cookie=c"},
        };
        // clang-format on
        for (const auto& row : rows) {
            const QString name = text(row.name);
            QVERIFY(!row.xml || writeFile(name, row.xml));
            Record record("host='a' port='42' session='2' cookie='c'");
            QCOMPARE(static_cast<UserData&>(record).load(name), row.result);
            QCOMPARE(record.state(), text(row.expected) + u" file="_s + name);
        }
    }

    // A session file is given as its name and attributes.
    void resolves()
    {
        const QString global = u"session host='g,1' port='11' session='1' cookie='g'"_s;
        const QString file = u" host='f,3' port='13' session='3' cookie='f'"_s;
        const char* const env = "HOST=e,2 PORT=12 SESSION=2 SESSION_COOKIE=e TARBALL=/e";
        const char* const options =
            "--host o,4 --port 14 --session 4 --sessioncookie o --tarball /o";
        // clang-format off
        const struct { QString files; const char *env, *options, *expected; } rows[] = {
            // Options over the session file over the environment over the global file.
            {global, env, "",
             "valid explicit e:hosts=e|2 e:port=12 e:session=2 e:cookie=e e:tarball=/e d:file=s/e-2"},
            {global + u";s/e-2"_s + file, env, "",
             "valid explicit f:hosts=f|3 f:port=13 f:session=3 f:cookie=f e:tarball=/e d:file=s/e-2"},
            {global + u";s/o-4"_s + file, env, options,
             "valid explicit o:hosts=o|4 o:port=14 o:session=4 o:cookie=o o:tarball=/o d:file=s/o-4"},
            {global, "HOST= SESSION= PORT= SESSION_COOKIE= TARBALL= SESSION_FILE=", "",
             "valid explicit g:hosts=g|1 g:port=11 g:session=1 g:cookie=g d:file=s/g-1"},
            // Which session file is read.
            {u"s/latest cookie='f'"_s, "", "", "invalid f:cookie=f d:file=s/latest"},
            {u"x cookie='f'"_s, "SESSION_FILE=x", "", "invalid f:cookie=f e:file=x"},
            {u"x cookie='f'"_s, "SESSION_FILE=y", "--sessionfile x", "invalid f:cookie=f o:file=x"},
            // Port and session from each other.
            {{}, "HOST=a,,b SESSION=3", "", "valid e:hosts=a||b d:port=4244 e:session=3 d:file=s/a-3"},
            {{}, "PORT=4242", "", "invalid explicit e:port=4242 d:session=1 d:file=s/latest"},
            {{}, "PORT=4263 NO_SESSION_COOKIE=Off", "", "invalid explicit e:port=4263 d:file=s/latest"},
            {{}, "PORT=4250 SESSION=0", "--host a", "valid explicit o:hosts=a e:port=4250 e:session=0 d:file=s/a-latest"},
            // Cookies in use or not.
            {{}, "NO_SESSION_COOKIE=", "", "invalid e:use=false d:file=s/latest"},
            {{}, "", "--port 5 --zorvnosessioncookie", "invalid explicit o:port=5 o:use=false d:file=s/latest"},
            // The shared directory: expanded, and resolved where it exists.
            {{}, "SESSION_PATH= LINK=link", "--shareddirectory $ZORV_LINK/s",
             "invalid o:shared=%1/s d:file=%1/s/.talvora/session/latest"},
            {{}, "", "--sessionfile session", "invalid d:shared=session o:file=session"},
            {{}, "SHARED_DIRECTORY=t", "--sessionfile session", "invalid e:shared=t o:file=session"},
        };
        // clang-format on
        for (const auto& row : rows) {
            init();
            QVERIFY(QFile::link(u"."_s, u"link"_s));
            for (const QString& session : row.files.split(u';', Qt::SkipEmptyParts)) {
                const QByteArray xml = "<session " + session.section(u' ', 1).toLatin1() + "/>";
                QVERIFY(writeFile(session.section(u' ', 0, 0), xml));
            }
            for (const QString& variable : list(row.env)) {
                const QStringList parts = variable.split(u'=');
                qputenv("ZORV_" + parts.first().toLatin1(), parts.last().toLatin1());
            }
            BackendOptions backendOptions;
            QVERIFY(backendOptions.parse(list("program") + list(row.options)));
            Record record;
            const bool valid = record.load(backendOptions);
            const QString here = QDir::current().canonicalPath();
            QCOMPARE(record.state(), text(row.expected).replace(u"%1"_s, here));
            QCOMPARE(valid, record.isValid());
        }
    }

    void fileNames()
    {
        // The hash by hand: of eight times 0x7f the first digit is folded in.
        // clang-format off
        const struct { const char *attributes, *id, *found, *created; } rows[] = {
            {"host='alpha,beta' session='2' cookie='&#x20ac;'", "x-alpha-2-000020ac", "s/alpha-2", "s/alpha-2"},
            {"host='alpha' session='0'", "x-alpha-0", "s/alpha-latest", "s/alpha-0"},
            {"session='3' cookie='\x7f\x7f\x7f\x7f\x7f\x7f\x7f\x7f'", "x--3-0777678f", "s/latest", "s/-3"},
        };
        // clang-format on
        for (const auto& row : rows) {
            init();
            const Record record(row.attributes);
            QCOMPARE(record.getSessionSpecificFileName(u"x"_s), text(row.id));
            const int session = record.getSession();
            QCOMPARE(record.getSessionFile(session, false), text(row.found));
            QCOMPARE(listing(u"s"_s), QString());
            record.getSessionFile(99, true);
            QCOMPARE(record.getSessionFile(session, true), text(row.created));
            const QString links = u"%2-latest->%1 latest->%1"_s;
            QCOMPARE(listing(u"s"_s), links.arg(text(row.created), record.getCanonicalHostName()));
        }

        // A file in TMPDIR is preferred to one that is not to be made.
        Record record("host='alpha' session='3' cookie='c'");
        qputenv("TMPDIR", "lib");
        QVERIFY(writeFile(u"lib/topology-alpha-3-00000063"_s, {}));
        QCOMPARE(record.topologyFileName(false), u"lib/topology-alpha-3-00000063"_s);
        QCOMPARE(record.topologyFileName(true), u"s/topology-alpha-3-00000063"_s);
        record.mUseSessionCookies = false;
        QCOMPARE(record.tarballFileName(false), u"s/tarball-alpha-3"_s);
        setSetting("ZORV_SESSION_PATH", {});
        record.setSharedDirectory(u"lib"_s);
        QCOMPARE(record.hostFileName(), u"lib/.talvora/session/hosts-alpha-3"_s);
        QVERIFY(QFile::exists(u"lib/.talvora/session"_s));

        // Beside the programs, a file that keeps the session to this host.
        QVERIFY(writeFile(u"bin/use_local_zorv_session"_s, {}));
        qputenv("LOGNAME", "alice");
        QCOMPARE(record.getSessionFile(-1, false), u"/tmp/.zorv_session_alice_-1"_s);
    }

    void savesAndCleansUp()
    {
        Record record("host='a,b' port='4243' session='2' cookie='c&lt;&amp;&quot;&gt;\xe9'");
        record.getSessionFile(99, true);
        QVERIFY(writeFile(u"victim"_s, "precious") && QFile::link(u"../victim"_s, u"s/a-2"_s));
        const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        QVERIFY(inotify_add_watch(watch, "s", IN_DELETE) != -1);
        QVERIFY(record.save({}));
        // What readers look for is replaced: it is never missing, and never incomplete.
        char event[4096];
        QCOMPARE(read(watch, event, sizeof event), -1);
        close(watch);
        QCOMPARE(QFileInfo(u"victim"_s).size(), 8);
        Record loaded;
        QVERIFY(static_cast<UserData&>(loaded).load(u"s/a-2"_s));
        QCOMPARE(loaded.state(), record.state().replace(u"valid"_s, u"valid explicit"_s));
        QCOMPARE(Record("cookie=''").toXml(), u"<session session=\"-1\"/>\n"_s);

        QVERIFY(writeFile(u"s/meta"_s, {}) && record.makeMetaSession());
        QCOMPARE(listing(u"s"_s), u"a-2:600 a-latest->s/a-2 latest->s/a-2 meta->s/a-2"_s);
        record.deleteSessionFile();
        QCOMPARE(listing(u"s"_s), QString());
    }

    void failedSaveLeavesNothing()
    {
        Record record("host='a'");
        QVERIFY(writeFile(u"full"_s, "of an earlier session"));
        // The limit stands for a full disk: the write itself fails.
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit tenBytes = {10, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tenBytes);
        const bool saved = record.save(u"full"_s);
        setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(!saved);
        QCOMPARE(listing(u"."_s), QString());
    }
};

QTEST_GUILESS_MAIN(UserDataTest)
#include "tst_userdata.moc"
