// A temporary installation.

#pragma once

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

/// A temporary directory that holds the real launcher, the test child in the
/// place of its helper, and the directories that an installation has.
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
    QString path(const QString& relative) const { return mRoot.filePath(relative); }

private:
    QTemporaryDir mRoot;
};
