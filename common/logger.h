#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdarg>
#include <cstddef>
#include <sys/types.h>

/// A function that receives messages; the text is in the locale's encoding.
using QtMsgHandler = void (*)(QtMsgType type, const char* message);

/// The messages of the process. Usable until the process has ended: static destructors may
/// log. Use it from the main thread only.
namespace Logger {

/// From now on, prints each of Qt's messages to standard error as one unchanged line. Call
/// it before the application object exists: Qt's default handler may write to a system log,
/// and follows variables that the user may have set for other programs.
void installPlainMsgHandler();

/// From now on, prints each of Qt's messages to standard error as one line and passes it to
/// the added handlers. A message about a missing signal or slot or a deadlock aborts the
/// process. A fatal message aborts it if it begins with "ASSERT", and otherwise ends it
/// with status 1. Messages of Qt's text codecs are dropped. Call it once, after the
/// application object has been created.
void installQtMsgHandler();

/// The path of a program's log file; null when no setting asks for one.
///
/// The setting `environmentVariable`, which is never cached, gives the path. If it is null
/// or not set, the file is called `prefix` and is in the directory of the setting LOGS,
/// which must exist. `suffix` is inserted before the extension ".log", which is added if it
/// is missing.
QString logFileName(const char* environmentVariable, const QString& prefix, const QString& suffix);

/// Opens the log file as openToOverwrite() does, and adds a handler that appends each
/// message to it as one line. A second call replaces the log file. An empty path is
/// reported as a warning, and a file that cannot be opened as critical; then nothing
/// changes.
void installLogMsgHandler(const QString& fileName);

/// Adds a handler at the end of the list. A handler that is added twice is called twice.
void addMsgHandler(QtMsgHandler handler);
/// Removes the first occurrence of a handler, if any.
void removeMsgHandler(QtMsgHandler handler);

/// Calls all handlers in the order in which they were added, but prints nothing itself. A
/// handler may log, and may add and remove handlers; that affects later calls only.
void log(QtMsgType type, const char* message);
/// log() with a format as for vprintf(3). Logs nothing when formatting fails.
void vlog(QtMsgType type, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
/// log() with a format as for printf(3). Logs nothing when formatting fails.
void logf(QtMsgType type, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// "debug", "warning", "critical" or "fatal"; "unknown" for any other type.
const char* typeToString(QtMsgType type);

/// Writes xmlLogBytes() to a descriptor, as blocking_write() does. Does nothing for -1.
void xmlLog(int fd, QtMsgType type, const char* message);

/// A log record: an XML element "debug" with the local time of day in milliseconds, the
/// type and, after installQtMsgHandler(), the program's name and process id. The message
/// is not escaped. No line end follows.
QByteArray xmlLogBytes(QtMsgType type, const char* message);

} // namespace Logger

/// Writes a whole buffer to a descriptor. Waits while a non-blocking one accepts no data.
/// Returns `count`, or -1 when a write fails, or the number of bytes written when the wait
/// fails. Prints the error to standard error.
ssize_t blocking_write(int fd, const void* buf, size_t count);
