#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/// A QProcess that remembers how it was last started, so that restart() needs no
/// arguments and can be connected to a signal. The channel modes and the other
/// properties of the base class also apply to a restart.
///
/// The functions start() hide those of QProcess, which do not record the start.
/// Failures are reported as QProcess reports them.
class RestartableProcess : public QProcess
{
    Q_OBJECT

public:
    explicit RestartableProcess(QObject* parent = nullptr);
    ~RestartableProcess() override;

    /// Starts `program` with `arguments`, as QProcess::start() does.
    void start(const QString& program, const QStringList& arguments, QIODevice::OpenMode mode);
    /// Starts a command line, split as QProcess::splitCommand() splits it. An empty one
    /// fails to start.
    void start(const QString& program, QIODevice::OpenMode mode);

public Q_SLOTS:
    /// Starts a new child as the last start() did. Call it after a start(), when the
    /// previous child has ended.
    void restart();

private:
    QString mProgram;
    QStringList mArguments;
    QIODevice::OpenMode mMode;
    bool mUseArguments;
};
