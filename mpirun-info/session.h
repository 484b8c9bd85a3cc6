// The session that the launcher would find, and why it is this one.

#pragma once

#include <QString>
#include <QStringList>

class Report;
class ZORVDebuggerOptions;

/// What the launcher makes of its command line: whether it is `accepted`, and
/// the `message` when not. Hides the session cookie.
void describeCommandLine(Report* report, const ZORVDebuggerOptions& options,
                         const QStringList& commandLine, bool accepted, const QString& message);

/// The session's fields and where they come from, the files that were looked
/// for, and the files that the launcher and the front end leave for each other.
/// Hides the session cookie.
void describeSession(Report* report, const ZORVDebuggerOptions& options);
