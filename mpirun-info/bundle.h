// All that a ticket needs, in one file.

#pragma once

#include <QString>

class Report;
struct Request;

/// Writes a new tar archive (the format ustar of pax(1)) that only this user can read: the
/// report in both forms, the settings, the versions, what the session file says but for
/// the secret, and the end of the launcher's log. False, with a message, when it cannot be
/// written; there is no file then, or the one that was there.
bool writeBundle(const QString& fileName, const Report& report, const Request& request);
