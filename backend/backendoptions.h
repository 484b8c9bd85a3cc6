// The options that every back-end program of the suite understands.

#pragma once

#include "backend/options.h"

#include <optional>

/// How to reach the front end, where shared files are, the program's own name on
/// the network, logging and tracing. Records, while it parses, the options that
/// must travel on to further back-end processes, in their canonical spelling.
class BackendOptions : public Options
{
public:
    BackendOptions();

    /// The name that the front end gave this host; null when it gave none.
    QString getMyName() const { return mMyName; }
    /// The same, or this host's own name for itself.
    QString myNameWithFallback() const { return mMyName.isNull() ? mMyFallbackName : mMyName; }
    /// The names and addresses under which this host may be reached, best
    /// first. They are gathered at the first use, as that takes look-ups which
    /// the calling thread waits for.
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
    /// Whether it is an option that gave it, not the setting.
    bool isSharedDirectoryOption() const { return mSharedDirectoryOption; }
    QString getReplayFileName() const { return mReplayFileName; }
    QString sessionFileName() const { return mSessionFileName; }
    QString sessionCookie() const { return mSessionCookie; }
    QString tarballFileName() const { return mTarballFileName; }
    /// The front end's host as it was given: names and addresses with commas
    /// between them.
    QString frontendHostNamesAndAddresses() const { return mFrontendHostName; }
    /// 0 when not given.
    int session() const { return mSession; }
    int port() const { return mPort; }

    void setSharedDirectory(const QString& directory) { mSharedDirectory = directory; }

    /// The options to pass on to further back-end processes, with this host's
    /// given name at the end when `withMyName`.
    QStringList backendArguments(bool withMyName) const;

    /// The options of a process that this one starts for the same session: all
    /// but the log files, the names, the replay file, being the root, and what is
    /// forwarded.
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
    // In the order in which they were given.
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
