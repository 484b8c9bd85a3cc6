// A process whose output is read like a file.

#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>

/// A QProcess whose output is read like a file: readLine() waits for the line.
/// Only readLine() gives output; what QProcess offers for reading finds none.
/// The process channel mode decides whether standard error is part of the
/// output; where it is not, it is discarded.
class QBlockingProcess : public QProcess
{
    Q_OBJECT

public:
    explicit QBlockingProcess(QObject* parent = nullptr);
    ~QBlockingProcess() override;

    /// Starts a command line, split as QProcess::startCommand() splits it. A
    /// failure, an empty command being one, shows as with QProcess:
    /// waitForStarted() is false.
    void startCommand(const QString& command);

    /// The next line of the output, with its line end where it has one. Waits,
    /// without bound, until there is a line, the output is closed, or the
    /// process has ended; empty when nothing is left.
    QByteArray readLine();

private:
    bool readMore();
    void closeOutput();

    // A pipe of our own: QProcess does not tell that a process has closed its
    // output and runs on.
    int mOutput = -1;
    QByteArray mBuffer;
};
