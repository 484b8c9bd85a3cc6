#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdarg>
#include <cstddef>
#include <sys/types.h>

/// A receiver of messages; the text is in the local 8-bit encoding.
using QtMsgHandler = void (*)(QtMsgType type, const char* message);

/// Message output of the process. It works until the process has ended: static
/// destructors may log. Use it from the main thread only.
namespace Logger {

/// Prints each of Qt's messages to standard error as one line, without changes. Use it
/// before installQtMsgHandler() is possible: Qt's own handler may write to a system log,
/// and obeys variables that a user may have set for another program.
void installPlainMsgHandler();

/// Prints each of Qt's messages to standard error as one line, and passes it to the added
/// handlers. A message about a missing signal or slot or a deadlock aborts the process. A
/// fatal message aborts it when it begins with "ASSERT", and ends it with status 1
/// otherwise. Messages of Qt's text codecs are dropped. Call it once, early.
void installQtMsgHandler();

/// The name of a program's log file; a null string when the user wants none.
///
/// The setting `environmentVariable`, which has one of the suite's prefixes and is never
/// cached, gives the name. When it is null or not set, the setting LOGS gives the
/// directory, which must exist, of a file called `prefix`. A trailing ".log" is removed;
/// `suffix` and ".log" are added.
QString logFileName(const char* environmentVariable, const QString& prefix, const QString& suffix);

/// Opens the log file as openToOverwrite() does, and adds a handler that appends each
/// message to it as one line. A second call closes the first log and goes on in the
/// second. An empty name is reported as a warning, a file that cannot be opened as
/// critical; nothing else changes then.
void installLogMsgHandler(const QString& fileName);

/// Adds a handler at the end of the list. A handler that is added twice is called twice.
void addMsgHandler(QtMsgHandler handler);
/// Removes the first occurrence of a handler, if any.
void removeMsgHandler(QtMsgHandler handler);

/// Calls every handler, in the order in which they were added. A handler may add and
/// remove handlers, and may log: the call in progress keeps its list.
void log(QtMsgType type, const char* message);
/// log() with a format as for vprintf(3); nothing is logged when it fails.
void vlog(QtMsgType type, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
/// log() with a format as for printf(3).
void logf(QtMsgType type, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// "debug", "warning", "critical" or "fatal"; "unknown" for any other type.
const char* typeToString(QtMsgType type);

/// Writes xmlLogBytes() to a descriptor, which may be non-blocking. Does nothing for -1.
void xmlLog(int fd, QtMsgType type, const char* message);

/// One log record: an element "debug" with the local time (hours to milliseconds), the
/// type and, after installQtMsgHandler(), the program's name and process id. The message
/// is not escaped. No line end follows.
QByteArray xmlLogBytes(QtMsgType type, const char* message);

} // namespace Logger

/// Writes a whole buffer to a descriptor. Waits for room when it is non-blocking. Returns
/// `count`; -1 when a write fails; the number of bytes written when the wait fails.
/// Prints the error to standard error.
ssize_t blocking_write(int fd, const void* buf, size_t count);
