#include "zorv-util/qblockingprocess.h"

#include "common/compatibility_simple/files/read.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qsizetype readSize = 65536;

// The output may stay open after the end of the process, in a descendant. This is the
// interval at which we check the process itself.
constexpr qint64 lookAgainMs = 100;

} // namespace

QBlockingProcess::QBlockingProcess(QObject* parent)
    : QProcess(parent)
{
    QProcess::setChildProcessModifier([this] { replaceStreams(); });
    connect(this, &QProcess::stateChanged, this, &QBlockingProcess::followState);
}

QBlockingProcess::~QBlockingProcess()
{
    // The base class kills a running process, which changes the state.
    disconnect(this, &QProcess::stateChanged, this, &QBlockingProcess::followState);
}

bool QBlockingProcess::atEnd() const
{
    return !isReadable() || const_cast<QBlockingProcess*>(this)->peek(1).isEmpty();
}

qint64 QBlockingProcess::bytesAvailable() const
{
    return QProcess::bytesAvailable() + mPipes[currentReadChannel()].received.size();
}

bool QBlockingProcess::canReadLine() const
{
    return QProcess::canReadLine() || mPipes[currentReadChannel()].received.contains('\n');
}

bool QBlockingProcess::waitForReadyRead(int msecs)
{
    return receive(QDeadlineTimer(msecs));
}

qint64 QBlockingProcess::readData(char* data, qint64 maxSize)
{
    QByteArray& received = mPipes[currentReadChannel()].received;
    if (received.isEmpty() && !receive(QDeadlineTimer(QDeadlineTimer::Forever))) {
        return -1;
    }
    const qsizetype size = qMin<qsizetype>(received.size(), maxSize);
    memcpy(data, received.constData(), static_cast<size_t>(size));
    received.remove(0, size);
    return size;
}

// The state changes to Starting before the fork and to Running after the exec.
void QBlockingProcess::followState(ProcessState state)
{
    if (state == Starting) {
        openPipes();
    } else {
        mPipes[StandardOutput].writeEnd.close();
        mPipes[StandardError].writeEnd.close();
    }
}

void QBlockingProcess::openPipes()
{
    const ProcessChannelMode mode = processChannelMode();
    mPipes[StandardOutput] = Pipe();
    mPipes[StandardError] = Pipe();
    if (mode != ForwardedChannels && mode != ForwardedOutputChannel) {
        mPipes[StandardOutput].open();
    }
    if (mode == SeparateChannels || mode == ForwardedOutputChannel) {
        mPipes[StandardError].open();
    }
}

void QBlockingProcess::replaceStreams() const
{
    const bool merged = processChannelMode() == MergedChannels;
    mPipes[StandardOutput].replaceStream(STDOUT_FILENO);
    mPipes[merged ? StandardOutput : StandardError].replaceStream(STDERR_FILENO);
}

// Waits for data of the current read channel. Also receives that of the other one, so that
// the process does not block on a full pipe.
bool QBlockingProcess::receive(QDeadlineTimer deadline)
{
    if (state() == Starting) {
        waitForStarted(static_cast<int>(deadline.remainingTime()));
    }
    Pipe& pipe = mPipes[currentReadChannel()];
    const qsizetype size = pipe.received.size();
    for (;;) {
        // Checked before the pipes are read, so that the last output of a process is not
        // lost.
        const bool ended = state() == NotRunning;
        mPipes[StandardOutput].receive();
        mPipes[StandardError].receive();
        if (pipe.received.size() > size || !pipe.readEnd.isOpen() || ended ||
            deadline.hasExpired()) {
            return pipe.received.size() > size;
        }
        pollfd requests[] = {{mPipes[StandardOutput].readEnd.get(), POLLIN, 0},
                             {mPipes[StandardError].readEnd.get(), POLLIN, 0}};
        const qint64 remaining = deadline.isForever() ? lookAgainMs : deadline.remainingTime();
        poll(requests, 2, static_cast<int>(qMin(remaining, lookAgainMs)));
        waitForFinished(0);
    }
}

void QBlockingProcess::Pipe::open()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) {
        qCritical("pipe: %s", strerror(errno));
        return;
    }
    readEnd = Descriptor(ends[0]);
    writeEnd = Descriptor(ends[1]);
    fcntl(readEnd.get(), F_SETFL, O_NONBLOCK);
}

// Receives nothing when the read end is closed.
void QBlockingProcess::Pipe::receive()
{
    const qsizetype size = received.size();
    received.resize(size + readSize);
    const ssize_t count =
        uninterrupted([&] { return ::read(readEnd.get(), received.data() + size, readSize); });
    received.resize(size + qMax<qsizetype>(count, 0));
    if (count == 0) {
        readEnd.close();
    }
}

// Only a stream that QProcess reads is a pipe; one that is redirected to a file stays.
void QBlockingProcess::Pipe::replaceStream(int fd) const
{
    struct stat status;
    if (writeEnd.isOpen() && fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode)) {
        dup2(writeEnd.get(), fd);
    }
}
