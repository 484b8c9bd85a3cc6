#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>

/// Decides, each time the helper has ended, whether the launcher starts it again or
/// ends. Two files in the session directory tell: the restart file requests a restart,
/// and the hold file postpones the decision. docs/restart-protocol.md describes both.
/// Without file names, as in a launch without a session, the launcher ends.
class RestartWatcher : public QObject
{
    Q_OBJECT

public:
    explicit RestartWatcher(QObject* parent = nullptr);
    ~RestartWatcher() override;

    /// Sets the path of the restart file; null or empty, the default, for none.
    void setRestartFileName(const QString& fileName);
    QString restartFileName() const;

    /// Sets the path of the hold file; null or empty, the default, for none.
    void setRestartHoldFileName(const QString& fileName);
    QString restartHoldFileName() const;

    /// Sets whether the launcher could write in the session directory when it started;
    /// false by default. If so, a look-up that fails with EACCES is repeated: a file
    /// server may be about to renew a credential.
    void setDirectoryWasWritable(bool wasWritable);

Q_SIGNALS:
    /// Emitted when the helper must be started again. The hold file exists by then.
    void restart();
    /// Emitted when the launcher must end, without a request or because the hold file could
    /// not be created.
    void quit();

public Q_SLOTS:
    /// Waits while the hold file exists, without a time limit and without running the
    /// event loop. Reports the wait after ten seconds and after each further hour. Then,
    /// if the restart file exists, removes it, creates an empty hold file and emits
    /// restart(); otherwise emits quit(). If the hold file cannot be created, reports
    /// that as critical and emits quit(): the front end could not tell that its request
    /// was accepted.
    ///
    /// Repeats a look-up that fails each second, up to ten look-ups, unless the cause is
    /// permanent. Then reports it and takes the file for missing. A restart file that
    /// cannot be removed is reported once, and causes two restarts a second at most.
    void checkForQuickRestart();

private:
    bool exists(const QString& fileName) const;
    bool isLasting(int error) const;
    void waitWhileHeld() const;
    void removeRequest();

    QString mRestartFileName;
    QString mRestartHoldFileName;
    bool mDirectoryWasWritable = false;
    bool mReportedRequest = false;
    QElapsedTimer mSinceRequestThatStays;
};
