// Files: what is opened and what is refused, what readers see of a file that is replaced.

#include "common/compatibility_simple/files/descriptor.h"
#include "common/compatibility_simple/files/emptyfile.h"
#include "common/compatibility_simple/files/metadata.h"
#include "common/compatibility_simple/files/overwrite.h"
#include "common/compatibility_simple/files/read.h"
#include "common/compatibility_simple/files/replace.h"
#include "tests/support/texts.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr uid_t root = 0;
constexpr uid_t user = 54321;
constexpr uid_t owner = 54322; // of a directory
constexpr uid_t stranger = 54323;

// Runs as another user while it lives.
class Becoming
{
public:
    explicit Becoming(uid_t uid) { mChanged = seteuid(uid) == 0; }
    ~Becoming() { mChanged = seteuid(root) == 0; }

private:
    bool mChanged;
};

enum class Entry { File, SecondName, Link, DeadLink, Fifo, ReadFifo };

QByteArray content(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "cannot be read";
}

mode_t modeOf(const QString& fileName)
{
    struct stat status = {};
    stat(QFile::encodeName(fileName).constData(), &status);
    return status.st_mode & 07777;
}

// Makes an entry called "shared/name"; a link, and a file of two names, is the file
// "target" as well.
void make(Entry entry)
{
    const char* const name = "shared/name";
    switch (entry) {
    case Entry::File:
        QVERIFY(writeFile(text(name), "old"));
        break;
    case Entry::SecondName:
        QCOMPARE(link("target", name), 0);
        break;
    case Entry::Link:
        QCOMPARE(symlink("../target", name), 0);
        break;
    case Entry::DeadLink:
        QCOMPARE(symlink("../missing", name), 0);
        break;
    case Entry::Fifo:
    case Entry::ReadFifo:
        QCOMPARE(mkfifo(name, 0666), 0);
        break;
    }
}

QStringList namesIn(const QString& directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::Hidden |
                                     QDir::NoDotAndDotDot);
}

int openDescriptors()
{
    return int(namesIn(u"/proc/self/fd"_s).size());
}

} // namespace

// Each row has a working directory of its own.
class FilesTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> mDirectory;
    int mOpenDescriptors = 0;

