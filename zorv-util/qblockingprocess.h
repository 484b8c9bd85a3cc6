#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QProcess>

/// A QProcess whose reads wait: read(), readLine(), readAll(), atEnd() and what is built
/// on them, QTextStream for one, return when there is data, when the process has closed
/// the stream, or when it has ended. There is no time limit.
///
/// Both output streams work so, in every process channel mode; a stream that is
/// redirected to a file is left alone. No readyRead() signal is emitted.
class QBlockingProcess : public QProcess
{
    Q_OBJECT

public:
    explicit QBlockingProcess(QObject* parent = nullptr);
    ~QBlockingProcess() override;

    /// Waits for data; true when no more comes.
    bool atEnd() const override;
    qint64 bytesAvailable() const override;
    bool canReadLine() const override;
    /// False when the time is over or no more comes; -1 is no time limit.
    bool waitForReadyRead(int msecs = 30000) override;

    /// The class sets one of its own.
    void setChildProcessModifier(const std::function<void()>&) = delete;

protected:
    qint64 readData(char* data, qint64 maxSize) override;

private:
    // QProcess does not tell that a process has closed its output and runs on; a pipe of
    // our own does.
    class Pipe
    {
    public:
        Pipe() = default;
        Pipe(const Pipe&) = delete;
        Pipe& operator=(const Pipe&) = delete;
        ~Pipe() { close(); }

        void open();
        void close();
        void closeWriteEnd();
        void receive();
        // In the child, between fork and exec.
        void replaceStream(int fd) const;

        int readEnd = -1;
        QByteArray received;

    private:
        int mWriteEnd = -1;
    };

    void followState(ProcessState state);
    void openPipes();
    void replaceStreams() const;
    bool receive(QDeadlineTimer deadline);

    Pipe mPipes[2];
};
