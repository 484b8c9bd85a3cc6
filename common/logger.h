#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdarg>
#include <cstddef>
#include <sys/types.h>

/// A receiver of messages; the text is in the local 8-bit encoding.
using QtMsgHandler = void (*)(QtMsgType type, const char* message);

/// Owns the process's message output, until the process has ended: static
/// destructors may log. Everything here belongs to the main thread.
namespace Logger {

/// Prints each of Qt's messages to standard error as one line, as it is. For
/// the time before installQtMsgHandler(): Qt's own output may go to a system
/// log, and its form and extent follow variables that a user may have set for
/// another program.
void installPlainMsgHandler();

/// Takes Qt's messages over: each is printed to standard error as one line and
/// passed to the added handlers. A message that tells of a missing signal or
/// slot or of a deadlock aborts the process; a fatal one aborts it when it
/// begins with "ASSERT" and ends it with status 1 otherwise. Messages of Qt's
/// text codecs are dropped. To be called once, early.
void installQtMsgHandler();

/// The name of a program's log file, or a null string when none is wanted.
///
/// The setting `environmentVariable` (looked up under the suite's prefixes, never
/// cached; may be null) gives the name; failing that, the setting LOGS, when it
/// is an existing directory, gives the directory for a file called `prefix`. A
/// trailing ".log" is replaced by `suffix` and ".log".
QString logFileName(const char* environmentVariable, const QString& prefix, const QString& suffix);

/// Opens the log file as openToOverwrite() does, and adds a handler that appends each
/// message to it as one line. A second call closes the first log and goes on in the
/// second. An empty name is reported as a warning, a file that cannot be opened as
/// critical; nothing else changes then.
void installLogMsgHandler(const QString& fileName);

/// Adds a handler at the end of the list; one that is added twice is called
/// twice.
void addMsgHandler(QtMsgHandler handler);
/// Removes the first occurrence of a handler, if there is one.
void removeMsgHandler(QtMsgHandler handler);

/// Calls every handler, in the order in which they were added. A handler may
/// add and remove handlers and log: the call in progress keeps its list.
void log(QtMsgType type, const char* message);
/// log() with a format as for vprintf(3); nothing is logged when it fails.
void vlog(QtMsgType type, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
/// log() with a format as for printf(3).
void logf(QtMsgType type, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// "debug", "warning", "critical", "fatal", and "unknown" for all else.
const char* typeToString(QtMsgType type);

/// Writes xmlLogBytes() to a descriptor, which may be non-blocking; does
/// nothing for -1.
void xmlLog(int fd, QtMsgType type, const char* message);

/// One log record: an element "debug" with the local time (hours to
/// milliseconds), the type and, once installQtMsgHandler() was called, the
/// program's name and process id. The message is not escaped, and no line end
/// follows.
QByteArray xmlLogBytes(QtMsgType type, const char* message);

} // namespace Logger

/// Writes all of a buffer to a descriptor, waiting for room where it is
/// non-blocking. Returns `count`; -1 when a write failed; the number of bytes
/// written so far when the wait failed. Failures are printed to standard error.
ssize_t blocking_write(int fd, const void* buf, size_t count);
