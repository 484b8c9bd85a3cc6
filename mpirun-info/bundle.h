// The archive for a support ticket.

#pragma once

#include "mpirun-info/probe.h"

#include <QByteArray>

class Report;
struct Request;

/// A tar archive (the format ustar of pax(1)): the report in both forms, the settings, the
/// versions, the session file without the secret, and the end of the launcher's log. Reads
/// the session file and the log from its construction on, while the report is made.
class Bundle
{
public:
    /// The request must live longer.
    explicit Bundle(const Request& request);
    /// Writes a new file that only this user can read. False, with a message, when it
    /// cannot be written; there is no file then, or the one that was there.
    [[nodiscard]] bool write(const Report& report);

private:
    QByteArray mFileName;
    Probe mSession;
    Probe mLog;
};
