#include "mpirun/startmask.h"

#include "mpirun/signalhandling.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char* rememberedMask = "TALVORA_OLD_SIGNAL_MASK";
constexpr int digits = 16;
constexpr int signalsInMask = 64;

sigset_t g_maskOfStart;

void holdPassedSignals(int, char**, char**)
{
    const sigset_t passed = passedSignals();
    sigprocmask(SIG_BLOCK, &passed, &g_maskOfStart);
}

// Runs before the constructors of all libraries (System V ABI, "Initialization and
// Termination Functions").
[[gnu::section(".preinit_array"),
  gnu::used]] void (*const holdPassedSignalsFirst)(int, char**, char**) = holdPassedSignals;

} // namespace

sigset_t signalMaskOfStart()
{
    return g_maskOfStart;
}

void rememberSignalMask()
{
    std::uint64_t bits = 0;
    for (int signo = 1; signo <= signalsInMask; ++signo) {
        if (sigismember(&g_maskOfStart, signo) == 1) {
            bits |= std::uint64_t(1) << (signo - 1);
        }
    }
    char text[digits + 1];
    snprintf(text, sizeof text, "%016" PRIx64, bits);
    setenv(rememberedMask, text, 1);
}

void recallSignalMask()
{
    const char* text = getenv(rememberedMask);
    if (!text) {
        return;
    }
    if (strlen(text) == digits && strspn(text, "0123456789abcdef") == digits) {
        const std::uint64_t bits = strtoull(text, nullptr, 16);
        sigemptyset(&g_maskOfStart);
        for (int signo = 1; signo <= signalsInMask; ++signo) {
            if ((bits >> (signo - 1) & 1) != 0) {
                sigaddset(&g_maskOfStart, signo);
            }
        }
    }
    unsetenv(rememberedMask);
}
