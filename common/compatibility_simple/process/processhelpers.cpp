#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/process/processhelpers_p.h"

#include "common/compatibility_simple/files/read.h"
#include "common/mlib.h"
#include "zorv-util/qblockingprocess.h"

#include <QFile>
#include <QObject>

#include <ctime>

namespace {

constexpr int longestInterpreterLine = 1023;
constexpr int commandLimitMs = 30000;

} // namespace

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

QStringList sc_helper_exec(const QString& command, bool merge, bool quiet, const QString& inputFile)
{
    return ProcessHelpers::outputLines(command, merge, quiet, inputFile, commandLimitMs);
}

QStringList ProcessHelpers::outputLines(const QString& command, bool merge, bool quiet,
                                        const QString& inputFile, int limitMs)
{
    QBlockingProcess process;
    if (merge) {
        process.setProcessChannelMode(QProcess::MergedChannels);
    } else {
        process.setStandardErrorFile(QProcess::nullDevice());
    }
    process.setStandardInputFile(inputFile.isEmpty() ? QProcess::nullDevice() : inputFile);
    // QProcess::startCommand() crashes on an empty command.
    const QStringList words = QProcess::splitCommand(command);
    process.start(words.value(0), words.mid(1), QIODevice::ReadOnly);
    if (!process.waitForStarted(limitMs)) {
        if (!quiet) {
            const QString text = QObject::tr("Failed to run '%0'").arg(command);
            qWarning("%s", text.toLocal8Bit().constData());
        }
        return QStringList();
    }
    QStringList lines;
    while (!process.atEnd()) {
        QByteArray line = process.readLine();
        if (line.endsWith('\n')) {
            line.chop(1);
        }
        lines += QString::fromLocal8Bit(line);
    }
    process.waitForFinished(limitMs);
    return lines;
}

bool sc_isScript(const QString& path)
{
    return readRegularFile(path, 2).value_or(QByteArray()) == "#!";
}

QStringList sc_getScriptBinaryPathAndArguments(const QString& path)
{
    const QByteArray start = readRegularFile(path, longestInterpreterLine).value_or(QByteArray());
    const QByteArray line = start.split('\n').front();
    // A null byte ends the line, as it does for the kernel.
    const QString text = QFile::decodeName(line.constData());
    return text.startsWith(QLatin1String("#!")) ? parseArgs(text.mid(2)) : QStringList();
}
