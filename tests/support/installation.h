// A temporary installation of the real launcher, and launches of it.

#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <vector>

/// A temporary directory that holds the real launcher, the test child in the
/// place of its helper, and the directories that an installation has. It is
/// kept when the running test has failed.
class Installation
{
public:
    /// `binName` is the name of the directory that holds the programs.
    explicit Installation(const QString& binName = QStringLiteral("bin"));
    ~Installation();

    QString path(const QString& relative) const { return mRoot.filePath(relative); }
    QString launcher() const;
    QString helper() const;

private:
    QTemporaryDir mRoot;
    QString mBinName;
};

/// One launch of a program, with arguments that may hold any byte.
class Launch
{
public:
    explicit Launch(const QString& program);

    /// Sets a variable of the program's environment; by default it has none
    /// of the suite's settings.
    void setVariable(const QString& name, const QString& value);
    /// The same with a value that may hold any byte but NUL.
    void setRawVariable(const QByteArray& name, const QByteArray& value);
    /// What the helper is to do: actions of the test child.
    void setHelperActions(const QString& actions);
    /// Runs in the new process just before its exec.
    void setBeforeExec(std::function<void()> beforeExec) { mBeforeExec = std::move(beforeExec); }

    void start(const QList<QByteArray>& arguments = {});
    /// Starts, and waits for the end.
    void run(const QList<QByteArray>& arguments = {});
    /// Waits for the end of a started launch; false when it took a minute.
    [[nodiscard]] bool waitForEnd();

    QProcess& process() { return mProcess; }
    /// The exit code, or minus the number of the signal that ended the program.
    int status() const;
    QByteArray output() const { return mOutput; }
    QByteArray errors() const { return mErrors; }

private:
    QProcess mProcess;
    QProcessEnvironment mEnvironment;
    std::vector<QByteArray> mRawVariables;
    QByteArray mProgram;
    QList<QByteArray> mArguments;
    std::function<void()> mBeforeExec;
    QByteArray mOutput;
    QByteArray mErrors;
};

/// The strings of a file in which each ends with a NUL byte.
QList<QByteArray> readRecord(const QString& fileName);
