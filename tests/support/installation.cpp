// A temporary installation of the real launcher, and launches of it.

#include "tests/support/installation.h"

#include <QDir>
#include <QFile>

#include <unistd.h>
#include <vector>

namespace {

constexpr int endTimeoutMs = 60000;

// Valid as long as the strings are.
std::vector<char*> pointers(QList<QByteArray>& strings)
{
    std::vector<char*> result;
    for (QByteArray& string : strings) {
        result.push_back(string.data());
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

Installation::Installation(const QString& binName)
    : mBinName(binName)
{
    QDir(path(binName)).mkpath(QStringLiteral("."));
    for (const char* directory : {"lib", "libexec", "session"}) {
        QDir(mRoot.path()).mkdir(QString::fromLatin1(directory));
    }
    QFile::copy(QStringLiteral(ZORV_MPIRUN), launcher());
    QFile::copy(QStringLiteral(TESTCHILD), helper());
}

Launch::Launch(const QString& program)
    : mProgram(QFile::encodeName(program))
{
    const QStringList names = mEnvironment.keys();
    for (const char* prefix : {"ZORV_", "PELK_", "TALVORA_"}) {
        for (const QString& name : names) {
            if (name.startsWith(QLatin1String(prefix))) {
                mEnvironment.remove(name);
            }
        }
    }
}

void Launch::start(const QList<QByteArray>& arguments)
{
    // QProcess would pass the arguments through QString.
    QList<QByteArray> strings = QList<QByteArray>{mProgram} + arguments;
    QList<QByteArray> variables = mRawVariables;
    for (const QString& entry : mEnvironment.toStringList()) {
        variables += entry.toLocal8Bit();
    }
    const std::vector<char*> argv = pointers(strings);
    const std::vector<char*> envp = pointers(variables);
    mProcess.setChildProcessModifier([&] {
        if (mBeforeExec) {
            mBeforeExec();
        }
        execve(mProgram.constData(), argv.data(), envp.data());
    });
    mProcess.start(QFile::decodeName(mProgram), QStringList());
    mProcess.waitForStarted();
}

bool Launch::waitForEnd()
{
    const bool ended = mProcess.waitForFinished(endTimeoutMs);
    mOutput += mProcess.readAllStandardOutput();
    mErrors += mProcess.readAllStandardError();
    return ended;
}

QByteArray readFile(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<QByteArray> readRecord(const QString& fileName)
{
    QList<QByteArray> strings = readFile(fileName).split('\0');
    strings.removeLast();
    return strings;
}
