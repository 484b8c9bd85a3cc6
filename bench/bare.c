/* A minimal launcher: starts a program and waits for its end, as often as it is told. */

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

static int runOnce(char** arguments)
{
    const pid_t pid = fork();
    if (pid == -1) {
        perror("fork");
        return 1;
    }
    if (pid == 0) {
        execv(arguments[0], arguments);
        _exit(127);
    }
    int status;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) {
            perror("waitpid");
            return 1;
        }
    }
    return status == 0 ? 0 : 1;
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s TIMES PROGRAM [ARGUMENT...]\n", argv[0]);
        return 2;
    }
    for (long left = atol(argv[1]); left > 0; --left) {
        if (runOnce(argv + 2) != 0) {
            return 1;
        }
    }
    return 0;
}
