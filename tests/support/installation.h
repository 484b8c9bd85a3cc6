// A temporary installation, and launches of its programs.

#pragma once

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

/// A temporary directory that holds the real launcher, the test child in the
/// place of its helper, and the directories that an installation has. It is
/// kept when the running test has failed.
class Installation
{
public:
    Installation()
    {
        for (const char* directory : {"bin", "lib", "libexec", "session"}) {
            QDir(mRoot.path()).mkdir(QString::fromLatin1(directory));
        }
        QFile::copy(QStringLiteral(ZORV_MPIRUN), path(QStringLiteral("bin/zorv-mpirun")));
        QFile::copy(QStringLiteral(TESTCHILD), path(QStringLiteral("bin/zorv-debugger")));
    }
    ~Installation() { mRoot.setAutoRemove(!QTest::currentTestFailed()); }

    QString path(const QString& relative) const { return mRoot.filePath(relative); }

private:
    QTemporaryDir mRoot;
};

/// One launch of a program, in an environment without the suite's settings.
class Launch
{
public:
    explicit Launch(const QString& program) { mProcess.setProgram(program); }

    void setVariable(const QString& name, const QString& value)
    {
        mEnvironment += name + QLatin1Char('=') + value;
    }
    /// Runs in the new process just before its exec.
    void setBeforeExec(const std::function<void()>& beforeExec)
    {
        mProcess.setChildProcessModifier(beforeExec);
    }
    /// Starts, and waits for the end.
    void run(const QList<QByteArray>& arguments = {})
    {
        QStringList texts;
        for (const QByteArray& argument : arguments) {
            texts += QFile::decodeName(argument);
        }
        mProcess.setArguments(texts);
        mProcess.setEnvironment(mEnvironment);
        mProcess.start();
        QVERIFY(mProcess.waitForFinished());
    }

    int status() const { return mProcess.exitCode(); }
    QByteArray output() { return mProcess.readAllStandardOutput(); }
    QByteArray errors() { return mProcess.readAllStandardError(); }

private:
    QProcess mProcess;
    QStringList mEnvironment = QProcess::systemEnvironment().filter(
        QRegularExpression(QStringLiteral("^(?!ZORV_|PELK_|TALVORA_)")));
};
