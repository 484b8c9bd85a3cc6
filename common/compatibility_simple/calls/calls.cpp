#include "common/compatibility_simple/calls/calls.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

pid_t sc_fork()
{
    return fork();
}

int sc_unlink(const char* path)
{
    return unlink(path);
}

int sc_chmod(const QString& path, mode_t mode)
{
    return chmod(QFile::encodeName(path).constData(), mode);
}

pid_t sc_getpid()
{
    return getpid();
}

pid_t sc_getppid()
{
    return getppid();
}

uid_t sc_getuid()
{
    return getuid();
}

int sc_rename(const QString& oldPath, const QString& newPath)
{
    return rename(QFile::encodeName(oldPath).constData(), QFile::encodeName(newPath).constData());
}

int sc_mkdir(const QString& path, mode_t mode)
{
    return mkdir(QFile::encodeName(path).constData(), mode);
}

int sc_mkfifo(const char* path, mode_t mode)
{
    return mkfifo(path, mode);
}

pid_t sc_waitpid(pid_t pid, int* status, int options)
{
    return waitpid(pid, status, options);
}

int sc_isatty(int fd)
{
    return isatty(fd);
}

int sc_execl(const char* path, const char* argument0)
{
    return execl(path, argument0, static_cast<char*>(nullptr));
}

int sc_execv(const char* path, char* const argv[])
{
    return execv(path, argv);
}

int sc_execvp(const char* file, char* const argv[])
{
    return execvp(file, argv);
}

int sc_open(const char* path, int flags)
{
    return open(path, flags);
}

int sc_open(const char* path, int flags, mode_t mode)
{
    return open(path, flags, mode);
}

int sc_close(int fd)
{
    return close(fd);
}

int sc_access(const char* path, int mode)
{
    return access(path, mode);
}

ssize_t sc_write(int fd, const void* buffer, size_t length)
{
    return write(fd, buffer, length);
}

int sc_setenv(const char* name, const char* value, bool overwrite)
{
    return setenv(name, value, overwrite ? 1 : 0);
}

int sc_putenv(char* nameAndValue)
{
    return putenv(nameAndValue);
}

int sc_unsetenv(const char* name)
{
    return unsetenv(name);
}

int sc_mkstemp(char* nameTemplate)
{
    return mkstemp(nameTemplate);
}

int sc_gethostname(char* buffer, size_t length)
{
    return gethostname(buffer, length);
}
