// The installation's directories.

#include "common/talvoraglobals.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <cstdlib>

class TalvoraGlobalsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bluegeneTmpDir_data();
    void bluegeneTmpDir();
    void goneAfterExit();
    void layouts();
    void warnsOnceForEachMissingDirectory_data();
    void warnsOnceForEachMissingDirectory();
};

namespace {

// Runs this program as a child that answers one question and ends.
QByteArray answerOfNewProcess(const QString& question, const QStringList& variables)
{
    QProcess child;
    child.setEnvironment(variables);
    child.start(QCoreApplication::applicationFilePath(), {question});
    child.waitForFinished();
    return child.readAllStandardOutput();
}

int answer(const char* question)
{
    if (qstrcmp(question, "tmp") == 0) {
        printf("<%s>", qPrintable(TalvoraGlobals::instance()->bluegeneTmpDir()));
    } else {
        // Registered before the instance is made, so called after it is gone.
        atexit([] { printf(TalvoraGlobals::instance() ? "there" : "gone"); });
        TalvoraGlobals::instance();
    }
    return 0;
}

} // namespace

void TalvoraGlobalsTest::bluegeneTmpDir_data()
{
    QTest::addColumn<QStringList>("variables");
    QTest::addColumn<QByteArray>("expected");

    const QString zorv = QStringLiteral("ZORV_BG_TMPDIR=");
    const QString pelk = QStringLiteral("PELK_BG_TMPDIR=/pelk");
    QTest::newRow("not set") << QStringList() << QByteArray("</tmp>");
    QTest::newRow("set and empty") << QStringList{zorv, pelk} << QByteArray("<>");
    QTest::newRow("second name") << QStringList{pelk} << QByteArray("</pelk>");
}

void TalvoraGlobalsTest::bluegeneTmpDir()
{
    QFETCH(QStringList, variables);
    QFETCH(QByteArray, expected);
    QCOMPARE(answerOfNewProcess(QStringLiteral("tmp"), variables), expected);
}

void TalvoraGlobalsTest::goneAfterExit()
{
    QCOMPARE(answerOfNewProcess(QStringLiteral("exit"), {}), QByteArray("gone"));
}

void TalvoraGlobalsTest::layouts()
{
    TalvoraGlobals* globals = TalvoraGlobals::instance();
    globals->setLocationsAsFlatPath(QStringLiteral("/flat"));
    QVERIFY(globals->metricsPath().isNull());
    QVERIFY(globals->localConfigDir().isNull());
    for (const QString& path :
         {globals->installPath(), globals->binPath(), globals->libPath(), globals->libexecPath(),
          globals->resourcesPath(), globals->iconsPath()}) {
        QCOMPARE(path, QStringLiteral("/flat"));
    }

    const QTemporaryDir root;
    const QDir dir(root.path());
    for (const char* name : {"bin", "lib", "libexec"}) {
        QVERIFY(dir.mkdir(QLatin1String(name)));
    }
    globals->setLocationsFromInstallPath(root.path());
    QCOMPARE(globals->installPath(), root.path());
    QCOMPARE(globals->binPath(), root.path() + QStringLiteral("/bin"));
    QCOMPARE(globals->libPath(), root.path() + QStringLiteral("/lib"));
    QCOMPARE(globals->libexecPath(), root.path() + QStringLiteral("/libexec"));
    QCOMPARE(globals->resourcesPath(), root.path() + QStringLiteral("/resource"));
    QCOMPARE(globals->iconsPath(), root.path() + QStringLiteral("/icons"));
    QCOMPARE(globals->metricsPath(), root.path() + QStringLiteral("/pelk/metrics"));
    globals->setLocationsAsFlatPath(QStringLiteral("/flat"));
    QCOMPARE(globals->metricsPath(), root.path() + QStringLiteral("/pelk/metrics"));

    globals->initPaths();
    QCOMPARE(globals->installPath(),
             QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    QCOMPARE(globals->localConfigDir(), QStringLiteral(".talvora"));
}

void TalvoraGlobalsTest::warnsOnceForEachMissingDirectory_data()
{
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QStringList>("missing");

    const QStringList none;
    QTest::newRow("lib alone") << QStringList{QStringLiteral("bin"), QStringLiteral("libexec")}
                               << QStringList{QStringLiteral("/lib")};
    QTest::newRow("everything, in order")
        << none
        << QStringList{QString(), QStringLiteral("/bin"), QStringLiteral("/lib"),
                       QStringLiteral("/libexec")};
}

void TalvoraGlobalsTest::warnsOnceForEachMissingDirectory()
{
    QFETCH(QStringList, present);
    QFETCH(QStringList, missing);

    const QTemporaryDir temporary;
    const QString root = temporary.filePath(QStringLiteral("root"));
    for (const QString& name : present) {
        QVERIFY(QDir().mkpath(root + QLatin1Char('/') + name));
    }
    static QStringList messages;
    messages.clear();
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& text) { messages += text; });
    TalvoraGlobals::instance()->setLocationsFromInstallPath(root);
    qInstallMessageHandler(previous);

    QStringList expected;
    for (const QString& name : missing) {
        expected += QStringLiteral("Unable to find directory '%1'.\nYour Velmor product "
                                   "installation may be incomplete or corrupted.")
                        .arg(root + name);
    }
    QCOMPARE(messages, expected);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 2 && (qstrcmp(argv[1], "tmp") == 0 || qstrcmp(argv[1], "exit") == 0)) {
        return answer(argv[1]);
    }
    TalvoraGlobalsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_talvoraglobals.moc"
