#include "mpirun/restartableprocess.h"

RestartableProcess::RestartableProcess(QObject* parent)
    : QProcess(parent)
    , mMode(QIODevice::NotOpen)
    , mUseArguments(false)
{
}

RestartableProcess::~RestartableProcess() = default;

void RestartableProcess::start(const QString& program, const QStringList& arguments,
                               QIODevice::OpenMode mode)
{
    mProgram = program;
    mArguments = arguments;
    mMode = mode;
    mUseArguments = true;
    restart();
}

void RestartableProcess::start(const QString& program, QIODevice::OpenMode mode)
{
    mProgram = program;
    mArguments.clear();
    mMode = mode;
    mUseArguments = false;
    restart();
}

void RestartableProcess::restart()
{
    if (mUseArguments) {
        QProcess::start(mProgram, mArguments, mMode);
    } else {
        // QProcess::startCommand() crashes on an empty command.
        const QStringList words = splitCommand(mProgram);
        QProcess::start(words.value(0), words.mid(1), mMode);
    }
}
