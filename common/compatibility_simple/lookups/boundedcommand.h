// Runs a program for a short answer that must not keep the caller waiting.

#pragma once

#include <QByteArray>
#include <QByteArrayList>

/// How a program ended, and its standard output up to then.
struct Answer
{
    enum End {
        ByItself,
        /// None of the paths can be executed, or there is no process to be had.
        NotStarted,
        /// It took too long or wrote too much.
        Killed,
    };

    End end = NotStarted;
    /// Of a program that ended by itself, as a shell has it: 128 and the number of the
    /// signal for one that a signal ended.
    int exitStatus = 0;
    QByteArray output;
};

/// Runs the first of the paths that can be executed, without a shell, with these
/// arguments and this environment (NAME=value); standard input and standard error are
/// the null device, all signals have their default actions. The program is killed
/// when it has not ended after `limitMs` milliseconds, when it has written more than
/// `mostBytes`, and together with the caller.
Answer runBounded(const QByteArrayList& paths, const QByteArrayList& arguments,
                  const QByteArrayList& environment, int limitMs, qsizetype mostBytes);
