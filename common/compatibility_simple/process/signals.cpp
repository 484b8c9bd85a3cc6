#include "common/compatibility_simple/process/signals.h"

#include "common/env/zorvenv.h"

#include <QDebug>
#include <QString>

#include <csignal>

namespace {

bool ignored = false;

} // namespace

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
