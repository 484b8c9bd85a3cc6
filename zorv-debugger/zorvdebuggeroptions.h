// The options of the suite's debugger helper.

#pragma once

#include "backend/backendoptions.h"

/// What the helper is to be attached to, its place among several helpers, and
/// how it is launched, besides the back-end options. The launcher parses its
/// own command line with it: options come first; the first argument that is none
/// and all after it belong to the MPI launcher and the program.
class ZORVDebuggerOptions : public BackendOptions
{
public:
    ZORVDebuggerOptions() = default;
    explicit ZORVDebuggerOptions(const BackendOptions& options);

    /// As Options::parse(). The switch MANUAL_LAUNCH turns simple-arguments
    /// mode on; the presence of DEBUGGER_MULTIPLEXER_DEBUG, of
    /// DEBUGGER_MULTIPLEXER_VERBOSE, or of DEBUG in place of either, turns
    /// output on that no option turns off. The helper's log file names are set
    /// whatever the outcome.
    [[nodiscard]] bool parse(const QStringList& arguments) override;

    int offset() const { return mOffset; }
    int count() const { return mCount; }
    /// The process to attach to, 0 for none.
    int attachPid() const { return mAttachPid; }
    bool isManualLaunch() const { return mManualLaunch; }
    bool isMpirun() const { return mMpirun; }
    bool isForked() const { return mForked; }
    bool isExplicitTarget() const { return mExplicitTarget; }
    bool ensureOnePerHost() const { return mEnsureOnePerHost; }
    /// The arguments from the first that is no option on.
    QStringList targetArguments() const { return mTargetArguments; }

    void setManualLaunch(bool manualLaunch) { mManualLaunch = manualLaunch; }
    void setAttachPid(int attachPid) { mAttachPid = attachPid; }
    void setForked(bool forked) { mForked = forked; }
    void setExplicitTarget(bool explicitTarget) { mExplicitTarget = explicitTarget; }
    void setTarget(const QString& target) { mTargetArguments = QStringList(target); }

protected:
    ParseResult parseOption(const QString& option, QStringList::const_iterator& it,
                            QStringList::const_iterator end) override;
    ParseResult parseRemainingArguments(const QStringList& rest) override;
    void printHelp() override;

private:
    void beginManualLaunch(bool isLastArgument);
    void beginForked(bool isLastArgument);

    QStringList mTargetArguments;
    int mOffset = 0;
    int mCount = 0;
    int mAttachPid = 0;
    bool mManualLaunch = false;
    bool mMpirun = false;
    bool mForked = false;
    bool mExplicitTarget = false;
    bool mEnsureOnePerHost = false;
};
