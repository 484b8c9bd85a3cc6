// A session saved where others can write, with things of another user at the names
// of its files.

#include "backend/backenduserdata.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <sys/wait.h>
#include <unistd.h>

class NeighboursTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // By a user without root's rights, where nobody can take away what belongs to
    // others.
    void savedSession()
    {
        const struct
        {
            QByteArray whatIsThere;
            bool saved;
        } rows[] = {
            {"touch alpha-3 && chown 54321 alpha-3", false},
            {"ln -s mine alpha-3 && chown -h 54321 alpha-3", false},
            {"true", true},
        };
        for (const auto& row : rows) {
            const QTemporaryDir directory;
            const QByteArray path = QFile::encodeName(directory.path());
            const auto shell = [&](const QByteArray& commands) {
                return system(("cd " + path + " && " + commands).constData()) == 0;
            };
            if (!shell("chmod 1777 . && touch mine && chown 54322 mine")) {
                QSKIP("only root can be several users");
            }
            QVERIFY(
                shell("ln -s mine latest && ln -s mine alpha-latest && chown -h 54321 *latest"));
            QVERIFY(shell("echo precious >mine && " + row.whatIsThere));
            const pid_t child = fork();
            if (child == 0) {
                qputenv("ZORV_SESSION_PATH", path);
                BackendUserData session;
                static_cast<UserData&>(session).load(
                    QString(),
                    QStringLiteral("<session host='alpha' session='3' cookie='secret'/>"));
                const bool other = setgid(54322) == 0 && setuid(54322) == 0;
                _exit(!other ? 2 : session.save(QString()) ? 1 : 0);
            }
            int status = -1;
            QCOMPARE(waitpid(child, &status, 0), child);
            QCOMPARE(WEXITSTATUS(status), row.saved ? 1 : 0);
            QVERIFY2(shell("grep -q secret alpha-3") == row.saved, row.whatIsThere);
            QVERIFY2(shell("grep precious mine && [ $(readlink latest) = mine ]"), row.whatIsThere);
            // No temporary file is left.
            QVERIFY2(shell("[ \"$(echo *)\" = 'alpha-3 alpha-latest latest mine' ]"),
                     row.whatIsThere);
        }
    }
};

QTEST_GUILESS_MAIN(NeighboursTest)
#include "tst_neighbours.moc"
