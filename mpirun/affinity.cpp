#include "mpirun/affinity.h"

#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// In bytes: 8192 CPUs, the largest NR_CPUS of the kernel on x86-64.
constexpr std::size_t maskSize = 1024;
struct Mask
{
    alignas(unsigned long) unsigned char bits[maskSize];
    long size;
};
Mask g_maskOfStart = {};

// Not the C library's wrapper: the system call returns the size of the kernel's mask.
void readMask(Mask* mask)
{
    mask->size = syscall(SYS_sched_getaffinity, 0, maskSize, mask->bits);
}

void recordMask(int, char**, char**)
{
    readMask(&g_maskOfStart);
}

// Runs before the constructors of all libraries (System V ABI, "Initialization and
// Termination Functions").
[[gnu::section(".preinit_array"), gnu::used]] void (*const recordMaskFirst)(int, char**,
                                                                            char**) = recordMask;

} // namespace

void restoreAffinity()
{
    Mask now = {};
    readMask(&now);
    if (g_maskOfStart.size > 0 &&
        (now.size != g_maskOfStart.size || memcmp(now.bits, g_maskOfStart.bits, maskSize) != 0)) {
        syscall(SYS_sched_setaffinity, 0, g_maskOfStart.size, g_maskOfStart.bits);
    }
}
