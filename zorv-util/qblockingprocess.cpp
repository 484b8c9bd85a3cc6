// A process whose output is read like a file.

#include "zorv-util/qblockingprocess.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr qsizetype readSize = 65536;

// The end of the output tells of the end of the process, unless a descendant
// holds it open; this is how often we then look for the process itself.
constexpr int lookAgainMs = 100;

} // namespace

QBlockingProcess::QBlockingProcess(QObject* parent)
    : QProcess(parent)
{
}

QBlockingProcess::~QBlockingProcess()
{
    closeOutput();
}

void QBlockingProcess::startCommand(const QString& command)
{
    closeOutput();
    mBuffer.clear();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) {
        setErrorString(qt_error_string(errno));
        return;
    }
    mOutput = ends[0];
    fcntl(mOutput, F_SETFL, O_NONBLOCK);
    const bool merged = processChannelMode() == MergedChannels;
    setChildProcessModifier([writeEnd = ends[1], merged] {
        dup2(writeEnd, STDOUT_FILENO);
        if (merged) {
            dup2(writeEnd, STDERR_FILENO);
        }
    });
    setStandardErrorFile(merged ? QString() : nullDevice());
    // QProcess::startCommand() crashes on a command without words.
    const QStringList words = splitCommand(command);
    start(words.value(0), words.mid(1), QIODevice::ReadOnly);
    ::close(ends[1]);
}

QByteArray QBlockingProcess::readLine()
{
    qsizetype searched = 0;
    qsizetype end = mBuffer.indexOf('\n');
    while (end == -1 && readMore()) {
        end = mBuffer.indexOf('\n', searched);
        searched = mBuffer.size();
    }
    const QByteArray line = end == -1 ? mBuffer : mBuffer.left(end + 1);
    mBuffer.remove(0, line.size());
    return line;
}

// False when no more comes.
bool QBlockingProcess::readMore()
{
    const qsizetype size = mBuffer.size();
    ssize_t count = -1;
    while (mOutput != -1 && count == -1) {
        // Looked at before the read: what a process wrote before its end is
        // then there to be read.
        const bool ended = state() == NotRunning;
        mBuffer.resize(size + readSize);
        count = ::read(mOutput, mBuffer.data() + size, readSize);
        if (count == -1 && errno == EAGAIN && !ended) {
            pollfd request = {mOutput, POLLIN, 0};
            poll(&request, 1, lookAgainMs);
            waitForFinished(0);
        } else if (count == -1 && errno != EINTR) {
            break;
        }
    }
    mBuffer.resize(size + qMax<qsizetype>(count, 0));
    return count > 0;
}

void QBlockingProcess::closeOutput()
{
    if (mOutput != -1) {
        ::close(mOutput);
        mOutput = -1;
    }
}
