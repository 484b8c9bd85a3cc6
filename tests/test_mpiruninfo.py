"""The report on a launch: it names what is wrong, and never shows the cookie."""

import functools
import json
import shutil
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from typing import Optional

import pytest

from support.processes import Ended

# Scripts rely on these; the settings are in test_documents.py.
KEYS = {
    "commandLine": {"accepted", "arguments", "argumentsOfMpiLauncher", "message",
                    "simpleArguments"},
    "host": {"addresses", "interfaceFilter", "interfaces", "loopback", "loopbackAddresses",
             "name", "namesAndAddresses"},
    "installation": {"bin", "helper", "layout", "lib", "libexec", "root"},
    "routability": {"asTried", "byRoutability", "host"},
    "session": {"cookiePresent", "cookieUsed", "explicitPort", "globalFileRead", "holdFile",
                "hosts", "invalidBecause", "port", "restartFile", "session", "sessionDirectory",
                "sessionFile", "sessionFileRead", "sharedDirectory", "supportedMarker",
                "tarball", "valid"},
    "system": {"architecture", "blueGene", "blueGeneQ", "blueGeneQNode", "cray", "description",
               "subArchitecture"},
    "variables": {"BGQDRV", "BG_NODE_TYPE", "HOME", "HOSTNAME", "LOGNAME",
                  "TALVORA_OLD_STACK_LIMIT", "TMPDIR", "USER", "otherSuiteVariables"},
    "version": {"changeset", "compatibilityKey", "releaseTag", "releaseVersion", "version"},
}
COOKIE = "c00kie"
UNUSABLE = ["session-invalid", "session-file-unusable"]


@dataclass(frozen=True)
class Report:
    """A report, as text with single blanks and as JSON."""

    status: int
    text: str
    json: dict

    @property
    def problems(self) -> list[str]:
        """The codes of the problems; a machine without a network is as good."""
        codes = [problem["code"] for problem in self.json["problems"]]
        return [code for code in codes if code != "no-address"]


class Site:
    """An installation with a session file, in which nothing is wrong."""

    def __init__(self, installation, run):
        self.root = installation.root
        self.program = self.root / "bin/zorv-mpirun-info"
        shutil.copy(installation.build.report, self.program)
        # The name "session" is that of the installation's session file.
        self.sessions = (self.root / "session").rename(self.root / "sessions")
        self.write_session("host='alpha' port='4244' session='3'")
        (self.sessions / "latest").symlink_to("alpha-3")
        installation.environment["ZORV_SESSION_PATH"] = str(self.sessions)
        # Relative paths are below the installation.
        self.run = functools.partial(run, cwd=self.root)

    def write_session(self, attributes: str):
        """Writes the session file."""
        (self.sessions / "alpha-3").write_text(f"<session {attributes} cookie='{COOKIE}'/>\n")

    def report(self, *arguments, env=None) -> Report:
        """Both forms of the report, which have the same keys always and show no cookie."""
        text = self.run(self.program, *arguments, env=env)
        machine = self.run(self.program, "--json", *arguments, env=env)
        assert COOKIE not in text.output + text.errors + machine.output + machine.errors
        assert machine.status == text.status
        report = Report(text.status, " ".join(text.output.split()), json.loads(machine.output))
        assert {name: set(report.json[name]) for name in KEYS} == KEYS
        assert set(report.json) == {*KEYS, "settings", "problems"}
        return report


@pytest.fixture
def site(installation, run) -> Site:
    """An installation with a session file, in which nothing is wrong."""
    return Site(installation, run)


@dataclass(frozen=True)
class Case:
    """What is done to a site, in this order, and what the report says then."""

    problems: Sequence[str]
    text: str
    status: int = 0
    session: Optional[str] = None
    prepare: str = ":"
    env: Mapping[str, str] = field(default_factory=dict)
    arguments: Sequence[str] = ()


def check(site: Site, case: Case):
    """Does it, and compares the report."""
    if case.session is not None:
        site.write_session(case.session)
    assert site.run("sh", "-ec", case.prepare) == Ended(0)
    report = site.report(*case.arguments, env=case.env)
    assert report.problems == case.problems
    assert case.text.format(root=site.root) in report.text
    assert report.status == case.status


