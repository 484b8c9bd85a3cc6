// Why a program file cannot be started.

#pragma once

#include <QString>

/// What keeps the kernel from starting a program file, see execve(2) and elf(5).
enum class ProgramFault {
    None,           ///< nothing that can be seen from outside
    Missing,        ///< not there, or a link that leads nowhere
    Unreachable,    ///< in a directory that this user may not enter
    NoFile,         ///< a directory, or another file that is not regular
    NotExecutable,  ///< this user may not execute it
    NoExecMount,    ///< its file system is mounted without execution
    Empty,          ///< no bytes
    NoProgram,      ///< neither a binary nor a script with "#!"
    Foreign,        ///< a binary for another architecture
    Truncated,      ///< a binary that ends before its last segment
    Interpreter,    ///< a script whose interpreter cannot be started
    CarriageReturn, ///< a script whose first line ends as in a DOS file
    Loader,         ///< a binary whose loader cannot be started
};

struct ProgramState
{
    ProgramFault fault = ProgramFault::None;
    /// What is wrong, for people, without the program's own path. Null without a
    /// fault.
    QString cause;
};

/// Looks for what would make an exec of the file fail, or have its interpreter fail
/// at once. Starts nothing; reads the file's first bytes, and those of the
/// interpreter or loader that it names. What a handler of binfmt_misc takes has no
/// fault. A file that this user may execute but not read has none either.
ProgramState examineProgram(const QString& path);

/// The loader that a binary asks for (PT_INTERP, see elf(5)); null for a static
/// binary, a script, and what cannot be read.
QString loaderOf(const QString& path);

/// Completes the system's text for a start that failed: adds what is wrong with the
/// program file, and names the report that tells more. The text of a program that is
/// missing needs neither and stays as it is.
QString describeStartFailure(const QString& path, const QString& systemText);
