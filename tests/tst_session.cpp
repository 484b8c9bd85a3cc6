// The session record: how it is read, resolved and saved, and what its files are called.

#include "backend/backendoptions.h"
#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/metadata.h"
#include "common/talvoraglobals.h"
#include "tests/support/helpers.h"

#include <QDateTime>
#include <QDir>
#include <QMap>
#include <QStringConverter>
#include <QTest>

#include <sys/resource.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

using FileState = UserData::FileState;
using Source = UserData::Source;
// Settings without a prefix.
using Settings = QMap<QByteArray, QByteArray>;

namespace {

class Record : public BackendUserData
{
public:
    Record() = default;
    explicit Record(const QByteArray& attributes)
    {
        UserData::load({}, u"<session %1/>"_s.arg(QString::fromUtf8(attributes)));
    }
    using UserData::getSessionFile;
    using UserData::load;
    using UserData::mSessionFileName;
};

// The record of a process with these settings and options, and no others.
Record resolved(const Settings& settings, const QStringList& arguments = {})
{
    clearSettings();
    setSetting("ZORV_SESSION_PATH", "s");
    for (const QByteArray& name : settings.keys()) {
        setSetting(("ZORV_" + name).constData(), settings[name]);
    }
    Record record;
    BackendOptions options;
    [&] { QVERIFY(options.parse(QStringList(u"program"_s) + arguments)); }();
    static_cast<BackendUserData&>(record).load(options);
    return record;
}

} // namespace

