/* Runs a command for which system calls are missing, and for all that it starts.

     fewercalls linux-4.18 COMMAND [ARGUMENT]...
     fewercalls CALL COMMAND [ARGUMENT]...

   linux-4.18: calls and flags that are newer fail, as on a kernel that has no process
   descriptors. A clone() with CLONE_PIDFD fails, too, as in emulators; the kernel would
   ignore the flag.
   CALL, the name of a call: it does nothing and returns 0. */

#define _GNU_SOURCE
#include <errno.h>
#include <sched.h>
#include <seccomp.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

/* Newer than any C library of that time: see waitid(2) and clone(2). */
#define P_PIDFD_NUMBER 3
#define CLONE_PIDFD_FLAG 0x1000

static const char* const newCalls[] = {
    "clone3",  "close_range", "epoll_pwait2", "faccessat2",        "futex_waitv",
    "openat2", "pidfd_getfd", "pidfd_open",   "pidfd_send_signal", "process_madvise",
};

static int becomeOldKernel(scmp_filter_ctx filter)
{
    const uint32_t invalid = SCMP_ACT_ERRNO(EINVAL);
    const uint32_t missing = SCMP_ACT_ERRNO(ENOSYS);
    int result = seccomp_rule_add(filter, invalid, SCMP_SYS(waitid), 1,
                                  SCMP_A0(SCMP_CMP_EQ, P_PIDFD_NUMBER, 0));
    if (result == 0) {
        result = seccomp_rule_add(filter, missing, SCMP_SYS(clone), 1,
                                  SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_PIDFD_FLAG, CLONE_PIDFD_FLAG));
    }
    for (size_t i = 0; i < sizeof newCalls / sizeof *newCalls && result == 0; ++i) {
        result = seccomp_rule_add(filter, missing, seccomp_syscall_resolve_name(newCalls[i]), 0);
    }
    return result;
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: fewercalls linux-4.18|CALL COMMAND [ARGUMENT]...\n");
        return 2;
    }
    const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    int result = -ENOMEM;
    if (filter) {
        result = strcmp(argv[1], "linux-4.18") == 0
                     ? becomeOldKernel(filter)
                     : seccomp_rule_add(filter, SCMP_ACT_ERRNO(0),
                                        seccomp_syscall_resolve_name(argv[1]), 0);
    }
    if (result == 0) {
        result = seccomp_load(filter);
    }
    if (result != 0) {
        fprintf(stderr, "fewercalls: %s\n", strerror(-result));
        return 1;
    }
    execvp(argv[2], argv + 2);
    perror(argv[2]);
    return 127;
}
