// The options that every back-end program of the suite understands.

#include "backend/backendoptions.h"

#include "backend/optiontable.h"
#include "common/compatibility_simple/system/hostname.h"
#include "common/env/zorvenv.h"

BackendOptions::BackendOptions()
    : mMyFallbackName(sc_hostname())
    , mSharedDirectory(envString("SHARED_DIRECTORY"))
{
}

QStringList BackendOptions::backendArguments(bool withMyName) const
{
    QStringList arguments = mBackendArguments;
    if (withMyName && !mMyName.isNull()) {
        arguments << QStringLiteral("--zorvyourname") << mMyName;
    }
    return arguments;
}

BackendOptions BackendOptions::selectiveCopy() const
{
    BackendOptions copy;
    copy.mDebug = mDebug;
    copy.mVerbose = mVerbose;
    copy.mProgress = mProgress;
    copy.mSharedDirectory = mSharedDirectory;
    copy.mSharedDirectoryOption = mSharedDirectoryOption;
    copy.mFrontendHostName = mFrontendHostName;
    copy.mSessionFileName = mSessionFileName;
    copy.mSession = mSession;
    copy.mPort = mPort;
    copy.mSessionCookie = mSessionCookie;
    copy.mTarballFileName = mTarballFileName;
    copy.mWaitForTopologyFile = mWaitForTopologyFile;
    copy.mNoSessionCookie = mNoSessionCookie;
    return copy;
}

Options::ParseResult BackendOptions::parseOption(const QString& option,
                                                 QStringList::const_iterator& it,
                                                 QStringList::const_iterator end)
{
    using B = BackendOptions;
    constexpr bool forwarded = true;
    // clang-format off
    static const OptionRow<B> table[] = {
        {"--zorvyourname", "--yourname", &B::mMyName, false, &B::preferMyName},
        {"--zorvdebug", "-d -debug --debug", &B::mDebug, forwarded},
        {"--zorvverbose", "-v -verbose --verbose", &B::mVerbose, forwarded},
        {"--zorvroot", "-r -root --root", &B::mRoot},
        {"--zorvprogress", "-progress --progress", &B::mProgress, forwarded},
        {"--zorvlog", "-log --log", &B::mLogFileName},
        {"--zorvclientlog", "-clientlog --clientlog", &B::mClientLogFileName},
        {"--zorvshareddirectory", "-s -shareddirectory --shareddirectory", &B::mSharedDirectory, forwarded, &B::noteSharedDirectory},
        {"--zorvreplay", "-p -replay --replay", &B::mReplayFileName},
        {"--zorvhost", "-zorvhost --host -host", &B::mFrontendHostName, forwarded},
        {"--zorvsessionfile", "-zorvsessionfile --sessionfile -sessionfile", &B::mSessionFileName, forwarded},
        {"--zorvsession", "-zorvsession --session -session", &B::mSession, forwarded},
        {"--zorvport", "-zorvport --port -port", &B::mPort, forwarded},
        {"--zorvsessioncookie", "-zorvsessioncookie --sessioncookie -sessioncookie", &B::mSessionCookie, forwarded},
        {"--zorvtarball", "--tarball -tarball", &B::mTarballFileName, forwarded},
        {"--zorvnosessioncookie", "", &B::mNoSessionCookie, forwarded},
        {"--zorvwaitfortopologyfile", "", &B::mWaitForTopologyFile, forwarded},
    };
    // clang-format on
    return parseByTable(table, this, option, it, end, &mBackendArguments);
}

void BackendOptions::preferMyName(bool)
{
    mPreferredNames += mMyName;
}

void BackendOptions::noteSharedDirectory(bool)
{
    mSharedDirectoryOption = true;
}
