// The system calls that the suite makes, under one set of names.

#pragma once

#include <QString>

#include <cstddef>
#include <sys/types.h>

// Wrappers of the calls that they are named for: each returns what the call
// returns and leaves errno as the call left it; none repeats an interrupted
// call. Paths given as QString are encoded with QFile::encodeName().

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
int sc_gethostname(char* buffer, size_t length);
