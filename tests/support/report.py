"""The report of an installation, beside a launch of the same one."""

import json
import shutil
import signal
import subprocess
import tarfile
import time
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import NamedTuple, Optional

from support.installation import Installation

try:
    import jsonschema
except ImportError:
    jsonschema = None  # test_follows_its_schema says so

# What depends on the machine and its network.
OF_THE_MACHINE = {"no-address", "host-unknown", "name-server-silent", "slow-look-up",
                  "slow-directory", "single-processor", "mixed-mpi", "directory-cached"}
HANG_SECONDS = 2
SCHEMA = Path(__file__).parents[2] / "mpirun-info/zorv-mpirun-info.schema.json"
COOKIE = "c00kie"


class Report(NamedTuple):
    """A report: the exit status, and the JSON."""

    status: int
    json: dict

    def codes(self, expected: Sequence[str] = ()) -> set[str]:
        """The codes of the findings, without those that the machine has and nobody expects."""
        return {finding["code"] for finding in self.json["findings"]} - (
            OF_THE_MACHINE - set(expected))

    def causes(self) -> str:
        """The causes of the findings, a line each."""
        return "\n".join(finding["cause"] for finding in self.json["findings"])


def unpacked(archive: Path) -> dict[str, str]:
    """The files of an archive of the report, by their names."""
    with tarfile.open(archive) as bundle:
        return {Path(name).name: bundle.extractfile(name).read().decode()
                for name in bundle.getnames()}


class Site:
    """An installation and a session in which nothing is wrong, and the report beside them.

    The helper leaves the file "ran/yes" in the installation's root.
    """

    def __init__(self, installation: Installation):
        self.installation = installation
        self.root = installation.root
        self.program = installation.launcher.with_name("zorv-mpirun-info")
        self.ran = self.root / "ran/yes"
        self.ran.parent.mkdir()
        self.ran.parent.chmod(0o777)
        shutil.copy(installation.build.report, self.program)
        installation.set_helper(f": >'{self.ran}'")
        # Other users may come in.
        self.root.parent.chmod(0o755)
        # The name "session" is that of the installation's session file.
        self.sessions = (self.root / "session").rename(self.root / "sessions")
        self.write_session("host='127.0.0.1' port='4244' session='3'")
        (self.sessions / "latest").symlink_to("127.0.0.1-3")
        # The setting names the file that is found without it: few tests are about that.
        installation.environment.update(ZORV_SESSION_PATH=str(self.sessions),
                                        ZORV_SESSION_FILE=str(self.sessions / "latest"))

    def write_session(self, attributes: str):
        """Writes the session file."""
        (self.sessions / "127.0.0.1-3").write_text(
            f"<session {attributes} cookie='{COOKIE}'/>\n")

    def prepare(self, script: str):
        """Runs a shell script in the installation's root."""
        subprocess.run(["sh", "-ec", script], cwd=self.root, check=True,
                       env={**self.installation.environment,
                            "TESTCHILD_PROGRAM": str(self.installation.build.testchild)})

    def start(self, program, *arguments, under: Sequence[str] = (),
              env: Optional[Mapping[str, str]] = None):
        """Starts a program of the installation; relative paths are below its root."""
        return self.installation._start(*under, program, *arguments, env=env, cwd=self.root)

    def report(self, *arguments, **options) -> Report:
        """The report in JSON, which comes within 10 seconds and follows its schema."""
        started = time.monotonic()
        ended = self.start(self.program, "--json", *arguments, **options).wait()
        assert time.monotonic() - started < 10
        assert ended.output and not ended.errors, ended
        report = json.loads(ended.output)
        if jsonschema:
            jsonschema.validate(report, json.loads(SCHEMA.read_text()))
        return Report(ended.status, report)

    def report_before_launch(self, *arguments, **options) -> Report:
        """The report; it must be bad if, and only if, a launch fails or hangs after it.

        A launch works if the helper runs, and the launcher ends after it with status 0.
        """
        report = self.report(*arguments, **options)
        process = self.start(self.installation.launcher, *arguments, **options)
        try:
            status = process._process.wait(None if report.status == 0 else HANG_SECONDS)
        except subprocess.TimeoutExpired:
            status = None
            # Ends the helper, too.
            process.send(signal.SIGTERM)
        works = status == 0 and self.ran.exists()
        assert report.status == (0 if works else 1), report.json["findings"]
        return report
