"""The forms of the report: text, JSON, archive, live view; and the secret in none of them."""

import json
import os
import re
import signal
import time

import pexpect
import pytest

from support.processes import Ended
from support.report import COOKIE, unpacked


def test_documents_every_field_and_code(site, source):
    """Schema, manual page and program have the same findings; the page has every field."""
    fields = set()

    def note_fields(part: dict) -> dict:
        fields.update(part.get("properties", {}))
        return part
    schema = json.loads((source / "mpirun-info/zorv-mpirun-info.schema.json").read_text(),
                        object_hook=note_fields)
    page = (source / "docs/zorv-mpirun-info.1").read_text().replace("\\-", "-")
    codes = json.loads(site.start(site.program, "--codes", "--json").wait().output)
    finding = schema["properties"]["findings"]["items"]["properties"]
    assert finding["code"]["enum"] == [code["code"] for code in codes]
    assert {code["severity"] for code in codes} == set(finding["severity"]["enum"])
    assert fields - set(re.findall(r"\w+", page)) == set()
    listed = site.start(site.program, "--codes").wait().output
    assert re.findall(r"^(\S+) \((\w+)\)$", listed, re.MULTILINE) == [
        (code["code"], code["severity"]) for code in codes]


def test_follows_its_schema(site):
    """A validator accepts the report, as it does in all other tests where it is installed."""
    pytest.importorskip("jsonschema")
    site.report("--host", "127.0.0.1", "-np", "2")


@pytest.mark.parametrize("arguments, env", [
    pytest.param(["--zorvsessioncookie", COOKIE], {}, id="option"),
    # The parser does not take it as an option, but the user meant it as one.
    pytest.param([f"--zorvsessioncookie={COOKIE}"], {}, id="joined option"),
    pytest.param(["-np", "2", f"--zorvsessioncookie={COOKIE}"], {}, id="late option"),
    pytest.param([], {"PELK_SESSION_COOKIE": COOKIE}, id="setting"),
    pytest.param([], {"ZORV_SESION_COOKIE": COOKIE}, id="misspelt setting"),
    pytest.param([], {}, id="session file"),
])
def test_shows_no_secret(site, arguments, env):
    """No form of the report has the secret, wherever that comes from."""
    archive = site.root / "ticket.tar"
    text = site.start(site.program, "--bundle", archive, *arguments, env=env).wait().output
    # The archive has the JSON.
    assert COOKIE not in text + archive.read_text()


def test_bundles_all_that_a_ticket_needs(site):
    """The archive has the report, settings, versions, session, and end of the log.

    The log has the messages of the launcher, here about the marker, and not the output of
    the helper.
    """
    env = {"ZORV_MPIRUN_LOG": "log"}
    site.prepare("mkdir sessions/restart-supported")
    site.installation.set_helper("echo output; echo output >&2")
    site.start(site.installation.launcher, env=env).wait()
    log = site.installation.log_name(site.root / "log")
    log.write_text("x" * 100000 + log.read_text())
    archive = site.root / "ticket.tar"
    ended = site.start(site.program, "--bundle", archive, env=env).wait()
    assert (ended.status, ended.errors, archive.stat().st_mode & 0o777) == (0, "", 0o600)
    files = unpacked(archive)
    assert files["report.txt"] == ended.output
    assert json.loads(files["report.json"])["schema"] == 1
    assert "log (variable ZORV_MPIRUN_LOG)" in files["settings.txt"]
    assert "changeset" in files["versions.txt"]
    assert "port: 4244\n" in files["session.txt"]
    assert "cookie: (hidden)\n" in files["session.txt"]
    assert len(files["log.txt"]) == 65536
    assert re.fullmatch("x+/.*/restart-supported: Is a directory\n", files["log.txt"])


@pytest.mark.parametrize("prepare, error", [
    pytest.param("touch small/ticket.tar", "File exists", id="existing file"),
    pytest.param("mount -t tmpfs -o size=8k none small", "No space left on device",
                 id="full disk"),
])
def test_reports_an_archive_that_it_cannot_write(site, namespace, prepare, error):
    """The status is 2, the report is printed, and no half an archive is left."""
    (site.root / "small").mkdir()
    namespace.run(f"cd {site.root}; {prepare}")
    archive = site.root / "small/ticket.tar"
    ended = site.start(site.program, "--bundle", archive, under=namespace.under).wait()
    assert (ended.status, ended.errors) == (2, f"{archive}: {error}\n")
    assert "\nfindings" in ended.output
    namespace.run(f"[ ! -s {archive} ]")


