#pragma once

#include "backend/options.h"

#include <optional>

/// The options of every back-end program of the suite: how to connect to the front end, the
/// shared directory, this host's name, logging and tracing. Parsing also records the options
/// that must be passed on to further back-end processes.
class BackendOptions : public Options
{
public:
    BackendOptions();

    /// The name that the front end uses for this host; null when it is not given.
    QString getMyName() const { return mMyName; }
    /// getMyName(), or sc_hostname() when that is null.
    QString myNameWithFallback() const { return mMyName.isNull() ? mMyFallbackName : mMyName; }
    /// The names and addresses of this host, best first: the given names, the last one first,
    /// then localHostNamesAndAddresses(). The first call blocks for the look-ups, whose result
    /// later calls use again.
    QStringList myNamesAndAddresses() const;

    bool isDebug() const { return mDebug; }
    bool isVerbose() const { return mVerbose; }
    bool isRoot() const { return mRoot; }
    bool isNoSessionCookie() const { return mNoSessionCookie; }
    bool isProgress() const { return mProgress; }
    bool isWaitForTopologyFile() const { return mWaitForTopologyFile; }

    QString getLogFileName() const { return mLogFileName; }
    QString getClientLogFileName() const { return mClientLogFileName; }
    QString getSharedDirectory() const { return mSharedDirectory; }
    /// Whether the shared directory comes from an option and not from the setting.
    bool isSharedDirectoryOption() const { return mSharedDirectoryOption; }
    QString getReplayFileName() const { return mReplayFileName; }
    QString sessionFileName() const { return mSessionFileName; }
    QString sessionCookie() const { return mSessionCookie; }
    QString tarballFileName() const { return mTarballFileName; }
    /// The names and addresses of the front end's host, separated by commas; null when they
    /// are not given.
    QString frontendHostNamesAndAddresses() const { return mFrontendHostName; }
    /// The session number; 0 when it is not given.
    int session() const { return mSession; }
    /// The TCP port of the front end; 0 when it is not given.
    int port() const { return mPort; }

    void setSharedDirectory(const QString& directory) { mSharedDirectory = directory; }

    /// The options to pass on to further back-end processes, in their long spelling, each
    /// value as a separate argument. With `withMyName`, also getMyName() unless it is null.
    QStringList backendArguments(bool withMyName) const;

    /// The options of a process that this one starts for the same session. Leaves out the log
    /// files, this host's names, the replay file, isRoot() and backendArguments().
    BackendOptions selectiveCopy() const;

protected:
    ParseResult parseOption(const QString& option, QStringList::const_iterator& it,
                            QStringList::const_iterator end) override;

    QString mLogFileName;
    QString mClientLogFileName;
    bool mDebug = false;
    bool mVerbose = false;
    bool mRoot = false;

private:
    void preferMyName(bool isLastArgument);
    void noteSharedDirectory(bool isLastArgument);

    mutable std::optional<QStringList> mNamesAndAddresses;
    // In the order of the command line.
    QStringList mPreferredNames;
    QStringList mBackendArguments;
    QString mMyName;
    QString mMyFallbackName;
    QString mSharedDirectory;
    QString mReplayFileName;
    QString mFrontendHostName;
    QString mSessionFileName;
    QString mSessionCookie;
    QString mTarballFileName;
    int mSession = 0;
    int mPort = 0;
    bool mSharedDirectoryOption = false;
    bool mNoSessionCookie = false;
    bool mProgress = false;
    bool mWaitForTopologyFile = false;
};
