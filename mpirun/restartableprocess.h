// A child process that can be started again in the way it was last started.

#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/// A QProcess that remembers its last start, so that restart() needs no
/// arguments and can be the receiver of a signal. The channel mode and all
/// else that is set on the base class stays in force for every restart.
///
/// The start operations hide those of QProcess: start through this class, or
/// there is nothing to restart. Failures are reported as QProcess does.
class RestartableProcess : public QProcess
{
    Q_OBJECT

public:
    explicit RestartableProcess(QObject* parent = nullptr);
    ~RestartableProcess() override;

    /// Starts `program` with `arguments`, and remembers all three values.
    void start(const QString& program, const QStringList& arguments, QIODevice::OpenMode mode);
    /// Starts a whole command line, which QProcess splits into program and
    /// arguments, and remembers it.
    void start(const QString& program, QIODevice::OpenMode mode);

public Q_SLOTS:
    /// Starts a new child as the last start() did. To be called when the
    /// previous child has finished and after at least one start().
    void restart();

private:
    QString mProgram;
    QStringList mArguments;
    QIODevice::OpenMode mMode;
    bool mUseArguments;
};
