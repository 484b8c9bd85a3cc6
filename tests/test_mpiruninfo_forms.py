"""The forms of the report: text, JSON, archive, live view; and the secret in none of them."""

import json
import re
import signal

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
    json_form = site.start(site.program, "--json", *arguments, env=env).wait().output
    assert "findings" in text and "findings" in json_form
    assert COOKIE not in text + json_form + archive.read_text()


def test_bundles_all_that_a_ticket_needs(site):
    """The archive has the report, the settings, the versions, the session and the log."""
    log = site.installation.log_name(site.root / "log")
    log.write_text("x" * 100000 + "last line\n")
    archive = site.root / "ticket.tar"
    ended = site.start(site.program, "--bundle", archive, env={"ZORV_MPIRUN_LOG": "log"}).wait()
    assert (ended.status, ended.errors, archive.stat().st_mode & 0o777) == (0, "", 0o600)
    files = unpacked(archive)
    assert files["report.txt"] == ended.output
    assert json.loads(files["report.json"])["schema"] == 1
    assert "log (variable ZORV_MPIRUN_LOG)" in files["settings.txt"]
    assert "changeset" in files["versions.txt"]
    assert "port: 4244\n" in files["session.txt"]
    assert "cookie: (hidden)\n" in files["session.txt"]
    assert files["log.txt"].endswith("xlast line\n") and len(files["log.txt"]) == 65536


def test_log_in_the_archive_has_no_output_of_the_helper(site):
    """The log has the messages of the launcher alone, here about the marker."""
    site.installation.set_helper("echo output; echo output >&2")
    site.prepare("mkdir sessions/restart-supported")
    env = {"ZORV_MPIRUN_LOG": "log"}
    assert "output" in site.start(site.installation.launcher, env=env).wait().errors
    site.start(site.program, "--bundle", "ticket.tar", env=env).wait()
    log = unpacked(site.root / "ticket.tar")["log.txt"]
    assert "restart-supported" in log and "output" not in log


def test_writes_no_archive_over_a_file(site):
    """The status is 2, and the report is printed."""
    archive = site.root / "ticket.tar"
    archive.touch()
    ended = site.start(site.program, "--bundle", archive).wait()
    assert (ended.status, ended.errors) == (2, f"{archive}: File exists\n")
    assert "\nfindings" in ended.output
    assert archive.read_bytes() == b""


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
    """A terminal gets a screen that is drawn anew."""
    with watch(site, 'exec "$0" --watch') as view:
        view.expect_exact("\033[H\033[2J")
        view.expect_exact("marker absent\r\nrequest absent\r\nhold absent\r\n")


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


@pytest.mark.parametrize("arguments, field, value", [
    pytest.param(["--host", "127.42.42.2,127.42.42.1"], "host.addressesAsTried",
                 ["127.42.42.2", "127.42.42.1"], id="addresses of a host"),
    pytest.param([], "session.sharedDirectory", {"value": "/tmp", "source": "environment"},
                 id="field from the environment"),
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


def test_text_has_words_for_names_and_none_for_no_value(site):
    """The text has the field libraryPath as "library path"."""
    output = site.start(site.program, env={"LD_LIBRARY_PATH": None}).wait().output
    assert re.search("^  library path: +none$", output, re.MULTILINE)


def test_lets_no_value_control_the_terminal(site):
    """A control character of a setting is shown as a question mark."""
    output = site.start(site.program, env={"ZORV_HOST": "\033[2Jalpha"}).wait().output
    assert "\033" not in output and "?[2Jalpha" in output
