// The archive for a support ticket.

#pragma once

#include "mpirun-info/probe.h"
#include "mpirun-info/report.h"
#include "mpirun-info/request.h"

/// The files that the archive contains besides the report. They are read from the
/// construction on, while the report is made, so that both need no longer than the report.
struct BundledFiles
{
    /// The request must live longer.
    explicit BundledFiles(const Request& request);

    Probe session;
    Probe log;
};

/// Writes a new tar archive (the format ustar of pax(1)) that only this user can read: the
/// report in both forms, the settings, the versions, the session file without the secret, and
/// the end of the launcher's log. Without `files`, it says that the last two cannot be read.
/// False, with a message, when it cannot be written; there is no file then, or the one that
/// was there.
[[nodiscard]] bool writeBundle(const QString& fileName, const Report& report, BundledFiles* files);