private Q_SLOTS:
    void init()
    {
        mDirectory = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir::setCurrent(mDirectory->path()));
        umask(0);
        mOpenDescriptors = openDescriptors();
    }

    void cleanup() { QCOMPARE(openDescriptors(), mOpenDescriptors); }

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
        const QString noReader = u"is a FIFO without a reader, or a socket"_s;

        add("own file, sticky directory", 01777, root, Entry::File, user);
        add("stranger's file, sticky directory", 01777, root, Entry::File, stranger, foreign);
        add("stranger's file, sticky for a group", 01775, root, Entry::File, stranger, foreign);
        add("stranger's file, sticky for its owner alone", 01755, owner, Entry::File, stranger);
        add("colleague's file, directory of a group", 0775, owner, Entry::File, stranger);
        add("directory owner's file, sticky directory", 01777, owner, Entry::File, owner);
        add("root's file, another's sticky directory", 01777, owner, Entry::File, root);

        add("own link, sticky directory", 01777, root, Entry::Link, user);
        add("own dead link, sticky directory", 01777, root, Entry::DeadLink, user);
        add("stranger's link, sticky directory", 01777, root, Entry::Link, stranger, foreign);
        add("stranger's dead link", 01777, root, Entry::DeadLink, stranger, foreign);
        add("stranger's link, directory of a group", 0775, owner, Entry::Link, stranger, foreign);
        add("stranger's link, another's own directory", 0755, owner, Entry::Link, stranger);
        add("directory owner's link, sticky directory", 01777, owner, Entry::Link, owner);

        add("file of two names, group's", 0775, root, Entry::SecondName, user, severalNames);
        add("file of two names, own directory", 0755, user, Entry::SecondName, user);
        add("own FIFO with a reader, sticky directory", 01777, root, Entry::ReadFifo, user);
        add("stranger's FIFO with a reader", 01777, root, Entry::ReadFifo, stranger, foreign);
        add("FIFO without a reader", 0755, user, Entry::Fifo, user, noReader);
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
        make(entry);
        QCOMPARE(chmod(".", 0755) + chmod("shared", directoryMode), 0);
        QCOMPARE(chown("shared", directoryOwner, 0), 0);
        QCOMPARE(lchown("shared/name", entryOwner, 0), 0);
        const Descriptor reader(
            entry == Entry::ReadFifo ? open("shared/name", O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1);

        const Becoming other(user);
        Result<Descriptor> file = openToOverwrite(u"shared/name"_s);
        QCOMPARE(file ? QString() : file.error().text(), error);
        if (entry == Entry::DeadLink) {
            QCOMPARE(QFile::exists(u"missing"_s), file.has_value());
        } else if (entry != Entry::Fifo && entry != Entry::ReadFifo) {
            QCOMPARE(content(u"shared/name"_s), file ? QByteArray() : QByteArray("old"));
        }
        if (file) {
            QCOMPARE(fcntl(file->get(), F_GETFD), FD_CLOEXEC);
            QCOMPARE(fcntl(file->get(), F_GETFL) & O_NONBLOCK, 0);
            QCOMPARE(write(file->get(), "new", 3), 3);
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
        struct stat status;
        QCOMPARE(fstat(file->get(), &status), 0);
        QCOMPARE(status.st_uid, stranger);
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

    void emptyFileIsReportedWhenItCannotBeMade()
    {
        QVERIFY(writeFile(u"file"_s, "old"));
        const MessageCollector messages;
        QVERIFY(createEmptyFile(u"file"_s));
        QCOMPARE(content(u"file"_s), QByteArray());
        QCOMPARE(messages.texts(), QStringList());
        QVERIFY(!createEmptyFile(u"missing/file"_s));
        QCOMPARE(messages.texts(), list({"missing/file: No such file or directory"}));
    }

    void reading_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<int>("error");
        QTest::newRow("whole file") << u"short"_s << QByteArray("short") << 0;
        QTest::newRow("start of a longer file") << u"long"_s << QByteArray("begin") << 0;
        QTest::newRow("size not told") << u"/proc/sys/kernel/ostype"_s << QByteArray("Linux") << 0;
        QTest::newRow("missing file") << u"missing"_s << QByteArray() << ENOENT;
        QTest::newRow("directory") << u"."_s << QByteArray() << ENXIO;
        QTest::newRow("FIFO without a writer") << u"fifo"_s << QByteArray() << ENXIO;
        QTest::newRow("error") << u"/proc/self/mem"_s << QByteArray() << EIO;
    }

    void reading()
    {
        QFETCH(QString, fileName);
        QFETCH(QByteArray, expected);
        QFETCH(int, error);
        QVERIFY(writeFile(u"short"_s, "short") && writeFile(u"long"_s, "beginning"));
        QCOMPARE(mkfifo("fifo", 0666), 0);
        const Result<QByteArray> result = readRegularFile(fileName, 5);
        QCOMPARE(result ? 0 : result.error().code, error);
        QCOMPARE(result ? *result : QByteArray(), expected);
    }

    void replacing_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("file") << u"file"_s;
        QTest::newRow("link to a file") << u"link"_s;
        QTest::newRow("name of the greatest length") << QString(255, u'n');
    }

    void replacing()
    {
        QFETCH(QString, name);
        QVERIFY(writeFile(u"file"_s, "old") && QFile::link(u"file"_s, u"link"_s));
        umask(0777);
        const bool replaced = replaceFile(name, "new");
        umask(0);
        QVERIFY(replaced);
        QVERIFY(!QFileInfo(name).isSymLink());
        QCOMPARE(content(name), QByteArray("new"));
        QCOMPARE(modeOf(name), mode_t(0600));
        QCOMPARE(content(u"file"_s), name == u"file"_s ? QByteArray("new") : QByteArray("old"));
        QCOMPARE(namesIn(u"."_s).filter(u".zorv"_s), QStringList());
    }

    // The kernel's signal comes when a part is written and the rest is not.
    void nobodyReadsAReplacedFileBeforeItIsComplete()
    {
        static QStringList names;
        static mode_t mode;
        names.clear();
        QVERIFY(writeFile(u"file"_s, "old"));
        signal(SIGXFSZ, [](int) {
            names = namesIn(u"."_s);
            mode = modeOf(names.first());
        });
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit tenBytes = {10, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tenBytes);
        const bool replaced = replaceFile(u"file"_s, "more than ten bytes");
        setrlimit(RLIMIT_FSIZE, &limit);
        QCOMPARE(names.size(), 2);
        QCOMPARE(mode, mode_t(0200));
        QVERIFY(!replaced);
        QCOMPARE(namesIn(u"."_s), QStringList(u"file"_s));
        QCOMPARE(content(u"file"_s), QByteArray("old"));
    }

    void replacingALink_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("target");
        QTest::newRow("file") << u"file"_s << QByteArray("some/target");
        QTest::newRow("name of the greatest length")
            << QString(255, u'n') << QByteArray("some/target");
        QTest::newRow("directory") << u"directory"_s << QByteArray();
    }

    void replacingALink()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, target);
        QVERIFY(writeFile(u"file"_s, "old") && QDir().mkdir(u"directory"_s));
        QCOMPARE(replaceLink(u"some/target"_s, name), !target.isNull());
        char seen[100] = {};
        QCOMPARE(readlink(name.toLatin1().constData(), seen, sizeof seen),
                 target.isNull() ? -1 : target.size());
        QCOMPARE(QByteArray(seen), target);
        QCOMPARE(namesIn(u"."_s).filter(u".zorv"_s), QStringList());
    }

    void modifiedTime()
    {
        const QDateTime beforeTheEpoch = QDateTime::fromMSecsSinceEpoch(-1500);
        QVERIFY(writeFile(u"file"_s, "text"));
        const timespec times[2] = {{42, 43000}, {44, 0}};
        QCOMPARE(utimensat(AT_FDCWD, "file", times, 0), 0);
        QVERIFY(sc_setModifiedTime(u"file"_s, beforeTheEpoch));
        QCOMPARE(QFileInfo(u"file"_s).lastModified(), beforeTheEpoch);
        struct stat status;
        QCOMPARE(stat("file", &status), 0);
        QCOMPARE(status.st_atim.tv_sec, 42);
        QCOMPARE(status.st_atim.tv_nsec, 43000);
        QVERIFY(!sc_setModifiedTime(u"missing"_s, beforeTheEpoch));
    }

    void openDescriptor_data()
    {
        QTest::addColumn<int>("flags");
        QTest::addColumn<int>("number");
        QTest::newRow("for reading") << O_RDONLY << 100;
        QTest::newRow("for neither reading nor writing") << O_PATH << 100;
        QTest::newRow("number above those of select(2)") << O_RDONLY << FD_SETSIZE + 100;
    }

    void openDescriptor()
    {
        QFETCH(int, flags);
        QFETCH(int, number);
        const Descriptor original(open("/dev/null", flags | O_CLOEXEC));
        Descriptor copy(fcntl(original.get(), F_DUPFD_CLOEXEC, number));
        if (!copy.isOpen()) {
            QSKIP("The limit of open files is too low");
        }
        const int fd = copy.get();
        QVERIFY(sc_isFileDescriptorOpen(fd, QIODevice::ReadOnly));
        QVERIFY(sc_isFileDescriptorOpen(fd, QIODevice::WriteOnly));
        copy = Descriptor();
        QVERIFY(!sc_isFileDescriptorOpen(fd, QIODevice::ReadOnly));
        QVERIFY(!sc_isFileDescriptorOpen(-1, QIODevice::ReadOnly));
    }
};

QTEST_GUILESS_MAIN(FilesTest)
#include "tst_files.moc"