@pytest.mark.parametrize("case", [
    pytest.param(Case([], "problems none"), id="nothing"),
    pytest.param(Case(["command-line-rejected"], "invalid --zorvport argument '42x'", 1,
                      arguments=["--zorvport", "42x"]),
                 id="rejected option"),
    pytest.param(Case(["command-line-rejected"], "invalid --zorvport argument 'x'", 1,
                      prepare="ln -s zorv-mpirun bin/mpirun",
                      arguments=["bin/mpirun", "--zorvport", "x"]),
                 id="rejected option, after another name of the launcher"),
    pytest.param(Case(["helper-unusable"], "bin/zorv-debugger: the helper is missing", 1,
                      prepare="rm bin/zorv-debugger"),
                 id="missing helper"),
    pytest.param(Case(["helper-unusable"], "bin/zorv-debugger: the helper is not executable", 1,
                      prepare="chmod 0 bin/zorv-debugger"),
                 id="helper that may not be executed"),
    pytest.param(Case(["directory-missing"], "{root}/libexec: the installation's directory",
                      prepare="rmdir libexec"),
                 id="missing directory of the installation"),
    pytest.param(Case(["no-interface"], "lets no interface",
                      env={"ZORV_NETWORK_INTERFACES": "none0"}),
                 id="no interface"),
    pytest.param(Case(["settings-conflict"],
                      "PELK_LOCALHOST is not used: ZORV_LOCALHOST is set, to another value",
                      env={"ZORV_LOCALHOST": "127.0.0.1", "PELK_LOCALHOST": "127.0.0.2"}),
                 id="setting with two values"),
    pytest.param(Case(["setting-not-a-number", "port-unknown"],
                      "PELK_SESSION is not used: '3x' is no number",
                      session="host='alpha'", env={"PELK_SESSION": "3x"}),
                 id="setting that is no number"),
    pytest.param(Case(["setting-overridden"], "comes from the session file",
                      env={"TALVORA_PORT": "4250"}),
                 id="setting that the session file overrides"),
    pytest.param(Case(["port-of-another-session"], "session 3 (session file) listens at 4244",
                      arguments=["--zorvport", "4250"]),
                 id="port of another session"),
    pytest.param(Case(["session-invalid"], "the port 70000 is above 65535",
                      session="host='a' port='70000'"),
                 id="port that is too large"),
    pytest.param(Case(["port-unknown", "session-directory-unusable"],
                      "{root}/sessions: the session directory is missing",
                      prepare="rm -r sessions", env={"ZORV_HOST": "a"}),
                 id="missing session directory"),
    pytest.param(Case(UNUSABLE, "no source names a front end host", prepare="rm sessions/latest"),
                 id="no host"),
    pytest.param(Case(UNUSABLE, "{root}/sessions/latest (dead link), a link to ",
                      prepare="rm sessions/alpha-3"),
                 id="dead link for a session file"),
    pytest.param(Case(UNUSABLE, "(with a port that is no number)", session=f"port='{COOKIE}'"),
                 id="port that is no number"),
    pytest.param(Case(["restart-file-left"], "{root}/sessions/restart: with this restart file",
                      prepare=": >sessions/restart"),
                 id="restart file of an earlier launch"),
    # The name is too long for any server to be asked.
    pytest.param(Case(["host-unknown"], "x: no address found", arguments=["--host", "x" * 64]),
                 id="host without addresses"),
])
def test_names_what_is_wrong(site, case):
    """Each problem has its code, and a text that says where it is."""
    check(site, case)


@pytest.mark.parametrize("case", [
    pytest.param(Case([], "127.42.42.2, 127.42.42.1",
                      arguments=["--host", "127.42.42.2,127.42.42.1"]),
                 id="addresses of a host"),
    pytest.param(Case([], "arguments of mpi launcher: 2 ",
                      arguments=["/opt/bin/zorv-mpirun", "--zorvsession", "3", "--help", "--json"]),
                 id="arguments of the MPI launcher"),
    pytest.param(
        Case([], "hosts: alpha, 10.0.0.1 (environment) port: 4244 (derived) "
             "session: 3 (session file) cookie present: yes (session file) "
             "cookie used: yes (default) shared directory: /tmp (environment) "
             "tarball: /t (option) session file: {root}/sessions/alpha-latest (derived)",
             prepare=f"echo '<session session=\"3\" cookie=\"{COOKIE}\"/>' >sessions/alpha-latest",
             env={"ZORV_HOST": "alpha,10.0.0.1", "PELK_SHARED_DIRECTORY": "/tmp"},
             arguments=["--zorvtarball", "/t", "-np"]),
        id="where the session's fields come from"),
])
def test_tells_what_the_launcher_sees(site, case):
    """What is no problem is in the report, too."""
    check(site, case)


@pytest.mark.parametrize("case", [
    pytest.param(Case([], "ZORV_LOGS = /***", env={"ZORV_LOGS": f"/{COOKIE}"},
                      arguments=[f"a.out={COOKIE}"]),
                 id="cookie of the session file"),
    pytest.param(Case(["command-line-rejected", *UNUSABLE], "argument 'x***'", 1,
                      prepare="rm sessions/*",
                      arguments=["--zorvport", f"x{COOKIE}", "--zorvsessioncookie", COOKIE]),
                 id="cookie of the command line"),
    pytest.param(Case(UNUSABLE, "ZORV_SESSION_COOKIE = (hidden)", prepare="rm sessions/*",
                      env={"ZORV_SESSION_COOKIE": COOKIE, "PELK_SESSION_COOKIE": COOKIE}),
                 id="cookie of the environment"),
    pytest.param(Case(["setting-not-a-number", "setting-overridden", *UNUSABLE],
                      "ZORV_LOGS = /***", prepare="rm sessions/*",
                      env={"TALVORA_SESSION_COOKIE": COOKIE, "ZORV_LOGS": f"/{COOKIE}",
                           "ZORV_PORT": COOKIE},
                      arguments=["--zorvsessioncookie", "other"]),
                 id="cookie that is not used"),
])
def test_hides_the_cookie_elsewhere(site, case):
    """The cookie is hidden in settings and arguments as well."""
    check(site, case)


def test_rejects_an_option_without_its_value(site):
    """A mistake in the report's own options gives status 2."""
    assert site.run(site.program, "--host") == Ended(
        2, "", "option '--host' requires an argument\n")


def test_prints_help(site):
    """Help goes before a report in JSON."""
    ended = site.run(site.program, "--json", "--help")
    assert (ended.status, ended.errors) == (0, "")
    assert ended.output.startswith("Usage: zorv-mpirun-info ")
