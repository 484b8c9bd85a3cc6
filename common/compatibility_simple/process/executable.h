#pragma once

#include <QString>

/// The reason why the kernel cannot start a program file, see execve(2) and elf(5).
enum class ProgramFault {
    None,           ///< no fault found
    Missing,        ///< no such file, or a dangling link
    Unreachable,    ///< in a directory that this user may not enter
    NoFile,         ///< a directory or another file that is not regular
    NotExecutable,  ///< this user may not execute it
    NoExecMount,    ///< its file system is mounted without execution
    Empty,          ///< no bytes
    NoProgram,      ///< neither a binary program nor a script with "#!"
    Foreign,        ///< a binary for another architecture
    Truncated,      ///< a binary that ends before its last segment
    Interpreter,    ///< a script whose interpreter cannot be started
    CarriageReturn, ///< a script whose first line ends as in a DOS file
    Loader,         ///< a binary whose loader cannot be started
};

/// The result of examineProgram().
struct ProgramState
{
    ProgramFault fault = ProgramFault::None;
    /// A description of the fault without the program's path. Null without a fault.
    QString cause;
};

/// Finds out whether an exec of the file would fail, or its interpreter right after. Starts
/// nothing; reads the first bytes of the file and of its interpreter or loader. Reports no
/// fault for a file that binfmt_misc handles or that this user may execute but not read.
ProgramState examineProgram(const QString& path);

/// The path of the loader that a binary names (PT_INTERP, see elf(5)); null for a static
/// binary, a script, a binary for another architecture and a file that cannot be read.
QString loaderOf(const QString& path);

/// The system's text for a failed start, with the fault of the program file and a hint at
/// zorv-mpirun-info. For a missing program, the system's text alone.
QString describeStartFailure(const QString& path, const QString& systemText);
