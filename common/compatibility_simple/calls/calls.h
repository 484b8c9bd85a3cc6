#pragma once

#include <QString>

#include <cstddef>
#include <sys/types.h>

/// @name System calls
/// Each function makes the call that it is named for, returns the call's result, and
/// leaves errno unchanged after it. None repeats an interrupted call. A path that is a
/// QString is encoded with QFile::encodeName().
/// @{
pid_t sc_fork();
int sc_unlink(const char* path);
int sc_chmod(const QString& path, mode_t mode);
pid_t sc_getpid();
pid_t sc_getppid();
uid_t sc_getuid();
int sc_rename(const QString& oldPath, const QString& newPath);
int sc_mkdir(const QString& path, mode_t mode);
int sc_mkfifo(const char* path, mode_t mode);
pid_t sc_waitpid(pid_t pid, int* status, int options);
int sc_isatty(int fd);
/// execl(3) with `argument0` as the only argument.
int sc_execl(const char* path, const char* argument0);
int sc_execv(const char* path, char* const argv[]);
int sc_execvp(const char* file, char* const argv[]);
int sc_open(const char* path, int flags);
int sc_open(const char* path, int flags, mode_t mode);
int sc_close(int fd);
int sc_access(const char* path, int mode);
ssize_t sc_write(int fd, const void* buffer, size_t length);
int sc_setenv(const char* name, const char* value, bool overwrite);
/// The string itself becomes part of the environment, see putenv(3): keep it alive.
int sc_putenv(char* nameAndValue);
int sc_unsetenv(const char* name);
/// Replaces the template with the name of the file.
int sc_mkstemp(char* nameTemplate);
int sc_gethostname(char* buffer, size_t length);
/// @}
