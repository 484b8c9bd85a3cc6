#pragma once

/// Restores the CPU affinity that the program was started with, see
/// sched_setaffinity(2). An OpenMP library that comes with another one binds the program
/// to a CPU before main when OMP_PROC_BIND, OMP_PLACES or GOMP_CPU_AFFINITY ask for it,
/// and the helper and the whole job would inherit that.
void restoreAffinity();
