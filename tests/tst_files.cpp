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

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
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
        const auto add = [](const char* name, mode_t directoryMode, uid_t directoryOwner,
                            Entry entry, uid_t entryOwner, const QString& error = {}) {
            QTest::newRow(name) << directoryMode << directoryOwner << entry << entryOwner << error;
        };
        const QString foreign = u"belongs to another user"_s;
        const QString severalNames = u"has other names, where others can write"_s;
        add("stranger's file, sticky for a group", 01775, root, Entry::File, stranger, foreign);
        add("stranger's file, sticky for its owner alone", 01755, owner, Entry::File, stranger);
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
        QFETCH(QString, error);
        if (geteuid() != root) {
            QSKIP("Only root can be several users");
        }
        // Where a link leads is of no importance.
        QVERIFY(writeFile(u"target"_s, "old") && QDir().mkdir(u"shared"_s));
        QCOMPARE(chown(".", user, 0) + chown("target", stranger, 0), 0);
        if (entry == Entry::File) {
            QVERIFY(writeFile(u"shared/name"_s, "old"));
        } else {
            QCOMPARE(entry == Entry::Link ? symlink("../target", "shared/name")
                                          : link("target", "shared/name"),
                     0);
        }
        QCOMPARE(chmod(".", 0755) + chmod("shared", directoryMode), 0);
        QCOMPARE(chown("shared", directoryOwner, 0), 0);
        QCOMPARE(lchown("shared/name", entryOwner, 0), 0);

        QCOMPARE(seteuid(user), 0);
        const auto asRoot = qScopeGuard([] { QCOMPARE(seteuid(root), 0); });
        Result<Descriptor> file = openToOverwrite(u"shared/name"_s);
        QCOMPARE(file ? QString() : file.error().text(), error);
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

    void overwritesAFileThatOthersMakeAndRemove()
    {
        std::atomic<bool> done = false;
        std::thread others([&done] {
            while (!done) {
                const Descriptor fd(open("name", O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
                unlink("name");
            }
        });
        QString error;
        for (int i = 0; i < 20000 && error.isEmpty(); ++i) {
            const Result<Descriptor> file = openToOverwrite(u"name"_s);
            error = file ? QString() : file.error().text();
        }
        done = true;
        others.join();
        QCOMPARE(error, QString());
    }

    void replacesALinkAndMakesAFileOfTheLongestName()
    {
        for (const QString& name : {u"link"_s, QString(255, u'n')}) {
            QVERIFY(writeFile(u"file"_s, "old") && QFile::link(u"file"_s, u"link"_s));
            umask(0777);
            const bool replaced = replaceFile(name, "new");
            umask(0);
            QVERIFY(replaced);
            QVERIFY(!QFileInfo(name).isSymLink());
            QCOMPARE(content(name), QByteArray("new"));
            QCOMPARE(fs::status(name.toStdString()).permissions(), fs::perms(0600));
            QVERIFY(content(u"file"_s) == "old" && QFile::remove(u"link"_s));
        }
        QCOMPARE(namesIn(u"."_s).filter(u".zorv"_s), QStringList());
    }

    // The kernel's signal comes when a part is written and the rest is not.
    void nobodyReadsAReplacedFileBeforeItIsComplete()
    {
        static QStringList names;
        static fs::perms mode;
        names.clear();
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
        const QDateTime modified = QDateTime::fromMSecsSinceEpoch(-1500);
        const QDateTime accessed = QDateTime::fromMSecsSinceEpoch(42043);
        QFile file(u"file"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.setFileTime(accessed, QFileDevice::FileAccessTime));
        QVERIFY(sc_setModifiedTime(u"file"_s, modified));
        QCOMPARE(QFileInfo(u"file"_s).lastModified(), modified);
        QCOMPARE(QFileInfo(u"file"_s).lastRead(), accessed);
        QVERIFY(!sc_setModifiedTime(u"missing"_s, modified));
    }

    void descriptorIsOpenUntilItIsClosed()
    {
        Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const int fd = descriptor.get();
        QVERIFY(sc_isFileDescriptorOpen(fd, QIODevice::WriteOnly));
        descriptor = Descriptor();
        QVERIFY(!sc_isFileDescriptorOpen(fd, QIODevice::WriteOnly));
    }
};

QTEST_GUILESS_MAIN(FilesTest)
#include "tst_files.moc"
