#pragma once

#include <QByteArray>
#include <QStringList>

#include <csignal>
#include <optional>
#include <sys/resource.h>
#include <vector>

/// What the launcher was started with and its helper must find unchanged: the bytes of
/// the arguments, the signal mask, the ignored signals, the stack limit and the signal for
/// the death of the parent (PR_SET_PDEATHSIG in prctl(2)). A QString cannot carry the arguments,
/// because bytes that are no UTF-8 would be replaced, and QCoreApplication removes some of them
/// from its list.
class LaunchContext
{
public:
    /// Records the state. Create it first in `main`, before anything changes it. The
    /// strings of `argv` must outlive the object.
    LaunchContext(int argc, const char* const* argv);

    /// Prepares the process:
    /// - opens /dev/null for each standard stream that is closed, so that no other file
    ///   gets its number;
    /// - sets SIGCHLD to its default action and unblocks it: if it were ignored, the
    ///   kernel would discard the helper's end, and kernels without process descriptors
    ///   report that end by this signal alone;
    /// - ignores SIGPIPE and SIGXFSZ, so that a message that nobody reads or that is too
    ///   much for a file ends no launch.
    void prepareProcess() const;

    /// The command line for the options, the program's name first.
    QStringList arguments() const;

    /// Names the program that execHelper() starts.
    void setHelper(const QByteArray& path);

    /// Replaces the calling process by the helper, with "--zorvmpirun" and every
    /// argument byte of the launcher. If that fails, writes errno as an int to
    /// `errorPipe` and ends the process with status 127.
    ///
    /// Call it in the child between fork and exec. It makes async-signal-safe calls
    /// only, see signal-safety(7), and writes no memory, which may be the launcher's own,
    /// see vfork(2).
    /// Does not return; it is not declared so, because AddressSanitizer then looks at the
    /// stack before the call, which in a child of vfork(2) is that of an earlier child.
    void execHelper(int errorPipe) const;

private:
    void restoreDispositions() const;
    void restoreStackLimit() const;
    void restoreParentDeathSignal() const;

    std::vector<const char*> mArguments;
    QByteArray mHelper;
    std::vector<const char*> mHelperArguments;
    sigset_t mSignalMask;
    sigset_t mIgnoredSignals;
    std::optional<rlimit> mStackLimit;
    int mParentDeathSignal = 0;
};
