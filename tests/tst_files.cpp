// Files: what is opened and what is refused, what readers see of a file that is replaced.
// test_neighbours.py has more of the entries that strangers make.

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/metadata.h"
#include "common/compatibility_simple/files/overwrite.h"
#include "common/compatibility_simple/files/replace.h"
#include "tests/support/helpers.h"

#include <QDir>
#include <QScopeGuard>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace {

constexpr uid_t root = 0;
constexpr uid_t user = 54321;
constexpr uid_t owner = 54322; // of a directory
constexpr uid_t stranger = 54323;

enum class Entry { File, SecondName, Link };

} // namespace

// Each row has a working directory of its own.
class FilesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        enterEmptyDirectory();
        umask(0);
    }

    void overwriting_data()
    {
        QTest::addColumn<mode_t>("directoryMode");
        QTest::addColumn<uid_t>("directoryOwner");
        QTest::addColumn<Entry>("entry");
        QTest::addColumn<uid_t>("entryOwner");
        QTest::addColumn<QString>("error");
        const QString foreign = u"belongs to another user"_s;
        const QString severalNames = u"has other names, where others can write"_s;
        const auto add = [](const char* name, mode_t directoryMode, uid_t directoryOwner,
                            Entry entry, uid_t entryOwner, const QString& error = {}) {
            QTest::newRow(name) << directoryMode << directoryOwner << entry << entryOwner << error;
        };
        add("stranger's file, sticky for a group", 01775, root, Entry::File, stranger, foreign);
        add("colleague's file, directory of a group", 0775, owner, Entry::File, stranger);
        add("root's file, another's sticky directory", 01777, owner, Entry::File, root);
        add("stranger's link, directory of a group", 0775, owner, Entry::Link, stranger, foreign);
        add("stranger's link, another's own directory", 0755, owner, Entry::Link, stranger);
        add("file of two names, group's", 0775, root, Entry::SecondName, user, severalNames);
        add("file of two names, own directory", 0755, user, Entry::SecondName, user);
    }

    void overwriting()
    {
        QFETCH(mode_t, directoryMode);
        QFETCH(uid_t, directoryOwner);
        QFETCH(Entry, entry);
        QFETCH(uid_t, entryOwner);
        if (geteuid() != root) {
            QSKIP("Only root can be several users");
        }
        QVERIFY(writeFile(u"target"_s, "old") && QDir().mkdir(u"shared"_s));
        if (entry == Entry::File) {
            fs::rename("target", "shared/name");
        } else if (entry == Entry::Link) {
            fs::create_symlink("../target", "shared/name");
        } else {
            fs::create_hard_link("target", "shared/name");
        }
        QCOMPARE(chmod(".", 0755) + chmod("shared", directoryMode), 0);
        QCOMPARE(chown("shared", directoryOwner, 0) + lchown("shared/name", entryOwner, 0), 0);

        QCOMPARE(seteuid(user), 0);
        const auto asRoot = qScopeGuard([] { QCOMPARE(seteuid(root), 0); });
        const Result<Descriptor> file = openToOverwrite(u"shared/name"_s);
        QTEST(file ? QString() : file.error().text(), "error");
        QCOMPARE(content(u"shared/name"_s), file ? QByteArray() : QByteArray("old"));
        if (file) {
            QCOMPARE(fcntl(file->get(), F_GETFD), FD_CLOEXEC);
            QCOMPARE(fcntl(file->get(), F_GETFL) & O_NONBLOCK, 0);
        }
    }

    // A file server that maps users gives a new file another owner than the process.
    void newFileOfAMappedUserIsTrusted()
    {
        if (geteuid() != root) {
            QSKIP("Only root can make files of another user");
        }
        QCOMPARE(chmod(".", 01777) + chown(".", owner, 0), 0);
        setfsuid(stranger);
        const Result<Descriptor> file = openToOverwrite(u"name"_s);
        setfsuid(root);
        QCOMPARE(file ? QString() : file.error().text(), QString());
    }

    void replacesALinkAndMakesAFileOfTheLongestName()
    {
        QVERIFY(writeFile(u"file"_s, "old") && QFile::link(u"file"_s, u"link"_s));
        const QString longest(255, u'n');
        umask(0777);
        const bool replaced = replaceFile(u"link"_s, "new") && replaceFile(longest, "new");
        umask(0);
        QVERIFY(replaced);
        QCOMPARE(content(u"file"_s), "old");
        for (const QString& name : {u"link"_s, longest}) {
            QCOMPARE(content(name), "new");
            QCOMPARE(fs::symlink_status(name.toStdString()).permissions(), fs::perms(0600));
        }
    }

    // The kernel's signal comes when a part is written and the rest is not.
    void nobodyReadsAReplacedFileBeforeItIsComplete()
    {
        static QStringList names;
        static fs::perms mode;
        QVERIFY(writeFile(u"file"_s, "old"));
        signal(SIGXFSZ, [](int) {
            names = namesIn(u"."_s);
            mode = fs::status(names.first().toStdString()).permissions();
        });
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit tenBytes = {10, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tenBytes);
        const bool replaced = replaceFile(u"file"_s, "more than ten bytes");
        setrlimit(RLIMIT_FSIZE, &limit);
        QCOMPARE(names.size(), 2);
        QCOMPARE(mode, fs::perms(0200));
        QVERIFY(!replaced);
        QCOMPARE(namesIn(u"."_s), QStringList(u"file"_s));
        QCOMPARE(content(u"file"_s), QByteArray("old"));
    }

    void modifiedTimeChangesAlone()
    {
        QVERIFY(writeFile(u"file"_s, {}));
        const QDateTime modified = QDateTime::fromMSecsSinceEpoch(1500);
        const QDateTime accessed = QFileInfo(u"file"_s).lastRead();
        QVERIFY(sc_setModifiedTime(u"file"_s, modified));
        QCOMPARE(QFileInfo(u"file"_s).lastModified(), modified);
        QCOMPARE(QFileInfo(u"file"_s).lastRead(), accessed);
    }

    void descriptorIsOpenInEveryMode()
    {
        const Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
        QVERIFY(sc_isFileDescriptorOpen(descriptor.get(), QIODevice::WriteOnly));
        QVERIFY(!sc_isFileDescriptorOpen(-1, QIODevice::WriteOnly));
    }
};

QTEST_GUILESS_MAIN(FilesTest)
#include "tst_files.moc"
