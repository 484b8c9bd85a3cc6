"""A terminal of the test's own, with a shell that has job control."""

import os
import pty
import signal
import subprocess
from collections.abc import Mapping, Sequence
from pathlib import Path

from support.processes import wait_until


class Terminal:
    """Runs a command as the foreground job of a shell, in a terminal.

    The shell prints "status N" when the job has ended or stopped. When it reads a line,
    it continues a job that has stopped with fg. It outlives an interrupted job.
    """

    script = """trap : INT
        "$@"
        echo "status $?"
        while read -r _; do
            fg >/dev/null
            echo "status $?"
        done"""

    def __init__(self, command: Sequence, env: Mapping[str, str], cwd: Path):
        self._output = ""
        self.master, slave = pty.openpty()
        self._shell = subprocess.Popen(
            ["setsid", "--ctty", "--wait", "sh", "-mc", self.script, "sh", *map(str, command)],
            stdin=slave, stdout=slave, stderr=slave, env=env, cwd=cwd)
        os.close(slave)
        os.set_blocking(self.master, False)

    def type(self, text: str):
        """Types on the keyboard."""
        os.write(self.master, text.encode())

    def wait_for(self, text: str):
        """Waits until the text is on the screen, and clears the screen."""
        def shows() -> bool:
            try:
                self._output += os.read(self.master, 4096).decode()
            except (BlockingIOError, OSError):
                pass  # nothing new; or no program has the terminal any more
            return text in self._output
        wait_until(shows, f"{text!r} on the terminal")
        self._output = ""

    def close(self):
        """Hangs up."""
        os.close(self.master)
        self._shell.send_signal(signal.SIGKILL)
        self._shell.wait()
