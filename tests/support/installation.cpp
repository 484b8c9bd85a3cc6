// A temporary installation of the real launcher, and launches of it.

#include "tests/support/installation.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <unistd.h>

namespace {

constexpr int endTimeoutMs = 60000;

} // namespace

Installation::Installation(const QString& binName)
    : mBinName(binName)
{
    const QDir root(mRoot.path());
    for (const QString& directory :
         {binName, QStringLiteral("lib"), QStringLiteral("libexec"), QStringLiteral("session")}) {
        root.mkdir(directory);
    }
    QFile::copy(QStringLiteral(ZORV_MPIRUN), launcher());
    QFile::copy(QStringLiteral(TESTCHILD), helper());
}

Installation::~Installation()
{
    mRoot.setAutoRemove(!QTest::currentTestFailed());
}

QString Installation::launcher() const
{
    return path(mBinName + QStringLiteral("/zorv-mpirun"));
}

QString Installation::helper() const
{
    return path(mBinName + QStringLiteral("/zorv-debugger"));
}

Launch::Launch(const QString& program)
    : mEnvironment(QProcessEnvironment::systemEnvironment())
    , mProgram(QFile::encodeName(program))
{
    const QStringList names = mEnvironment.keys();
    for (const QString& name : names) {
        if (name.startsWith(QLatin1String("ZORV_")) || name.startsWith(QLatin1String("PELK_")) ||
            name.startsWith(QLatin1String("TALVORA_"))) {
            mEnvironment.remove(name);
        }
    }
}

void Launch::setVariable(const QString& name, const QString& value)
{
    mEnvironment.insert(name, value);
}

void Launch::setRawVariable(const QByteArray& name, const QByteArray& value)
{
    mRawVariables.push_back(name + '=' + value);
}

void Launch::setHelperActions(const QString& actions)
{
    setVariable(QStringLiteral("TESTCHILD"), actions);
}

void Launch::start(const QList<QByteArray>& arguments)
{
    mArguments = arguments;
    std::vector<char*> vector{mProgram.data()};
    for (QByteArray& argument : mArguments) {
        vector.push_back(argument.data());
    }
    vector.push_back(nullptr);
    mProcess.setProcessEnvironment(mEnvironment);
    // QProcess would pass the arguments through QString.
    std::vector<QByteArray> variables = mRawVariables;
    for (const QString& entry : mEnvironment.toStringList()) {
        variables.push_back(entry.toLocal8Bit());
    }
    std::vector<char*> environment;
    for (QByteArray& variable : variables) {
        environment.push_back(variable.data());
    }
    environment.push_back(nullptr);
    mProcess.setChildProcessModifier([&] {
        if (mBeforeExec) {
            mBeforeExec();
        }
        execve(mProgram.constData(), vector.data(), environment.data());
    });
    mProcess.start(QFile::decodeName(mProgram), QStringList());
    mProcess.waitForStarted();
}

void Launch::run(const QList<QByteArray>& arguments)
{
    start(arguments);
    QVERIFY(waitForEnd());
}

bool Launch::waitForEnd()
{
    const bool ended = mProcess.waitForFinished(endTimeoutMs);
    mOutput += mProcess.readAllStandardOutput();
    mErrors += mProcess.readAllStandardError();
    return ended;
}

int Launch::status() const
{
    return mProcess.exitStatus() == QProcess::CrashExit ? -mProcess.exitCode()
                                                        : mProcess.exitCode();
}

QList<QByteArray> readRecord(const QString& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QList<QByteArray> strings = file.readAll().split('\0');
    strings.removeLast();
    return strings;
}
