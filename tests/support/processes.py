"""Starting processes, waiting for them, and finding those that were left behind."""

import ctypes
import os
import re
import select
import shlex
import signal
import subprocess
import time
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from tempfile import NamedTemporaryFile
from typing import BinaryIO, NamedTuple

import psutil
import pytest


def wait_until(condition: Callable[[], bool], what: str, seconds: float = 30):
    """Waits until the condition holds."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            pytest.fail(f"not within {seconds} s: {what}")
        time.sleep(0.01)


def read_text(file: Path) -> str:
    """The content of a file, whatever bytes it has."""
    return file.read_text("utf-8", "surrogateescape")


class Ended(NamedTuple):
    """The end of a process. The status is negative for a signal, as in subprocess."""

    status: int
    output: str = ""
    errors: str = ""


class Process:
    """A program that was started, with its output in files of a folder."""

    def __init__(self, command: Sequence, folder: Path, env: Mapping[str, str], cwd: Path):
        self.command = [str(word) for word in command]
        settings = [f"{name}={value}" for name, value in env.items()
                    if os.environ.get(name) != value]
        # Shown when the test fails.
        print(f"$ cd {cwd} && {shlex.join(['env', *settings, *self.command])[:2000]}")
        with NamedTemporaryFile(prefix="output-", dir=folder, delete=False) as output, \
                NamedTemporaryFile(prefix="errors-", dir=folder, delete=False) as errors:
            self._process = subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=output, stderr=errors, env=env,
                cwd=cwd)
        self._output, self._errors = Path(output.name), Path(errors.name)
        self.pid = self._process.pid

    def send(self, number: int):
        """Sends a signal."""
        os.kill(self.pid, number)

    def wait_for_no_child(self):
        """Waits until it has seen the end of its child."""
        wait_until(lambda: not children(self.pid), f"{self.command[0]} has no child")

    def errors(self) -> str:
        """What it has written to standard error so far."""
        return read_text(self._errors)

    def wait(self) -> Ended:
        """Waits for the end."""
        status = self._process.wait()
        return Ended(status, read_text(self._output), read_text(self._errors))


class Fifo:
    """A FIFO that has no end when a writer closes it, as `file` has it open for both."""

    def __init__(self, path: Path, file: BinaryIO):
        self.path = path
        self._file = file

    def line(self) -> str:
        """Waits for a line."""
        if not select.select([self._file], [], [], 30)[0]:
            pytest.fail(f"not within 30 s: a line in the FIFO {self.path.name!r}")
        return self._file.readline().decode().rstrip("\n")

    def numbers(self) -> list[int]:
        """Waits for a line, and returns the numbers in it."""
        return [int(number) for number in re.findall(r"\d+", self.line())]

    def process(self) -> psutil.Process:
        """Waits for a line with the id of a process."""
        return psutil.Process(self.numbers()[0])


def become_subreaper():
    """Makes orphaned descendants children of this process, see prctl(2)."""
    set_child_subreaper = 36
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(set_child_subreaper, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def children(pid: int) -> list[int]:
    """The children of a process's first thread."""
    return [int(pid) for pid in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def running_children() -> list[int]:
    """The children of this process, without those that have ended, which it reaps."""
    for child in children(os.getpid()):
        os.waitpid(child, os.WNOHANG)
    return children(os.getpid())


def kill_descendants():
    """Ends all descendants of this process, which become its children one by one."""
    while remaining := running_children():
        for pid in remaining:
            os.kill(pid, signal.SIGKILL)
        time.sleep(0.001)
