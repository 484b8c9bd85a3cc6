// A session saved where others can write, with things of another user at the names
// of its files.

#include "backend/backenduserdata.h"

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
        const std::pair<QByteArray, bool> rows[] = {
            {"touch alpha-3 && chown 54321 alpha-3", false},
            {"ln -s mine alpha-3 && chown -h 54321 alpha-3", false},
            {"true", true},
        };
        for (const auto& [makeSessionFile, saved] : rows) {
            const QTemporaryDir directory;
            const QByteArray path = QFile::encodeName(directory.path());
            const auto shell = [&](const QByteArray& commands) {
                return system(("cd " + path + " && " + commands).constData()) == 0;
            };
            if (!shell("chmod 1777 . && echo precious >mine && chown 54322 mine")) {
                QSKIP("only root can be several users");
            }
            QVERIFY(
                shell("ln -s mine latest && ln -s mine alpha-latest && chown -h 54321 *latest"));
            QVERIFY(shell(makeSessionFile));
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
            QCOMPARE(WEXITSTATUS(status), saved ? 1 : 0);
            QVERIFY2(shell("grep -q secret alpha-3") == saved, makeSessionFile);
            // No temporary file is left.
            QVERIFY2(shell("[ \"$(echo * $(cat mine) $(readlink latest))\" = "
                           "'alpha-3 alpha-latest latest mine precious mine' ]"),
                     makeSessionFile);
        }
    }
};

QTEST_GUILESS_MAIN(NeighboursTest)
#include "tst_neighbours.moc"
