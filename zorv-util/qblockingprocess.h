#pragma once

#include "common/compatibility_simple/files/descriptor.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QProcess>

/// A QProcess with blocking reads: read(), readLine(), readAll(), atEnd(), and QTextStream
/// on top of them, return when there is data, when the process has closed the stream, or
/// when the process has ended. There is no time limit.
///
/// This holds for both output streams and in every process channel mode, except for a
/// stream that is redirected to a file. The signal readyRead() is not emitted.
class QBlockingProcess : public QProcess
{
    Q_OBJECT

public:
    explicit QBlockingProcess(QObject* parent = nullptr);
    ~QBlockingProcess() override;

    /// Blocks until there is data, and returns false; or true at the end of the stream.
    bool atEnd() const override;
    qint64 bytesAvailable() const override;
    bool canReadLine() const override;
    /// Blocks until there is new data. Returns false after `msecs` milliseconds and at the
    /// end of the stream. -1 is no time limit.
    bool waitForReadyRead(int msecs = 30000) override;

    /// Not available: the class uses the modifier itself.
    void setChildProcessModifier(const std::function<void()>&) = delete;

protected:
    qint64 readData(char* data, qint64 maxSize) override;

private:
    // Replaces QProcess's pipe. QProcess does not report that a process has closed its output
    // while it still runs.
    struct Pipe
    {
        void open();
        void receive();
        // Called in the child between fork and exec.
        void replaceStream(int fd) const;

        Descriptor readEnd;
        Descriptor writeEnd;
        QByteArray received;
    };

    void followState(ProcessState state);
    void openPipes();
    void replaceStreams() const;
    bool receive(QDeadlineTimer deadline);

    Pipe mPipes[2];
};
