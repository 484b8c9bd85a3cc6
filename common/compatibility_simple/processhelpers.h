// Operating-system services under one set of names, for processes and files.

#pragma once

#include <QDateTime>
#include <QIODevice>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <netdb.h>
#include <pwd.h>
#include <sys/types.h>

// Wrappers of the calls that they are named for: each returns what the call
// returns and leaves errno as the call left it; none repeats an interrupted
// call. Paths given as QString are encoded with QFile::encodeName().

pid_t sc_fork();
int sc_unlink(const char* path);
int sc_chmod(const QString& path, mode_t mode);
passwd* sc_getpwuid(uid_t uid);
pid_t sc_getpid();
pid_t sc_getppid();
uid_t sc_getuid();
int sc_rename(const QString& oldPath, const QString& newPath);
int sc_mkdir(const QString& path, mode_t mode);
int sc_mkfifo(const char* path, mode_t mode);
pid_t sc_waitpid(pid_t pid, int* status, int options);
int sc_isatty(int fd);
/// execl(3) with one argument, the argument zero.
int sc_execl(const char* path, const char* argument0);
int sc_execv(const char* path, char* const argv[]);
int sc_execvp(const char* file, char* const argv[]);
int sc_open(const char* path, int flags);
int sc_open(const char* path, int flags, mode_t mode);
int sc_close(int fd);
int sc_access(const char* path, int mode);
ssize_t sc_write(int fd, const void* buffer, size_t length);
int sc_setenv(const char* name, const char* value, bool overwrite);
/// The string becomes part of the environment, see putenv(3).
int sc_putenv(char* nameAndValue);
int sc_unsetenv(const char* name);
/// The template is modified in place.
int sc_mkstemp(char* nameTemplate);
/// Null for a null name.
hostent* sc_gethostbyname(const char* name);
int sc_gethostname(char* buffer, size_t length);

/// The process id under which the system knows `pid`: the same, the hook for a
/// platform that translates them.
int convertPid(int pid);

/// Sleeps for a number of microseconds; an interrupted sleep is not resumed.
/// Always 0.
int sc_usleep(int microseconds);

/// Ignores SIGPIPE, once for the process. 0, or what sigaction(2) returned.
int ignoreSigPipe();

/// As kill(2), but the setting DEBUG_SC_KILL may name signals that are not to
/// be sent, as "ignore{15}" for signal 15; such a call succeeds. While the
/// setting is there, every signal but the probe 0 is logged as a debug message.
int sc_kill(pid_t pid, int signo);

/// Runs a command line (split as QProcess splits it) and returns the lines of
/// its standard output, without their line ends. `merge` adds its standard
/// error, which is discarded otherwise; its standard input is `inputFile`, the
/// null device when that is empty. `waitMs` bounds the start and, once the output
/// has ended, the wait for the end of the command, which is then killed, with a
/// warning from QProcess. A command that does not start gives an empty list and,
/// unless `quiet`, a warning.
QStringList sc_helper_exec(const QString& command, bool merge, bool quiet, const QString& inputFile,
                           int waitMs = 30000);

/// Whether the file begins with "#!"; false when it cannot be read.
bool sc_isScript(const QString& path);

/// The interpreter of a script and its arguments, from the first 1023 bytes of
/// the script's first line. Empty when the file cannot be read or does not
/// begin with "#!".
QStringList sc_getScriptBinaryPathAndArguments(const QString& path);

/// Sets a file's modification time and keeps its access time, both in
/// microseconds. False when the file cannot be examined or changed.
bool sc_setModifiedTime(const QString& path, const QDateTime& time);

/// Whether a descriptor is open, looked at for reading when `mode` includes
/// reading and for writing otherwise; never waits.
bool sc_isFileDescriptorOpen(int fd, QIODevice::OpenMode mode);
