// Decides what follows when the helper has finished: a restart or the end.

#include "mpirun/restartwatcher.h"

#include "common/compatibility_simple/files/emptyfile.h"

#include <QFile>

#include <unistd.h>

RestartWatcher::RestartWatcher(QObject* parent)
    : QObject(parent)
{
}

RestartWatcher::~RestartWatcher() = default;

void RestartWatcher::setRestartFileName(const QString& fileName)
{
    mRestartFileName = fileName;
}

QString RestartWatcher::restartFileName() const
{
    return mRestartFileName;
}

void RestartWatcher::setRestartHoldFileName(const QString& fileName)
{
    mRestartHoldFileName = fileName;
}

QString RestartWatcher::restartHoldFileName() const
{
    return mRestartHoldFileName;
}

void RestartWatcher::checkForQuickRestart()
{
    while (QFile::exists(mRestartHoldFileName)) {
        sleep(1);
    }
    if (!QFile::exists(mRestartFileName)) {
        Q_EMIT quit();
        return;
    }
    QFile::remove(mRestartFileName);
    if (createEmptyFile(mRestartHoldFileName)) {
        Q_EMIT restart();
    } else {
        Q_EMIT quit();
    }
}
