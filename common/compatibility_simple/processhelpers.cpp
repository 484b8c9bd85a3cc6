// Operating-system services under one set of names, for processes and files.

#include "common/compatibility_simple/processhelpers.h"

#include "common/compatibility_simple/fileio.h"
#include "common/env/zorvenv.h"
#include "common/mlib.h"
#include "zorv-util/qblockingprocess.h"

#include <QDebug>
#include <QFile>
#include <QObject>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int longestInterpreterLine = 1023;

bool ignored = false;

// The first bytes of a file, fewer when it is shorter; empty when it cannot be
// read.
QByteArray firstBytes(const QString& path, int count)
{
    const int fd = openToRead(path);
    if (fd == -1) {
        return QByteArray();
    }
    QByteArray bytes(count, '\0');
    const bool complete = readUpTo(fd, &bytes);
    sc_close(fd);
    return complete ? bytes : QByteArray();
}

} // namespace

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

passwd* sc_getpwuid(uid_t uid)
{
    return getpwuid(uid);
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

hostent* sc_gethostbyname(const char* name)
{
    return name ? gethostbyname(name) : nullptr;
}

int sc_gethostname(char* buffer, size_t length)
{
    return gethostname(buffer, length);
}

int convertPid(int pid)
{
    return pid;
}

int sc_usleep(int microseconds)
{
    const timespec duration = {microseconds / 1000000, microseconds % 1000000 * 1000L};
    nanosleep(&duration, nullptr);
    return 0;
}

int ignoreSigPipe()
{
    if (ignored) {
        return 0;
    }
    ignored = true;
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    sigemptyset(&action.sa_mask);
    return sigaction(SIGPIPE, &action, nullptr);
}

int sc_kill(pid_t pid, int signo)
{
    const QString setting = envString("DEBUG_SC_KILL");
    if (setting.isEmpty() || signo == 0) {
        return kill(pid, signo);
    }
    const bool drop = setting.contains(QStringLiteral("ignore{%1}").arg(signo));
    qDebug() << "sc_kill(pid,signo):" << pid << signo << "ignore" << drop;
    return drop ? 0 : kill(pid, signo);
}

QStringList sc_helper_exec(const QString& command, bool merge, bool quiet, const QString& inputFile,
                           int waitMs)
{
    QBlockingProcess process;
    process.setProcessChannelMode(merge ? QProcess::MergedChannels : QProcess::SeparateChannels);
    process.setStandardInputFile(inputFile.isEmpty() ? QProcess::nullDevice() : inputFile);
    process.startCommand(command);
    if (!process.waitForStarted(waitMs)) {
        if (!quiet) {
            const QString text = QObject::tr("Failed to run '%0'").arg(command);
            qWarning("%s", text.toLocal8Bit().constData());
        }
        return QStringList();
    }
    QStringList lines;
    for (QByteArray line = process.readLine(); !line.isEmpty(); line = process.readLine()) {
        if (line.endsWith('\n')) {
            line.chop(1);
        }
        lines += QString::fromLocal8Bit(line);
    }
    process.waitForFinished(waitMs);
    return lines;
}

bool sc_isScript(const QString& path)
{
    return firstBytes(path, 2) == "#!";
}

QStringList sc_getScriptBinaryPathAndArguments(const QString& path)
{
    QByteArray line = firstBytes(path, longestInterpreterLine);
    const qsizetype end = line.indexOf('\n');
    if (end != -1) {
        line.truncate(end);
    }
    // The kernel, too, takes the line as a C string.
    const QString text = QFile::decodeName(line.constData());
    return text.startsWith(QLatin1String("#!")) ? parseArgs(text.mid(2)) : QStringList();
}

bool sc_setModifiedTime(const QString& path, const QDateTime& time)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    if (stat(name.constData(), &status) == -1) {
        return false;
    }
    // Microseconds count forward from the second, before 1970 too.
    const qint64 milliseconds = time.toMSecsSinceEpoch();
    const qint64 remainder = (milliseconds % 1000 + 1000) % 1000;
    const timeval times[2] = {
        {status.st_atim.tv_sec, status.st_atim.tv_nsec / 1000},
        {(milliseconds - remainder) / 1000, remainder * 1000},
    };
    return utimes(name.constData(), times) == 0;
}

bool sc_isFileDescriptorOpen(int fd, QIODevice::OpenMode mode)
{
    if (fd < 0) {
        return false;
    }
    pollfd request = {fd, short(mode & QIODevice::ReadOnly ? POLLIN : POLLOUT), 0};
    return poll(&request, 1, 0) >= 0 && !(request.revents & POLLNVAL);
}
