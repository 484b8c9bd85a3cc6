#include "mpirun/restartwatcher.h"

#include "common/compatibility_simple/files/emptyfile.h"
#include "common/compatibility_simple/files/existence.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <unistd.h>

namespace {

constexpr int mostLooks = 10;
constexpr qint64 firstReportMs = 10000;
constexpr qint64 nextReportMs = 3600000;
constexpr qint64 shortestPauseMs = 500;

void reportHold(const QString& fileName, qint64 waitedMs)
{
    const qint64 age = QFileInfo(fileName).lastModified().secsTo(QDateTime::currentDateTime());
    qWarning("%s: the launcher has waited for %lld s because this file exists; it is %lld s old. "
             "Remove it to let the launcher go on.",
             fileName.toLocal8Bit().constData(), static_cast<long long>(waitedMs / 1000),
             static_cast<long long>(qMax<qint64>(age, 0)));
}

void reportLook(const QString& fileName, int error)
{
    qCritical("%s: %s; the launcher goes on as if it did not exist",
              fileName.toLocal8Bit().constData(), qt_error_string(error).toLocal8Bit().constData());
}

} // namespace

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

void RestartWatcher::setDirectoryWasWritable(bool wasWritable)
{
    mDirectoryWasWritable = wasWritable;
}

void RestartWatcher::checkForQuickRestart()
{
    waitWhileHeld();
    if (!exists(mRestartFileName)) {
        Q_EMIT quit();
        return;
    }
    removeRequest();
    if (createEmptyFile(mRestartHoldFileName)) {
        Q_EMIT restart();
    } else {
        Q_EMIT quit();
    }
}

bool RestartWatcher::exists(const QString& fileName) const
{
    Existence existence = existenceOf(fileName);
    for (int looks = 1; existence.error != 0 && !isLasting(existence.error) && looks < mostLooks;
         ++looks) {
        // sleep(3) would return early when the launcher passes a signal on.
        QThread::sleep(1);
        existence = existenceOf(fileName);
    }
    if (existence.error != 0) {
        reportLook(fileName, existence.error);
    }
    return existence.exists;
}

bool RestartWatcher::isLasting(int error) const
{
    return error == ELOOP || error == ENAMETOOLONG || (error == EACCES && !mDirectoryWasWritable);
}

void RestartWatcher::waitWhileHeld() const
{
    QElapsedTimer waited;
    waited.start();
    qint64 nextReport = firstReportMs;
    while (exists(mRestartHoldFileName)) {
        if (waited.elapsed() >= nextReport) {
            reportHold(mRestartHoldFileName, waited.elapsed());
            nextReport += nextReportMs;
        }
        sleep(1);
    }
}

void RestartWatcher::removeRequest()
{
    QFile request(mRestartFileName);
    if (request.remove() || !exists(mRestartFileName)) {
        return;
    }
    if (!mReportedRequest) {
        qCritical("%s: %s; it asks for a restart each time that the helper ends",
                  mRestartFileName.toLocal8Bit().constData(),
                  request.errorString().toLocal8Bit().constData());
        mReportedRequest = true;
    }
    if (mSinceRequestThatStays.isValid()) {
        const qint64 pause = shortestPauseMs - mSinceRequestThatStays.elapsed();
        QThread::msleep(static_cast<unsigned long>(qMax<qint64>(pause, 0)));
    }
    mSinceRequestThatStays.start();
}
