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
    static const OptionRow<B> table[] = {
#define BACKEND_OPTION(name, simpleNames, value, text, ...) {name, simpleNames, __VA_ARGS__},
#include "backend/options.def"
    };
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
