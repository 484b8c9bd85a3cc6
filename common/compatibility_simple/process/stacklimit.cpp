#include "common/compatibility_simple/process/stacklimit.h"

#include "common/ProcInfo.h"
#include "common/compatibility_simple/calls/calls.h"
#include "common/env/zorvenv.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr const char* rememberedLimit = "TALVORA_OLD_STACK_LIMIT";

std::optional<rlimit> g_userLimit;

bool setSoftLimit(rlimit limits, rlim_t soft)
{
    limits.rlim_cur = soft;
    if (setrlimit(RLIMIT_STACK, &limits) != 0) {
        perror("setrlimit");
        return false;
    }
    return true;
}

QString ownExecutable(const char* argument0)
{
    const QString exe = ProcInfo::getExe(sc_getpid());
    return QFile::exists(exe) ? exe : QFile::decodeName(argument0);
}

void replaceProcess(int argc, const char* const* argv)
{
    const QString exe = ownExecutable(argc > 0 ? argv[0] : "");
    if (!QFile::exists(exe)) {
        return;
    }
    std::vector<char*> arguments;
    arguments.reserve(static_cast<std::size_t>(argc) + 1);
    for (int i = 0; i < argc; ++i) {
        arguments.push_back(const_cast<char*>(argv[i]));
    }
    arguments.push_back(nullptr);
    sc_execv(QFile::encodeName(exe).constData(), arguments.data());
    perror("execv");
}

} // namespace

void fixStackLimit(int argc, const char* const* argv, void (*beforeExec)())
{
    if (envFlag("IGNORE_STACK_LIMIT")) {
        return;
    }
    rlimit limits;
    if (getrlimit(RLIMIT_STACK, &limits) != 0) {
        perror("getrlimit");
        return;
    }
    if (getenv(rememberedLimit)) {
        const std::optional<rlim_t> remembered = rememberedStackLimit();
        sc_unsetenv(rememberedLimit);
        if (remembered) {
            setSoftLimit(limits, *remembered);
        }
        return;
    }
    if (keepsStackLimit(limits.rlim_cur)) {
        return;
    }
    sc_setenv(rememberedLimit, QByteArray::number(qulonglong(limits.rlim_cur)).constData(), true);
    if (setSoftLimit(limits, freshCopyStackLimit)) {
        g_userLimit = limits;
        if (beforeExec) {
            beforeExec();
        }
        replaceProcess(argc, argv);
    }
}

// QByteArray::toULongLong() alone would accept signs and blanks.
std::optional<rlim_t> rememberedStackLimit()
{
    const QByteArray text = qgetenv(rememberedLimit);
    const bool digits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    bool ok = false;
    const rlim_t number = text.toULongLong(&ok);
    return digits && ok ? std::optional<rlim_t>(number) : std::nullopt;
}

std::optional<rlimit> userStackLimit()
{
    return g_userLimit;
}
