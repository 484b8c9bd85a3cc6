#pragma once

#include "common/compatibility_simple/files/descriptor.h"

/// A pipe through which the child reports a failed exec to the launcher. Both ends are
/// close-on-exec: a successful exec closes the child's end, and the launcher reads the
/// end of the file.
class ExecReport
{
public:
    /// Opens the pipe. If that fails, sets errno, and isOpen() is false.
    ExecReport();

    bool isOpen() const { return mReadEnd.isOpen(); }
    /// The descriptor for LaunchContext::execHelper(); this object owns it.
    int writeEnd() const { return mWriteEnd.get(); }

    /// Returns the errno of a failed exec, or 0. Closes the write end and blocks until the
    /// child has called exec, which it has when QProcess has started. Call it once.
    int error();

private:
    Descriptor mReadEnd;
    Descriptor mWriteEnd;
};
