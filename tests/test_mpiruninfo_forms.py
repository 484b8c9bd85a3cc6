"""The forms of the report: JSON, archive, live view; and the secret in none of them."""

import json
import os
import re
import tarfile

import pytest

from support.processes import Ended, wait_until
from support.report import COOKIE, Site
from support.terminal import Terminal


def properties(schema: dict) -> set[str]:
    """The names of all fields that a schema allows."""
    names = set(schema.get("properties", {}))
    for value in schema.values():
        for part in value.values() if isinstance(value, dict) else [value]:
            if isinstance(part, dict):
                names |= properties(part)
    return names | (properties(schema["items"]) if "items" in schema else set())


def test_documents_every_field_and_code(site, source):
    """Schema, manual page and program have the same findings; the page has every field."""
    schema = json.loads((source / "mpirun-info/zorv-mpirun-info.schema.json").read_text())
    page = (source / "docs/zorv-mpirun-info.1").read_text().replace("\\-", "-")
    codes = json.loads(site.start(site.program, "--codes", "--json").wait().output)
    finding = schema["properties"]["findings"]["items"]["properties"]
    assert finding["code"]["enum"] == [code["code"] for code in codes]
    assert {code["severity"] for code in codes} == set(finding["severity"]["enum"])
    words = set(re.findall(r"\w+", page))
    assert properties(schema) - words == set()
    listed = site.start(site.program, "--codes").wait().output
    assert re.findall(r"^(\S+) \((\w+)\)$", listed, re.MULTILINE) == [
        (code["code"], code["severity"]) for code in codes]


def test_follows_its_schema(site):
    """A validator accepts the report, as it does in all other tests where it is installed."""
    pytest.importorskip("jsonschema")
    site.report("--host", "127.0.0.1", "-np", "2")


def shown(site: Site, *arguments, **options) -> str:
    """All forms of the report, without what changes from run to run."""
    archive = site.root.parent / "bundle.tar"
    texts = [site.start(site.program, *form, *arguments, **options).wait().output
             for form in ([], ["--json"], ["--bundle", str(archive)])]
    with tarfile.open(archive) as bundle:
        texts += [bundle.extractfile(name).read().decode() for name in bundle.getnames()]
    archive.unlink()
    slow = r'  warning: +slow-.*\n.*\n.*\n|\{[^{}]*"code": "slow-[^{}]*\},?\s*'
    return re.sub(r'(seconds|free \w+) [\d.]+|"(seconds|free\w+|ageSeconds)": [\d.]+', "~",
                  re.sub(slow, "", "\n".join(texts)))


@pytest.mark.parametrize("way", [
    "--zorvsessioncookie", "ZORV_SESSION_COOKIE", "PELK_SESSION_COOKIE",
    "TALVORA_SESSION_COOKIE", "session file"])
def test_shows_no_secret(site, namespace, way):
    """The report is the same whatever the secret is, however short, and so hides it."""
    def report(cookie: str) -> str:
        if way == "session file":
            site.write_session("host='127.0.0.1' port='4244' session='3'", cookie)
        # Without a name server, which may take its time in one run and not in the other.
        return shown(site, *([way, cookie, "-np", "2"] if way.startswith("--") else []),
                     under=namespace.under, env={way: cookie} if way.endswith("COOKIE") else {})
    long = report("Qx7-long-secret")
    assert "Qx7" not in long
    for short in ("a", "1", " ", "zorv"):
        assert report(short).splitlines() == long.splitlines()


def test_shows_no_value_of_a_joined_option(site):
    """The parser did not take the secret as one, but the user meant it as one."""
    assert COOKIE not in shown(site, f"--zorvsessioncookie={COOKIE}", "a.out",
                               env={"ZORV_SESION_COOKIE": COOKIE})


def test_bundles_all_that_a_ticket_needs(site):
    """The archive has the report, the settings, the versions, the session and the log."""
    log = site.installation.log_name(site.root / "log")
    log.write_text("x" * 100000 + "last line\n")
    archive = site.root / "ticket.tar"
    ended = site.start(site.program, "--bundle", archive, env={"ZORV_MPIRUN_LOG": "log"}).wait()
    assert (ended.status, ended.errors, archive.stat().st_mode & 0o777) == (0, "", 0o600)
    with tarfile.open(archive) as bundle:
        files = {name.partition("/")[2]: bundle.extractfile(name).read().decode()
                 for name in bundle.getnames()}
    assert files["report.txt"] == ended.output
    assert json.loads(files["report.json"])["schema"] == 1
    assert "log (variable ZORV_MPIRUN_LOG)" in files["settings.txt"]
    assert "changeset" in files["versions.txt"]
    assert "port: 4244\n" in files["session.txt"]
    assert "cookie: (hidden)\n" in files["session.txt"]
    assert files["log.txt"].endswith("xlast line\n") and len(files["log.txt"]) == 65536


