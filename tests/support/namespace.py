"""Namespaces, in which a test changes interfaces, mounts and the name of the host."""

import subprocess
from pathlib import Path

# Makes namespaces, says so, and keeps them until the end of its input.
MAKE = ["unshare", "--user", "--map-root-user", "--mount", "--net", "--uts",
        "sh", "-c", "echo ready; exec cat >/dev/null"]


class Namespace:
    """Namespaces of users, interfaces, mounts and host names; its user is root in them.

    `process` keeps them. `under` is what to put in front of a command that runs in them.
    """

    def __init__(self, process: int):
        self._process = process
        self.under = ["nsenter", f"--target={process}", "--user", "--mount", "--net", "--uts",
                      "--preserve-credentials"]

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

    def traffic(self) -> str:
        """The kernel's counters of all IPv4 packets in the namespaces, see proc_net(5)."""
        return Path(f"/proc/{self._process}/net/snmp").read_text()
