# Spack recipe of zorv-mpirun. Copy it to packages/zorv-mpirun/package.py in a
# Spack repository; docs/building.md says how it is used.

from spack.package import *


class ZorvMpirun(CMakePackage):
    """MPI job launcher stand-in of a parallel debugging and profiling suite."""

    # The source comes from a checkout (spack develop) or from an archive that
    # was put into the current directory.
    manual_download = True
    url = "zorv-mpirun-1.0.0.tar.gz"

    version("1.0.0")

    variant("tests", default=False, description="Build the test programs")

    depends_on("cxx", type="build")
    depends_on("c", type="build")
    depends_on("cmake@3.25:", type="build")
    depends_on("ninja", type="build")
    depends_on("qt-base@6.4:+network")

    generator("ninja")

    def cmake_args(self):
        return [self.define_from_variant("ZORV_BUILD_TESTS", "tests")]
