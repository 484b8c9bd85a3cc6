#include "common/logger.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/overwrite.h"
#include "common/compatibility_simple/files/read.h"
#include "common/env/zorvenv.h"
#include "zorv-util/clock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QLoggingCategory>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int longestAppName = 64;
constexpr const char recordEnd[] = "</debug>";

// Whether records name the program, and its process id.
bool isProgramNamed = false;
int pid = 0;
QLoggingCategory::CategoryFilter previousFilter = nullptr;

// The handlers and the log file are never destroyed: static destructors may log.
QList<QtMsgHandler>& msgHandlers()
{
    static auto* const handlers = new QList<QtMsgHandler>;
    return *handlers;
}

QFile& logFile()
{
    static auto* const file = new QFile;
    return *file;
}

// A filter of message categories. Enables all messages of the default category, which are
// ours, and Qt's warnings, some of which abort the process.
void enableMessages(QLoggingCategory* category)
{
    if (previousFilter) {
        previousFilter(category);
    }
    category->setEnabled(QtWarningMsg, true);
    category->setEnabled(QtCriticalMsg, true);
    if (qstrcmp(category->categoryName(), "default") == 0) {
        category->setEnabled(QtDebugMsg, true);
        category->setEnabled(QtInfoMsg, true);
    }
}

// Writes the line in one call, so that lines of several processes do not mix. Standard
// error may be a terminal that another program has left non-blocking.
void printLine(const char* message)
{
    const QByteArray line = QByteArray(message) + '\n';
    blocking_write(STDERR_FILENO, line.constData(), static_cast<size_t>(line.size()));
}

// Whether a message is Qt's warning about a locale that is not UTF-8. A batch job would get
// it at every launch, and the programs work in every locale.
bool isAboutLocale(const QString& text)
{
    return text.startsWith(QLatin1String("Detected ")) && text.contains(QLatin1String(" locale "));
}

void plainMsgHandler(QtMsgType, const QMessageLogContext&, const QString& text)
{
    if (isAboutLocale(text)) {
        return;
    }
    printLine(text.toLocal8Bit().constData());
}

bool demandsAbort(QtMsgType type, const char* message)
{
    for (const char* text : {"No such signal", "No such slot", "Deadlock detected"}) {
        if (strstr(message, text)) {
            return true;
        }
    }
    return type == QtFatalMsg && qstrncmp(message, "ASSERT", 6) == 0;
}

void qtMsgHandler(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    const char* message = bytes.constData();
    if (strstr(message, "QIconvCodec::")) {
        return;
    }
    printLine(message);
    Logger::log(type, message);
    if (demandsAbort(type, message)) {
        abort();
    }
    if (type == QtFatalMsg) {
        exit(1);
    }
}

void installHandler(QtMessageHandler handler)
{
    qInstallMessageHandler(handler);
    if (!previousFilter) {
        previousFilter = QLoggingCategory::installFilter(enableMessages);
        // The filter now calls its predecessor; apply it to all categories again.
        QLoggingCategory::installFilter(enableMessages);
    }
}

void fileMsgHandler(QtMsgType, const char* message)
{
    logFile().write(message);
    logFile().write("\n", 1);
    logFile().flush();
}

QString logFileInDirectory(const QString& prefix)
{
    const QString directory = envPath("LOGS");
    return QFileInfo(directory).isDir() ? QDir(directory).filePath(prefix) : QString();
}

// The local time of day. The milliseconds have no leading zeros.
QByteArray timeText()
{
    timespec now = {};
    sc_clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char seconds[32];
    strftime(seconds, sizeof seconds, "%H:%M:%S.", &local);
    return seconds + QByteArray::number(qlonglong(now.tv_nsec / 1000000));
}

// The name of the program's file. Looked up at the first record: a program that writes none
// needs no look-up. After the end of the application, Qt does not know it.
const QByteArray& appName()
{
    const auto path = [] {
        return QCoreApplication::instance()
                   ? QCoreApplication::applicationFilePath()
                   : QFile::symLinkTarget(QStringLiteral("/proc/self/exe"));
    };
    // Never freed: static destructors may log.
    static const auto* const name =
        new QByteArray(QFileInfo(path()).fileName().left(longestAppName).toLocal8Bit());
    return *name;
}

QByteArray recordHeader(QtMsgType type)
{
    QByteArray header = "<debug time=\"" + timeText() + '"';
    if (isProgramNamed && !appName().isEmpty()) {
        header += " source=\"" + appName() + "\" pid=\"" + QByteArray::number(pid) + '"';
    }
    return header + " type=\"" + Logger::typeToString(type) + "\">";
}