def test_waits_for_no_file_of_the_archive_where_no_process_starts(site, build, another_user):
    """Without a process that can be killed, a log that hangs is not read."""
    if build.variable("ZORV_SANITIZE") == "ON":
        pytest.skip("the sanitizers need processes of their own")
    os.mkfifo(site.installation.log_name(site.ran.parent / "log"))
    site.prepare(f"chown {another_user} ran ran/*")
    archive = site.ran.parent / "ticket.tar"
    ended = site.start(site.program, "--bundle", archive, env={"ZORV_MPIRUN_LOG": "ran/log"},
                       under=["setpriv", f"--reuid={another_user}", "--clear-groups",
                              "prlimit", "--nproc=1"]).wait()
    assert (ended.status, ended.errors) == (1, "")
    with tarfile.open(archive) as bundle:
        log = bundle.extractfile("zorv-mpirun-info/log.txt").read()
    assert log == b"It cannot be read.\n"


@pytest.mark.parametrize("prepare, path, error", [
    pytest.param(": >ticket.tar", "ticket.tar", "File exists", id="existing file"),
    pytest.param("mkdir small", "small/ticket.tar", "No space left on device", id="full disk"),
])
def test_reports_an_archive_that_it_cannot_write(site, namespace, prepare, path, error):
    """The status is 2, the report is printed, and no half an archive is left."""
    site.prepare(prepare)
    namespace.run(f"cd {site.root}; [ ! -d small ] || mount -t tmpfs -o size=8k none small")
    archive = site.root / path
    ended = site.start(site.program, "--bundle", archive, under=namespace.under).wait()
    assert (ended.status, ended.errors) == (2, f"{archive}: {error}\n")
    assert "\nfindings" in ended.output
    namespace.run(f"[ ! -s {archive} ]")


def test_says_that_the_report_could_not_be_written(site):
    """The status is 2 where standard output takes nothing."""
    ended = site.start("sh", "-c", 'exec "$0" >/dev/full', site.program).wait()
    assert ended == Ended(2, "", "stdout: No space left on device\n")


def test_watches_a_session(site):
    """Each change is a line, with the launcher and its helper while they run."""
    site.installation.set_helper("exec sleep 1000")
    view = site.start(site.program, "--watch")

    def wait_for(pattern: str):
        wait_until(lambda: re.search(pattern, view._output.read_text()), pattern)
    wait_for(r"marker absent, request absent, hold absent\n")
    launcher = site.start(site.installation.launcher)
    wait_for(rf"marker present \(\d+ s\), .*launcher {launcher.pid} \w+ .*helper \d+ \w+")
    site.prepare(": >sessions/restart-hold")
    wait_for(r"hold present \(\d+ s\)")
    launcher.send(15)
    launcher.wait()
    wait_for(r"marker absent, request absent, hold present \(\d+ s\)\n")
    view.send(15)
    view.wait()


def test_watches_on_a_terminal(site):
    """A terminal gets a screen that is drawn anew."""
    terminal = Terminal([str(site.program), "--watch"], site.installation.environment, site.root)
    terminal.wait_for("\033[H\033[2J")
    terminal.wait_for("marker absent\r\nrequest absent\r\nhold absent\r\n")
    terminal.close()


def test_watches_no_session_where_there_is_none(site):
    """Without a session there is nothing to show."""
    site.prepare("rm sessions/*")
    assert site.start(site.program, "--watch").wait() == Ended(
        1, "", "there is no session to watch\n")


def test_prints_help(site):
    """Help goes before a report in JSON."""
    ended = site.start(site.program, "--json", "--help").wait()
    assert (ended.status, ended.errors) == (0, "")
    assert ended.output.startswith("Usage: zorv-mpirun-info ")


@pytest.mark.parametrize("arguments, field, value", [
    pytest.param(["--host", "127.42.42.2,127.42.42.1"], "host.addressesAsTried",
                 ["127.42.42.2", "127.42.42.1"], id="addresses of a host"),
    pytest.param([], "session.sharedDirectory", {"value": "/tmp", "source": "environment"},
                 id="field from the environment"),
    pytest.param(["--zorvport", "-5"], "session.port", {"value": -5, "source": "option"},
                 id="negative port"),
    pytest.param(["-np", "2", "a.out"], "commandLine.endedBy", "-np", id="word after the options"),
    pytest.param([], "session.tarball", {"value": None, "source": "default"},
                 id="field without a value"),
    pytest.param([], "settings.SESSION_COOKIE",
                 {"value": True, "variable": "PELK_SESSION_COOKIE", "hidden": []}, id="secret"),
    pytest.param([], "batch.system", None, id="Grid Engine, but no job of it"),
    pytest.param([], "variables.otherSuiteVariables", ["PELK_LICENCE_SERVER"],
                 id="variable of the suite that this program does not know"),
])
def test_tells_what_the_launcher_sees(site, arguments, field, value):
    """What is no finding is in the report, too."""
    report = site.report(*arguments, env={
        "PELK_SHARED_DIRECTORY": "/tmp", "PELK_SESSION_COOKIE": COOKIE, "SGE_ROOT": "/sge",
        "PELK_LICENCE_SERVER": "x"}).json
    section, name = field.split(".")
    assert report[section][name] == value


def test_names_the_installation(site):
    """The directory is that of the launcher beside the report."""
    assert site.report().json["installation"]["root"]["path"] == str(site.root)


def test_lets_no_value_control_the_terminal(site):
    """A control character of a setting is shown as a question mark."""
    output = site.start(site.program, env={"ZORV_HOST": "\033[2Jalpha"}).wait().output
    assert "\033" not in output and "?[2Jalpha" in output
