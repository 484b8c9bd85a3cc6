#pragma once

/// Restores the CPU affinity mask that the program was started with, see
/// sched_setaffinity(2). When OMP_PROC_BIND, OMP_PLACES or GOMP_CPU_AFFINITY is set, an
/// OpenMP library that another library depends on binds the program to a CPU before
/// main; the helper and the job would inherit that mask. Does nothing when the mask is
/// unchanged or could not be read.
void restoreAffinity();
