#include "zorv-debugger/zorvdebuggeroptions.h"

#include "backend/optiontable.h"
#include "branding/filenames.h"
#include "common/compatibility_simple/calls/calls.h"
#include "common/env/zorvenv.h"
#include "common/logger.h"

#include <QObject>
#include <QSysInfo>

#include <cstdio>
#include <cstdlib>

namespace {

QString manualLaunchUsage()
{
    return QObject::tr(
               "Usage: %1 [OPTION]... [PROGRAM] [ARGUMENTS]...\n"
               "Helper daemon for manual launch mode. Note that this is not the remote client.\n"
               "Use \"kinnet\", \"zorv\", or \"pelk\" and use the \"Remote Launch\" box to connect "
               "to remote systems.\n"
               "For instructions on when to use this helper daemon see the\n"
               "\"Manual Launching of Multi-Process Non-MPI programs\" section in the userguide.\n"
               "\n"
               "  -host HOSTNAME         host name to connect to\n"
               "  -session SESSION       session to connect to\n"
               "  -attach PID            process id to attach to\n"
               "\n"
               "The %2HOST and %2SESSION environment variables may also be used\n"
               "to specify a host name and session if not supplied on the command line.\n"
               "If no host name is specified it will be read from ~/%3/session/latest\n"
               "which is automatically created by the front end.\n")
        .arg(FileName::zorvClient, FileName::suiteEnvVarPrefix, FileName::suiteDotConfigDir);
}

} // namespace

ZORVDebuggerOptions::ZORVDebuggerOptions(const BackendOptions& options)
    : BackendOptions(options)
{
}

bool ZORVDebuggerOptions::parse(const QStringList& arguments)
{
    mManualLaunch = envFlag("MANUAL_LAUNCH");
    mDebug = envIsSet("DEBUGGER_MULTIPLEXER_DEBUG", ZorvEnv::uncachedValue("DEBUG") != nullptr);
    mVerbose = envIsSet("DEBUGGER_MULTIPLEXER_VERBOSE", ZorvEnv::uncachedValue("DEBUG") != nullptr);
    setSimpleArguments(mManualLaunch);
    const bool ok = Options::parse(arguments);

    const QString suffix = (mRoot ? QStringLiteral("-root-%1-%2") : QStringLiteral("-%1-%2"))
                               .arg(QSysInfo::machineHostName(), QString::number(sc_getpid()));
    mLogFileName = Logger::logFileName("DEBUGGER_MULTIPLEXER_LOG",
                                       QStringLiteral("zorv-debugger-multiplexer"), suffix);
    mClientLogFileName =
        Logger::logFileName("DEBUGGER_MULTIPLEXER_CLIENT_LOG",
                            QStringLiteral("zorv-debugger-multiplexer-client"), suffix);
    return ok;
}

Options::ParseResult ZORVDebuggerOptions::parseOption(const QString& option,
                                                      QStringList::const_iterator& it,
                                                      QStringList::const_iterator end)
{
    using D = ZORVDebuggerOptions;
    static const OptionRow<D> table[] = {
#define DEBUGGER_OPTION(name, simpleNames, value, text, ...) {name, simpleNames, __VA_ARGS__},
#include "backend/options.def"
    };
    const ParseResult result = parseByTable(table, this, option, it, end, nullptr);
    return result == Unrecognised ? BackendOptions::parseOption(option, it, end) : result;
}

// As the last argument, the option asks for help on manual-launch mode.
void ZORVDebuggerOptions::beginManualLaunch(bool isLastArgument)
{
    mExplicitTarget = true;
    setSimpleArguments(true);
    if (isLastArgument) {
        printHelp();
        exit(1);
    }
}

void ZORVDebuggerOptions::beginForked(bool)
{
    mExplicitTarget = true;
}

Options::ParseResult ZORVDebuggerOptions::parseRemainingArguments(const QStringList& rest)
{
    mTargetArguments = rest;
    return Ok;
}

void ZORVDebuggerOptions::printHelp()
{
    QString text;
    if (mMpirun) {
        text =
            QObject::tr("%1 [TOOL ARGUMENTS]... [MPIRUN ARGUMENTS]...\n").arg(FileName::zorvMpirun);
    } else if (!mManualLaunch) {
        text = QObject::tr("%1 [ZORV ARGUMENTS]...\n").arg(FileName::zorvDebugger);
    } else {
        text = manualLaunchUsage();
    }
    puts(text.toLocal8Bit().constData());
}
