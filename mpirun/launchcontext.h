// What the launcher was started with and its helper must find unchanged.

#pragma once

#include <QByteArray>
#include <QStringList>

#include <csignal>
#include <vector>

/// The signals that the launcher passes on to its helper, in the order in
/// which their handler is installed.
constexpr int handledSignals[] = {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP};

/// The argument bytes, the signal mask and the ignored signals of the
/// launcher's own start, and the last steps of the helper's start, which hand
/// them on. A QString cannot carry the arguments, as bytes that are no UTF-8
/// would be replaced, and QCoreApplication takes some of them out of its list.
class LaunchContext
{
public:
    /// Takes the state down; to be created first in main, before anything
    /// changes it. The strings of `argv` must outlive the object.
    LaunchContext(int argc, const char* const* argv);

    /// Makes ready what every process needs: an open descriptor for each of
    /// the three standard streams, so that no pipe gets the number of a closed
    /// one; SIGCHLD neither ignored, or the kernel would drop the helper's end
    /// unseen, nor blocked, which kernels without process descriptors tell of
    /// that end by; and SIGPIPE ignored, so that a message that nobody reads
    /// ends no launch.
    void prepareProcess() const;

    /// The command line, the program's name first, as the options take it.
    QStringList arguments() const;

    /// Names the program that execHelper() starts.
    void setHelper(const QByteArray& path);

    /// Blocks the handled signals: what arrives now waits for
    /// releaseSignals().
    void holdSignals() const;
    /// Puts the signal mask of the launcher's start back, but for SIGCHLD.
    void releaseSignals() const;

    /// Replaces the calling process by the helper, with "--zorvmpirun" and
    /// every argument byte of the launcher. For the child between fork and
    /// exec: makes async-signal-safe calls only (see signal-safety(7)) and
    /// writes no memory, which may be the launcher's own (see vfork(2)). The
    /// launcher then stands still until the exec is through. Returns when the
    /// exec failed, with errno set; QProcess tries once more, to tell of it.
    void execHelper() const;

private:
    void restoreDispositions() const;

    std::vector<const char*> mArguments;
    QByteArray mHelper;
    std::vector<const char*> mHelperArguments;
    sigset_t mSignalMask;
    sigset_t mOwnSignalMask;
    sigset_t mIgnoredSignals;
};
