// The portable launcher alone with the C library: no Qt, no other library, no
// /proc, no configuration.

#include "tests/support/installation.h"
#include "tests/support/namespace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <cstdio>
#include <unistd.h>

class PortableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void launchesInAnEmptyRoot();
};

namespace {

// The files that the program's loader maps, the loader among them.
QStringList librariesOf(const QString& program)
{
    QProcess ldd;
    ldd.start(QStringLiteral("ldd"), {program});
    ldd.waitForFinished();
    const QString output = QFile::decodeName(ldd.readAllStandardOutput());
    static const QRegularExpression pattern(QStringLiteral("(/\\S+) \\(0x"));
    QStringList files;
    for (const QRegularExpressionMatch& match : pattern.globalMatch(output)) {
        files += match.captured(1);
    }
    return files;
}

} // namespace

void PortableTest::launchesInAnEmptyRoot()
{
    const Installation installation;
    const QStringList libraries = librariesOf(installation.launcher());
    QVERIFY(!libraries.isEmpty());
    static const QRegularExpression ofTheCLibrary(QStringLiteral("/(lib[cm]\\.so|ld-linux)[^/]*$"));
    QCOMPARE(libraries.filter(ofTheCLibrary), libraries);
    for (const QString& file : libraries) {
        const QString copy = installation.path(file.mid(1));
        QDir().mkpath(QFileInfo(copy).path());
        QVERIFY(QFile::copy(file, copy));
    }

    Launch launch(QStringLiteral("/bin/zorv-mpirun"));
    launch.setBeforeExec([root = QFile::encodeName(installation.path(QString()))] {
        if (chroot(root.constData()) == -1 || chdir("/") == -1) {
            perror("chroot");
        }
    });
    launch.setHelperActions(QStringLiteral("--record /record"));
    launch.run({"-np", "2"});
    QCOMPARE(launch.errors(), QByteArray());
    QCOMPARE(launch.status(), 0);
    const QList<QByteArray> expected{"/bin/zorv-debugger", "--zorvmpirun", "-np", "2"};
    QCOMPARE(readRecord(installation.path(QStringLiteral("record"))), expected);
}

int main(int argc, char** argv)
{
    if (!Namespace::enter()) {
        return Namespace::Skipped;
    }
    PortableTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_portable.moc"
