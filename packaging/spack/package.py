# Spack recipe of zorv-mpirun. Copy it to packages/zorv-mpirun/package.py in a
# Spack repository, see docs/building.md.

from spack.package import *


class ZorvMpirun(CMakePackage):
    """MPI job launcher of a parallel debugging and profiling suite."""

    # Built from a checkout with the command in docs/building.md.
    manual_download = True
    url = "zorv-mpirun-1.0.0.tar.gz"

    version("1.0.0")

    depends_on("cxx", type="build")
    depends_on("c", type="build")
    depends_on("cmake@3.25:", type="build")
    depends_on("ninja", type="build")
    depends_on("qt-base@6.4:+network")

    generator("ninja")

    def cmake_args(self):
        return [self.define("ZORV_BUILD_TESTS", self.run_tests)]
