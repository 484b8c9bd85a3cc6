#pragma once

#include <QByteArray>
#include <QStringList>

#include <csignal>
#include <optional>
#include <sys/resource.h>
#include <vector>

/// The state that the launcher was started with and that the helper inherits unchanged:
/// the bytes of the arguments, the signal mask, the ignored signals, the stack limit and
/// the parent-death signal (PR_SET_PDEATHSIG in prctl(2)). The arguments are not kept as
/// QString, which replaces bytes that are not valid UTF-8, nor taken from
/// QCoreApplication, which removes its own options.
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
    ///   kernel would discard the helper's exit status, and kernels without process
    ///   descriptors report the end of a child by this signal alone;
    /// - ignores SIGPIPE and SIGXFSZ, so that a message that cannot be written does not
    ///   end the launcher.
    /// Prints the error of a failed open to standard error and goes on.
    void prepareProcess() const;

    /// The command line for the option parser, the program's name first. Decoded from the
    /// locale's encoding; bytes that are not valid in it are replaced.
    QStringList arguments() const;

    /// Sets the program that execHelper() starts, in the bytes of the file system. Call it
    /// before the first start.
    void setHelper(const QByteArray& path);

    /// Replaces the calling process by the helper, with "--zorvmpirun" and all arguments
    /// of the launcher, byte for byte. If the exec fails, writes errno as an int to
    /// `errorPipe` and ends the process with status 127.
    ///
    /// Call it in the child between fork and exec. It makes only async-signal-safe calls,
    /// see signal-safety(7), and writes to no memory, which the child of a vfork(2) shares
    /// with the launcher.
    ///
    /// Never returns. It is not marked [[noreturn]]: AddressSanitizer would check the
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