// Waits until the descriptor accepts data again.
bool waitForRoom(int fd)
{
    pollfd request = {fd, POLLOUT, 0};
    if (uninterrupted([&] { return poll(&request, 1, -1); }) == -1) {
        perror("select");
        return false;
    }
    return true;
}

// Writes some bytes. Tries a single byte when the write would block: a pipe may accept one
// byte, but not all at once, see pipe(7) on O_NONBLOCK.
ssize_t writeSome(int fd, const char* bytes, size_t count)
{
    const ssize_t result = uninterrupted([&] { return sc_write(fd, bytes, count); });
    if (result == -1 && errno == EAGAIN && count > 1) {
        return writeSome(fd, bytes, 1);
    }
    return result;
}

} // namespace

namespace Logger {

void installPlainMsgHandler()
{
    // At the first use of its message categories, Qt reads rules in the configuration
    // directories. They have no effect on our messages and cost look-ups in the home directory.
    // The first entry of a variable counts.
    std::vector<const char*> variables = {"XDG_CONFIG_HOME=/dev/null", "XDG_CONFIG_DIRS=/dev/null"};
    for (char** variable = environ; variable && *variable; ++variable) {
        variables.push_back(*variable);
    }
    variables.push_back(nullptr);
    char** const environment = std::exchange(environ, const_cast<char**>(variables.data()));
    installHandler(plainMsgHandler);
    environ = environment;
}

void installQtMsgHandler()
{
    isProgramNamed = true;
    pid = sc_getpid();
    installHandler(qtMsgHandler);
}

QString logFileName(const char* environmentVariable, const QString& prefix, const QString& suffix)
{
    const char* value = environmentVariable ? ZorvEnv::uncachedValue(environmentVariable) : nullptr;
    QString name = value ? QFile::decodeName(value) : logFileInDirectory(prefix);
    if (!value && name.isNull()) {
        return QString();
    }
    const QString extension = QStringLiteral(".log");
    if (name.endsWith(extension)) {
        name.chop(extension.size());
    }
    return name + suffix + extension;
}

void installLogMsgHandler(const QString& fileName)
{
    if (fileName.isEmpty()) {
        qWarning("Log file name is empty");
        return;
    }
    Result<Descriptor> file = openToOverwrite(fileName);
    if (!file) {
        qCritical("%s: %s", fileName.toLocal8Bit().constData(),
                  file.error().text().toLocal8Bit().constData());
        return;
    }
    if (logFile().isOpen()) {
        logFile().close();
    } else {
        addMsgHandler(fileMsgHandler);
    }
    // Fails only for a file that is open already.
    static_cast<void>(
        logFile().open(file->release(), QIODevice::WriteOnly, QFileDevice::AutoCloseHandle));
}

void addMsgHandler(QtMsgHandler handler)
{
    msgHandlers().push_back(handler);
}

void removeMsgHandler(QtMsgHandler handler)
{
    msgHandlers().removeOne(handler);
}

void log(QtMsgType type, const char* message)
{
    const QList<QtMsgHandler> handlers = msgHandlers();
    for (QtMsgHandler handler : handlers) {
        handler(type, message);
    }
}

void vlog(QtMsgType type, const char* format, va_list arguments)
{
    char* message = nullptr;
    if (vasprintf(&message, format, arguments) == -1) {
        return;
    }
    log(type, message);
    free(message);
}

void logf(QtMsgType type, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vlog(type, format, arguments);
    va_end(arguments);
}

const char* typeToString(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "debug";
    case QtWarningMsg:
        return "warning";
    case QtCriticalMsg:
        return "critical";
    case QtFatalMsg:
        return "fatal";
    default:
        return "unknown";
    }
}

void xmlLog(int fd, QtMsgType type, const char* message)
{
    if (fd == -1) {
        return;
    }
    const QByteArray header = recordHeader(type);
    blocking_write(fd, header.constData(), size_t(header.size()));
    blocking_write(fd, message, strlen(message));
    blocking_write(fd, recordEnd, strlen(recordEnd));
}

QByteArray xmlLogBytes(QtMsgType type, const char* message)
{
    return recordHeader(type) + message + recordEnd;
}

} // namespace Logger

ssize_t blocking_write(int fd, const void* buf, size_t count)
{
    const char* bytes = static_cast<const char*>(buf);
    size_t written = 0;
    do {
        const ssize_t result = writeSome(fd, bytes + written, count - written);
        if (result == -1 && errno != EAGAIN) {
            perror("write");
            return -1;
        }
        written += static_cast<size_t>(qMax<ssize_t>(result, 0));
    } while (written < count && waitForRoom(fd));
    return static_cast<ssize_t>(written);
}
