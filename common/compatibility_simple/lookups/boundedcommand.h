#pragma once

#include <QByteArray>
#include <QByteArrayList>

/// The result of runBounded().
struct Answer
{
    /// How the program ended.
    enum End {
        ByItself,   ///< with an exit status or by a signal
        NotStarted, ///< no path can be executed, or no process can be created
        Killed,     ///< it exceeded one of the limits
    };

    End end = NotStarted;
    /// For ByItself: the exit status as a shell gives it, 128 + N after signal N.
    int exitStatus = 0;
    /// What the program wrote to its standard output.
    QByteArray output;
};

/// Runs the first of the paths that can be executed, without a shell, and waits for its
/// end. The entries of `environment` are of the form NAME=value. Standard input and
/// standard error are /dev/null, and all signals have their default actions. Kills the
/// program when it has not ended after `limitMs` milliseconds or has written more than
/// `mostBytes` bytes; the kernel kills it when the caller ends.
Answer runBounded(const QByteArrayList& paths, const QByteArrayList& arguments,
                  const QByteArrayList& environment, int limitMs, qsizetype mostBytes);
