// A process whose reads wait for data.

#pragma once

#include <QProcess>

/// A QProcess that is read like a file: readLine() waits for the line.
class QBlockingProcess : public QProcess
{
    Q_OBJECT

public:
    explicit QBlockingProcess(QObject* parent = nullptr);

    /// The next line of the current read channel, with its line end where it
    /// has one. Waits, without bound, until there is a line, the process has
    /// closed the channel or ended; null when nothing is left. Hides
    /// QIODevice's operation of the same name.
    QByteArray readLine();

private:
    bool mOutputClosed = false;
};
