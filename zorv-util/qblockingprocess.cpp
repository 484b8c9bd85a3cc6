// A process whose reads wait for data.

#include "zorv-util/qblockingprocess.h"

namespace {

// waitForReadyRead() goes on waiting for the process itself when it closes its
// output and runs on; this is how often we look whether it did.
constexpr int lookAgainMs = 100;

} // namespace

QBlockingProcess::QBlockingProcess(QObject* parent)
    : QProcess(parent)
{
    connect(this, &QProcess::readChannelFinished, this, [this] { mOutputClosed = true; });
    connect(this, &QProcess::stateChanged, this, [this](QProcess::ProcessState newState) {
        if (newState == QProcess::Starting) {
            mOutputClosed = false;
        }
    });
}

QByteArray QBlockingProcess::readLine()
{
    while (!canReadLine() && !mOutputClosed && state() != NotRunning) {
        waitForReadyRead(lookAgainMs);
    }
    return QProcess::readLine();
}
