/* The helper: ends at once, unless one of these variables tells it to do something else.

   BENCH_SLEEP     writes to standard output and sleeps until the end of standard input
                   or a signal
   BENCH_TIMES     appends a record to this file: the times of start and end, two 64-bit
                   numbers of nanoseconds
   BENCH_RESTARTS  with BENCH_TIMES: requests restarts through the files in the session
                   directory until the file has this number of records */

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static int64_t now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (int64_t)time.tv_sec * 1000000000 + time.tv_nsec;
}

static int sleepUntilTold(void)
{
    char byte = 's';
    if (write(STDOUT_FILENO, &byte, 1) != 1) {
        return 1;
    }
    return read(STDIN_FILENO, &byte, 1) == 0 ? 0 : 1;
}

/* Requests a restart if `again` is set, and removes the hold file. */
static void decideRestart(const char* directory, int again)
{
    char name[4096];
    snprintf(name, sizeof name, "%s/restart-hold", directory);
    unlink(name);
    if (again) {
        snprintf(name, sizeof name, "%s/restart", directory);
        close(open(name, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
}

static int recordTimes(int64_t start, const char* file)
{
    const int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    struct stat status;
    if (fd == -1 || fstat(fd, &status) == -1) {
        return 1;
    }
    const char* const restarts = getenv("BENCH_RESTARTS");
    int64_t record[2] = {start, 0};
    const long records = (long)(status.st_size / (off_t)sizeof record) + 1;
    if (restarts) {
        decideRestart(getenv("ZORV_SESSION_PATH"), records < atol(restarts));
    }
    record[1] = now();
    return write(fd, record, sizeof record) == sizeof record ? 0 : 1;
}

int main(void)
{
    const int64_t start = now();
    const char* const times = getenv("BENCH_TIMES");
    if (times) {
        return recordTimes(start, times);
    }
    return getenv("BENCH_SLEEP") ? sleepUntilTold() : 0;
}
