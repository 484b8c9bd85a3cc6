// Decides what follows when the helper has finished: a restart or the end.

#pragma once

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

Q_SIGNALS:
    /// The helper is to be started again.
    void restart();
    /// The launcher is to end.
    void quit();

public Q_SLOTS:
    /// Waits while the hold file exists, without bound and without running the
    /// event loop. Then, if there is a restart file, deletes it, leaves an
    /// empty hold file and emits restart(); otherwise emits quit(). A hold file
    /// that cannot be made is reported as critical, and quit() emitted: without
    /// it the front end could not tell that its request was taken.
    void checkForQuickRestart();

private:
    QString mRestartFileName;
    QString mRestartHoldFileName;
};
