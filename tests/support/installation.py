"""An installation with the built launcher, and the session directory of a front end."""

import platform
import shutil
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from typing import Optional

from support.processes import Ended, Process


class Build:
    """A build directory, and the programs in it."""

    def __init__(self, folder: Path):
        self.folder = folder
        self.launcher = folder / "mpirun/zorv-mpirun"
        self.report = folder / "mpirun-info/zorv-mpirun-info"
        self.testchild = folder / "tests/testchild"

    def variable(self, name: str) -> str:
        """The value of a variable of CMake's cache, or nothing."""
        for line in (self.folder / "CMakeCache.txt").read_text().splitlines():
            if line.startswith(f"{name}:"):
                return line.partition("=")[2]
        return ""


class Session:
    """A front end's session directory and what the launcher may have in it."""

    def __init__(self, folder: Path):
        self.folder = folder
        self.restart = folder / "restart"
        self.hold = folder / "restart-hold"
        self.marker = folder / "restart-supported"

    def files(self) -> list[str]:
        """The names in the directory, sorted."""
        return sorted(path.name for path in self.folder.iterdir())


class Installation:
    """An installation of the suite with the built launcher in it.

    `environment` is what the launcher gets; tests may change it. The helper prints
    "started" and exits with 3, until another one is set.
    """

    def __init__(self, root: Path, build: Build, start: Callable[..., Process],
                 environment: dict[str, str]):
        self.root = root
        self.build = build
        self.environment = environment
        self._start = start
        for name in ("bin", "lib", "libexec", "session"):
            (root / name).mkdir(parents=True)
        self.launcher = root / "bin/zorv-mpirun"
        self.helper = root / "bin/zorv-debugger"
        shutil.copy(build.launcher, self.launcher)
        self.set_helper("echo started; exit 3")

    def set_helper(self, script: str):
        """Makes the helper a shell script."""
        self.helper.write_text(f"#!/bin/sh\n{script}\n")
        self.helper.chmod(0o755)

    def set_test_child(self, *actions):
        """Makes the helper the test child with these actions, see testchild.cpp."""
        shutil.copy(self.build.testchild, self.helper)
        self.environment["TESTCHILD"] = " ".join(str(action) for action in actions)

    def start(self, *arguments, under: Sequence = (),
              env: Optional[Mapping[str, Optional[str]]] = None) -> Process:
        """Starts the launcher, through the command `under` if there is one.

        `env` changes the environment; None unsets a variable.
        """
        return self._start(*under, self.launcher, *arguments, env=env)

    def launch(self, *arguments, **options) -> Ended:
        """Starts the launcher and waits for its end."""
        return self.start(*arguments, **options).wait()

    def log_name(self, base: Path) -> Path:
        """The log file for ZORV_MPIRUN_LOG=`base`."""
        return base.with_name(f"{base.name}-{platform.node()}.log")