// Each row has a working directory of its own. It is the installation, too, and "s" in it
// the session directory.
class SessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearSettings();
        qunsetenv("TMPDIR");
        setSetting("ZORV_SESSION_PATH", "s");
        enterEmptyDirectory();
        for (const char* name : {"bin", "lib", "libexec", "s"}) {
            QVERIFY(QDir().mkdir(text(name)));
        }
        TalvoraGlobals::instance()->setLocationsFromInstallPath(u"."_s);
    }

    void portOrSessionThatIsNoNumberIsZeroAndEndsTheReading()
    {
        Record record("host='a' port='42' session='2' cookie='c'");
        QVERIFY(!record.load({}, u"<session session='x' host='b' cookie=''/>"_s));
        QCOMPARE(record.fileState(), FileState::BadSession);
        QCOMPARE(record.getPort(), 42U);
        QCOMPARE(record.getSession(), 0);
        QCOMPARE(record.sessionCookie(), u""_s);
        QVERIFY(!record.load({}, u"<session port='0x1' host='c' cookie='d' session='3'/>"_s));
        QCOMPARE(record.fileState(), FileState::BadPort);
        QCOMPARE(record.getPort(), 0U);
        QCOMPARE(record.getCanonicalHostName(), u"b"_s);
    }

    void readsWellFormedFiles_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<FileState>("state");
        const auto add = [](const char* name, const QByteArray& file, FileState state) {
            QTest::newRow(name) << file << state;
        };
        const auto good = FileState::Read;
        const auto bad = FileState::NotWellFormed;
        const QByteArray session = "<session host='é'/>";
        const QByteArray latin1 = "<?xml version='1.0' encoding='iso-8859-1'?>";
        const QByteArray windows = "<?xml version='1.0' encoding='windows-1252'?>";
        const QByteArray unknown = "<?xml version='1.0' encoding='none'?>";
        const QString entity = u"<!DOCTYPE s [<!ENTITY e 'b'>]><session host='é'/>"_s;
        add("another root element", "<x:session host='b'>" + session + "</x:session>",
            FileState::NoSession);
        add("largest file", session.leftJustified(65536), good);
        add("larger file", session.leftJustified(65537), FileState::TooLarge);

        add("declared encoding", latin1 + "<session host='\xe9'/>", good);
        // One that ICU knows, if this Qt has it.
        add("encoding of Windows", windows + "<session host='\xe9'/>",
            QStringDecoder("windows-1252").isValid() ? good : bad);
        add("unknown encoding", unknown + session, bad);
        add("bytes that are not in the encoding", "<session host='\xe9'/>", bad);

        add("DOCTYPE", "<!DOCTYPE s>" + session, good);
        add("second DOCTYPE", "<!DOCTYPE s><!DOCTYPE s>" + session, bad);
        add("DOCTYPE in the root element", "<session host='é'><!DOCTYPE s></session>", bad);
        add("DOCTYPE after the root element", session + "<!DOCTYPE s>", bad);
        add("declared entity", entity.toUtf8(), bad);
        add("declared entity in UTF-16", QStringEncoder(QStringConverter::Utf16BE)(entity), bad);
        add("declaration of an entity in a comment", "<!-- <!ENTITY e ''> -->" + session, good);
    }

    void readsWellFormedFiles()
    {
        QFETCH(QByteArray, file);
        QFETCH(FileState, state);
        QVERIFY(writeFile(u"file"_s, file));
        Record record("host='a'");
        const bool loaded = record.load(u"file"_s);
        QCOMPARE(record.fileState(), state);
        QCOMPARE(loaded, state == FileState::Read || state == FileState::NoSession);
        QCOMPARE(record.getCanonicalHostName(), state == FileState::Read ? u"é"_s : u"a"_s);
    }

    void fileThatIsNotRegularIsNotRead()
    {
        QCOMPARE(mkfifo("fifo", 0600), 0);
        Record record;
        QVERIFY(!record.load(u"fifo"_s));
        QCOMPARE(record.fileState(), FileState::NotRegular);
    }

    void portOfASettingOrAFileOfTodayIsExplicit()
    {
        QVERIFY(resolved({{"PORT", "1"}}).isExplicitPort());
        QVERIFY(writeFile(u"file"_s, "<session port='1'/>"));
        const QDateTime now = QDateTime::currentDateTime();
        Record record;
        QVERIFY(sc_setModifiedTime(u"file"_s, now.addDays(-1)) && record.load(u"file"_s));
        QVERIFY(!record.isExplicitPort());
        QVERIFY(sc_setModifiedTime(u"file"_s, now) && record.load(u"file"_s));
        QVERIFY(record.isExplicitPort());
    }

    void laterSourcesOverrideEarlierOnes()
    {
        const auto check = [](const Record& record, const QByteArray& expected, Source source) {
            QCOMPARE(record.toXml(), Record(expected).toXml());
            for (auto field :
                 {UserData::Hosts, UserData::Port, UserData::Session, UserData::Cookie}) {
                QCOMPARE(record.source(field), source);
            }
        };
        const QByteArray inGlobal = "host='i' port='11' session='1' cookie='i'";
        const QByteArray inFile = "host='f,,3' port='13' session='3' cookie='f'";
        const Settings useless = {{"HOST", ""}, {"PORT", "12x"}, {"SESSION", "2x"}};
        const Settings settings = {
            {"HOST", "e,2"}, {"PORT", "12"}, {"SESSION", "2"}, {"SESSION_COOKIE", "e"}};
        const QStringList options =
            list({"--host", "o,4", "--port", "14", "--session", "4", "--sessioncookie", "o"});
        QVERIFY(writeFile(u"session"_s, "<session " + inGlobal + "/>"));
        check(resolved(useless), inGlobal, Source::GlobalFile);
        check(resolved(settings), "host='e,2' port='12' session='2' cookie='e'",
              Source::Environment);
        for (const QString& name : {u"s/e-2"_s, u"s/o-4"_s}) {
            QVERIFY(writeFile(name, "<session " + inFile + "/>"));
        }
        check(resolved(settings), inFile, Source::SessionFile);
        check(resolved(settings, options), "host='o,4' port='14' session='4' cookie='o'",
              Source::Option);
    }

    void fileIsThatOfHostAndSessionUnlessItIsGiven()
    {
        const Settings given = {{"HOST", "a"}, {"SESSION_FILE", "x"}};
        QCOMPARE(resolved({{"SESSION", "3"}}).sessionFileName(), u"s/latest"_s);
        QCOMPARE(resolved({{"HOST", "a,b"}}).sessionFileName(), u"s/a-latest"_s);
        QCOMPARE(resolved({{"HOST", "a"}}, list({"--session", "4"})).sessionFileName(), u"s/a-4"_s);
        QCOMPARE(resolved(given).sessionFileName(), u"x"_s);
        QCOMPARE(resolved(given).source(UserData::SessionFileName), Source::Environment);
        QCOMPARE(resolved(given, list({"--sessionfile", "y"})).sessionFileName(), u"y"_s);
    }

    void portAndSessionTellEachOther()
    {
        QCOMPARE(resolved({{"PORT", "4241"}}).getSession(), -1);
        QCOMPARE(resolved({{"PORT", "4242"}}).getSession(), 1);
        QCOMPARE(resolved({{"PORT", "4262"}}).getSession(), 21);
        QCOMPARE(resolved({{"PORT", "4262"}}).source(UserData::Session), Source::Derived);
        QCOMPARE(resolved({{"PORT", "4263"}}).getSession(), -1);
        QCOMPARE(resolved({{"SESSION", "300"}}).getPort(), 4541U);
        QCOMPARE(resolved({{"SESSION", "300"}}).source(UserData::Port), Source::Derived);
    }

    void cookiesAreUsedUnlessTheyAreSwitchedOff()
    {
        QVERIFY(resolved({}).getUseSessionCookies());
        QVERIFY(!resolved({{"NO_SESSION_COOKIE", ""}}).getUseSessionCookies());
        QVERIFY(!resolved({}, list({"--zorvnosessioncookie"})).getUseSessionCookies());
    }

    void tarballIsThatOfTheOptionOrTheSetting()
    {
        const Settings settings = {{"TARBALL", "/e"}};
        QCOMPARE(resolved(settings).tarballFileName(false), u"/e"_s);
        QCOMPARE(resolved(settings, list({"--tarball", "/o"})).tarballFileName(false), u"/o"_s);
    }

    // That of an option is expanded and resolved; that of a setting does not exist here.
    void sharedDirectoryIsGivenOrAFileCalledSession()
    {
        const Settings settings = {{"SHARED_DIRECTORY", "missing"}, {"LIBRARY", "lib"}};
        const Record bySetting = resolved(settings, list({"--sessionfile", "session"}));
        QCOMPARE(bySetting.getSharedDirectory(), u"missing"_s);
        const Record byOption = resolved(settings, list({"--shareddirectory", "$ZORV_LIBRARY/.."}));
        QCOMPARE(byOption.getSharedDirectory(), QDir::currentPath());
        const Record byFile = resolved({}, list({"--sessionfile", "x/session"}));
        QCOMPARE(byFile.getSharedDirectory(), u"x/session"_s);
    }

    // The hash by hand: of eight times 0x7f the first digit is folded in.
    void uniqueIdIsHostSessionAndHashOfTheCookie()
    {
        QCOMPARE(Record("host='a,b' session='3'").getSessionUniqueId(), u"a-3"_s);
        const Record record("host='a' cookie='" + QByteArray(8, 0x7f) + "'");
        QCOMPARE(record.getSessionUniqueId(), u"a--1-0777678f"_s);
        QCOMPARE(record.getLockFileName(u"x"_s, u"node7"_s), u"x-a--1-0777678f-node7.pid"_s);
        QCOMPARE(record.hostFileName(), u"s/hosts-a--1-0777678f"_s);
    }

    void sessionFileOfThisHostOnly()
    {
        QVERIFY(writeFile(u"bin/use_local_zorv_session"_s, {}));
        qputenv("LOGNAME", "alice");
        QCOMPARE(Record().getSessionFile(-1, true), u"/tmp/.zorv_session_alice_-1"_s);
    }

    // A job may have a copy of its own in TMPDIR.
    void workFilesInTmpdir()
    {
        const Record record("host='alpha' session='3'");
        qputenv("TMPDIR", "lib");
        QCOMPARE(record.topologyFileName(false), u"s/topology-alpha-3"_s);
        QVERIFY(writeFile(u"lib/topology-alpha-3"_s, {}) &&
                writeFile(u"lib/tarball-alpha-3"_s, {}));
        QCOMPARE(record.topologyFileName(false), u"lib/topology-alpha-3"_s);
        QCOMPARE(record.topologyFileName(true), u"s/topology-alpha-3"_s);
        QCOMPARE(record.tarballFileName(false), u"lib/tarball-alpha-3"_s);
    }

    // It is made on request only.
    void sessionDirectoryIsGivenOrInTheSharedOrHomeDirectory()
    {
        Record record;
        record.setSharedDirectory(u"lib"_s);
        QCOMPARE(record.getSessionDirectory(false), u"s"_s);
        setSetting("ZORV_SESSION_PATH", {});
        QCOMPARE(record.getSessionDirectory(false), u"lib/.talvora/session"_s);
        QVERIFY(!QFile::exists(u"lib/.talvora"_s));
        QVERIFY(QFileInfo(record.getSessionDirectory(true)).isDir());
        record.setSharedDirectory({});
        QCOMPARE(record.getSessionDirectory(false), QDir::homePath() + u"/.talvora/session"_s);
    }

    void savedFileIsTheLatest()
    {
        Record record("host='a,b' port='5000' session='2' cookie='c&lt;&amp;&quot;&gt;é'");
        QVERIFY(QFile::link(u"elsewhere"_s, u"s/latest"_s));
        setSetting("ZORV_SESSION_PATH", QFile::encodeName(QDir::current().filePath(u"s"_s)));
        QVERIFY(record.save({}));
        for (const QString& name : {u"s/a-2"_s, u"s/latest"_s, u"s/a-latest"_s}) {
            Record loaded;
            QVERIFY2(loaded.load(name), qPrintable(name));
            QCOMPARE(loaded.getHostNamesAndAddresses(), list({"a", "b"}));
            QCOMPARE(loaded.getPort(), 5000U);
            QCOMPARE(loaded.getSession(), 2);
            QCOMPARE(loaded.sessionCookie(), u"c<&\">é"_s);
        }
    }

    // Readers would take an old file for the record's. The limit stands for a broken disk.
    void failedSaveLeavesNoFile()
    {
        QVERIFY(writeFile(u"file"_s, "of an earlier session"));
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none = {0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const bool saved = Record("host='a'").save(u"file"_s);
        setrlimit(RLIMIT_NOFILE, &limit);
        QVERIFY(!saved);
        QCOMPARE(namesIn(u"."_s), QStringList());
    }

    void deletionRemovesTheFileAndItsLinks()
    {
        for (const QString& name : {u"a-latest"_s, u"b-latest"_s, u"file"_s, u"latest"_s}) {
            QVERIFY(writeFile(u"s/"_s + name, {}));
        }
        Record record("host='a'");
        record.mSessionFileName = QDir::current().filePath(u"s/file"_s);
        QVERIFY(record.makeMetaSession());
        QCOMPARE(QFile::symLinkTarget(u"s/meta"_s), record.sessionFileName());
        record.deleteSessionFile();
        QCOMPARE(namesIn(u"s"_s), list({"b-latest"}));
        // Its link would be outside of the directory.
        QVERIFY(writeFile(u"lib/a-latest"_s, {}));
        Record elsewhere("host='../lib/a'");
        elsewhere.mSessionFileName = u"s/file"_s;
        elsewhere.deleteSessionFile();
        QCOMPARE(namesIn(u"lib"_s), list({"a-latest"}));
    }
};

QTEST_GUILESS_MAIN(SessionTest)
#include "tst_session.moc"
