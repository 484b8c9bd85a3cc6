"""Namespaces, in which a test changes interfaces, mounts and the name of the host."""

import subprocess
from pathlib import Path

import pytest


class Namespace:
    """Namespaces of users, interfaces, mounts and host names; its user is root in them."""

    def __init__(self):
        self._process = subprocess.Popen(
            ["unshare", "--user", "--map-root-user", "--mount", "--net", "--uts",
             "sh", "-c", "echo ready; exec cat >/dev/null"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        answer = self._process.stdout.readline().strip()
        if answer != "ready":
            self.close()
            pytest.skip(f"namespaces are forbidden here: {answer}")
        # What to put in front of a command that is to run in the namespaces.
        self.under = ["nsenter", f"--target={self._process.pid}", "--user", "--mount", "--net",
                      "--uts", "--preserve-credentials"]

    def run(self, script: str, *arguments):
        """Runs a shell script in the namespaces, in the root directory; it must not fail."""
        subprocess.run([*self.under, "sh", "-ec", script, "sh", *arguments], check=True)

    def sent_datagrams(self) -> int:
        """How many UDP datagrams were sent in the namespaces."""
        names, values = (line.split() for line in
                         Path(f"/proc/{self._process.pid}/net/snmp").read_text().splitlines()
                         if line.startswith("Udp:"))
        return int(values[names.index("OutDatagrams")])

    def close(self):
        """Ends the namespaces, once nothing runs in them."""
        self._process.stdin.close()
        self._process.wait()
        self._process.stdout.close()