def test_says_that_the_report_could_not_be_written(site):
    """The status is 2 where standard output takes nothing."""
    ended = site.start("sh", "-c", 'exec "$0" >/dev/full', site.program).wait()
    assert ended == Ended(2, "", "stdout: No space left on device\n")


def watch(site, command: str) -> pexpect.spawn:
    """Starts the live view by a shell command in a terminal."""
    return pexpect.spawn("sh", ["-c", command, str(site.program)], encoding="utf-8",
                         cwd=site.root, env=site.installation.environment)


def test_watches_a_session(site):
    """Each change is a line, with the launcher and its helper while they run."""
    site.installation.set_helper("exec sleep 1000")
    with watch(site, '"$0" --watch | cat') as view:
        view.expect(r"marker absent, request absent, hold absent\r\n")
        launcher = site.start(site.installation.launcher)
        view.expect(rf"marker present \(\d+ s\), .*launcher {launcher.pid} \w+ .*helper \d+ \w+")
        site.prepare(": >sessions/restart-hold")
        view.expect(r"hold present \(\d+ s\)")
        launcher.send(signal.SIGTERM)
        launcher.wait()
        view.expect(r"marker absent, request absent, hold present \(\d+ s\)\r\n")


def test_watches_on_a_terminal(site):
    """A terminal gets a screen that is drawn anew each second."""
    started = time.monotonic()
    with watch(site, 'exec "$0" --watch') as view:
        for _ in range(2):
            view.expect_exact("\033[H\033[2J")
            view.expect_exact("marker absent\r\nrequest absent\r\nhold absent\r\n")
    assert time.monotonic() - started >= 1


def test_watches_no_session_where_there_is_none(site):
    """Without a session there is nothing to show."""
    site.prepare("rm sessions/*")
    assert site.start(site.program, "--watch").wait() == Ended(
        1, "", "there is no session to watch\n")


@pytest.mark.parametrize("option, text", [
    ("--help", "Usage: zorv-mpirun-info "), ("--version", "zorv-mpirun-info ")])
def test_prints_help_and_version(site, option, text):
    """They go before a report in JSON."""
    ended = site.start(site.program, "--json", option).wait()
    assert (ended.status, ended.errors, ended.output[:len(text)]) == (0, "", text)


def test_tells_what_the_launcher_sees(site):
    """What is no finding is in the report, too."""
    expected = {
        ("installation", "root"): {"path": str(site.root), "state": "present"},
        ("installation", "helper"): {
            "path": str(site.installation.helper), "state": "present"},
        ("container", "kind"): "Docker" if os.path.exists("/.dockerenv") else "Charliecloud",
        ("host", "addressesAsTried"): ["127.42.42.2", "127.42.42.1"],
        ("session", "sharedDirectory"): {"value": "/tmp", "source": "environment"},
        ("session", "tarball"): {"value": None, "source": "default"},
        ("commandLine", "endedBy"): "-np",
        ("settings", "SESSION_COOKIE"):
            {"value": True, "variable": "PELK_SESSION_COOKIE", "hidden": []},
        # Grid Engine is installed, but this is no job of it.
        ("batch", "system"): None,
        # This program does not know it.
        ("variables", "otherSuiteVariables"): ["PELK_LICENCE_SERVER"],
    }
    report = site.report("--host", "127.42.42.2,127.42.42.1", "-np", "2", "a.out", env={
        "PELK_SHARED_DIRECTORY": "/tmp", "PELK_SESSION_COOKIE": COOKIE, "SGE_ROOT": "/sge",
        "PELK_LICENCE_SERVER": "x", "CH_RUNNING": "x"}).json
    assert {(section, field): report[section][field] for section, field in expected} == expected


def test_text_has_words_for_names_and_no_value_that_controls_the_terminal(site):
    """libraryPath is "library path"; no value is "none"; control characters are "?"."""
    output = site.start(site.program, env={
        "LD_LIBRARY_PATH": None, "ZORV_HOST": "\033[2Jalpha"}).wait().output
    assert re.search("^  library path: +none$", output, re.MULTILINE)
    assert "\033" not in output and "?[2Jalpha" in output
