#pragma once

#include "backend/backendoptions.h"

/// The options of the helper: those of every back end, what to attach to, the helper's
/// number among several, and how it was launched. The launcher parses its command line with
/// this class, too. Options come first; the first other argument and all arguments after it
/// belong to the MPI launcher and the program.
class ZORVDebuggerOptions : public BackendOptions
{
public:
    ZORVDebuggerOptions() = default;
    /// Copies the back-end options; the others keep their defaults.
    explicit ZORVDebuggerOptions(const BackendOptions& options);

    /// Parses as Options::parse() does. The switch MANUAL_LAUNCH turns simple-arguments mode
    /// on. The settings DEBUGGER_MULTIPLEXER_DEBUG and DEBUGGER_MULTIPLEXER_VERBOSE, or DEBUG
    /// in their place, turn the helper's output on if they are set; no option turns it off.
    /// Sets the names of the helper's log files, even if it returns false.
    [[nodiscard]] bool parse(const QStringList& arguments) override;

    /// The number of the helper's first process, counted over all helpers; 0 by default.
    int offset() const { return mOffset; }
    /// The number of processes that the helper manages; 0 when it is not given.
    int count() const { return mCount; }
    /// The process to attach to; 0 for none.
    int attachPid() const { return mAttachPid; }
    bool isManualLaunch() const { return mManualLaunch; }
    bool isMpirun() const { return mMpirun; }
    bool isForked() const { return mForked; }
    bool isExplicitTarget() const { return mExplicitTarget; }
    bool ensureOnePerHost() const { return mEnsureOnePerHost; }
    /// The first argument that is no option, and all arguments after it.
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
