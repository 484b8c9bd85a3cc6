#include "mpirun/execreport.h"

#include "common/compatibility_simple/files/read.h"

#include <fcntl.h>
#include <unistd.h>

ExecReport::ExecReport()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
        mReadEnd = Descriptor(ends[0]);
        mWriteEnd = Descriptor(ends[1]);
    }
}

int ExecReport::error()
{
    mWriteEnd.close();
    int error = 0;
    const ssize_t count = uninterrupted([&] { return read(mReadEnd.get(), &error, sizeof error); });
    return count == sizeof error ? error : 0;
}
