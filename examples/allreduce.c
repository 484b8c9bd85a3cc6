/* Each rank prints its number and checks the sum of all ranks, which an all-reduce gives,
 * against the formula. */

#include <mpi.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    int rank;
    int size;
    int sum;

    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    MPI_Allreduce(&rank, &sum, 1, MPI_INT, MPI_SUM, MPI_COMM_WORLD);

    const int expected = size * (size - 1) / 2;
    printf("rank %d of %d: the ranks add up to %d, %s\n", rank, size, sum,
           sum == expected ? "as they should" : "which is WRONG");
    MPI_Finalize();
    return sum == expected ? 0 : 1;
}
