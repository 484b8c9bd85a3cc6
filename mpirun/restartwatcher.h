#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>

/// Looks, each time the helper has finished, at two files that the front end
/// keeps in the session directory. The restart file asks for the helper to be
/// started again; while anything exists at the hold file's path, the decision
/// waits. Without file names, as it is without a session, the first end of the
/// helper ends the launcher.
class RestartWatcher : public QObject
{
    Q_OBJECT

public:
    explicit RestartWatcher(QObject* parent = nullptr);
    ~RestartWatcher() override;

    void setRestartFileName(const QString& fileName);
    QString restartFileName() const;

    void setRestartHoldFileName(const QString& fileName);
    QString restartHoldFileName() const;

    /// Whether the session directory could be written when the launcher started. If so,
    /// a look that is not permitted (EACCES) is made again: a file server may be about
    /// to renew a credential.
    void setDirectoryWasWritable(bool wasWritable);

Q_SIGNALS:
    /// The helper is to be started again.
    void restart();
    /// The launcher is to end.
    void quit();

public Q_SLOTS:
    /// Waits while the hold file exists, without bound and without running the
    /// event loop; a wait of ten seconds, and each further hour, is reported. Then, if
    /// there is a restart file, deletes it, leaves an empty hold file and emits
    /// restart(); otherwise emits quit(). A hold file that cannot be made is reported as
    /// critical, and quit() emitted: without it the front end could not tell that its
    /// request was taken.
    ///
    /// A look at a file that fails is made again each second, ten times at most, unless
    /// its cause is known to last. Then it is reported, and the file counts as missing.
    /// A restart file that cannot be deleted is reported once, and asks for a restart
    /// twice a second at most.
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
