#pragma once

#include "common/compatibility_simple/files/descriptor.h"

/// A pipe through which the child between fork and exec tells the launcher that the exec
/// failed. Both ends are close-on-exec: an exec that works closes the child's end, and
/// the launcher reads the end of the file.
class ExecReport
{
public:
    /// Opens the pipe; see isOpen(). Sets errno when that fails.
    ExecReport();

    bool isOpen() const { return mReadEnd.isOpen(); }
    /// The descriptor for LaunchContext::execHelper().
    int writeEnd() const { return mWriteEnd.get(); }

    /// Waits until the exec is done or has failed, as it is when QProcess has started.
    /// Returns the errno of a failed exec, or 0.
    int error();

private:
    Descriptor mReadEnd;
    Descriptor mWriteEnd;
};
