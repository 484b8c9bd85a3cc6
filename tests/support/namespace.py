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

    def use_silent_name_server(self):
        """Lets all look-ups of names go to a name server that gives no answer."""
        self.run("""
            mount -t tmpfs none /etc
            echo hosts: files dns >/etc/nsswitch.conf
            echo nameserver 10.9.9.2 >/etc/resolv.conf
            ip link add d0 type veth peer name d1
            ip addr add 10.9.9.1/24 dev d0
            ip link set lo up; ip link set d0 up; ip link set d1 up
            ip neigh add 10.9.9.2 lladdr 02:00:00:00:00:02 dev d0""")

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
