"""What the launcher does when the files of the session directory are in trouble."""

import os
import re
from signal import SIGKILL

import pytest

from support.processes import Ended, wait_until


def test_long_hold_is_reported(installation, session, started):
    """After ten seconds a line names the file and its age, and says what to do."""
    launcher = installation.start()
    session.hold.touch()
    os.utime(session.hold, (1e9, 1e9))
    os.kill(int(started.line()), SIGKILL)
    wait_until(lambda: launcher.errors() != "", "a line on the hold")
    session.hold.unlink()
    ended = launcher.wait()
    assert ended.status == 0
    assert re.fullmatch(
        rf"{session.hold}: the launcher has waited for 1\d s because this file exists; "
        r"it is \d{8,} s old\. Remove it to let the launcher go on\.\n", ended.errors)


def test_hold_is_reported_again_each_hour(installation, session, started, environment, build,
                                          needs, run):
    """After the first line there is one an hour, in a launcher whose clock runs fast."""
    if "ON" in (build.variable("ZORV_PORTABLE"), build.variable("ZORV_SANITIZE")):
        pytest.skip("no library can be preloaded")
    needs("faketime", "-f", "+0 x3600", "true")
    variables = run("faketime", "-f", "+0 x3600", "printenv", "LD_PRELOAD", "FAKETIME").output
    environment.update(zip(("LD_PRELOAD", "FAKETIME"), variables.splitlines()))
    launcher = installation.start()
    session.hold.touch()
    os.kill(int(started.line()), SIGKILL)
    wait_until(lambda: launcher.errors().count("\n") == 3, "three lines on the hold")
    session.hold.unlink()
    waited = [int(seconds) for seconds in re.findall(r"waited for (\d+) s", launcher.wait().errors)]
    assert [seconds // 3600 for seconds in waited[:3]] == [0, 1, 2]


LOOKS = "stat,newfstatat,statx"


@pytest.fixture
def failing_looks(needs, environment):
    """failing_looks(file, calls, error, count): strace that lets looks at the file fail."""
    needs("strace", "true")
    # The sanitizers cannot look for leaks under strace.
    environment["ASAN_OPTIONS"] = "detect_leaks=0"
    return lambda file, calls, error, count: [
        "strace", "-qq", "-o", os.devnull, "-P", file, "-e", f"trace={calls}",
        "-e", f"inject={calls}:error={error}:when=1..{count}"]


@pytest.mark.parametrize("name, calls, error, count", [
    pytest.param("restart", LOOKS, "ESTALE", 2, id="request"),
    pytest.param("restart-hold", LOOKS, "EACCES", 2, id="hold"),
    # Old container runtimes forbid it; the launcher looks with stat then.
    pytest.param("restart", "statx", "EPERM", 1000, id="statx is forbidden"),
])
def test_look_that_fails_for_a_while_loses_no_restart(
        installation, session, failing_looks, name, calls, error, count):
    """The look is made again, without a word, and the request is found."""
    record = installation.root / "record"
    session.restart.touch()
    installation.set_helper(f"echo helper >>{record}; rm -f {session.hold}")
    under = failing_looks(session.folder / name, calls, error, count)
    assert installation.launch(under=under) == Ended(0)
    assert record.read_text() == "helper\nhelper\n"


def test_look_that_keeps_failing_is_reported(installation, session, failing_looks):
    """A file that cannot be looked at ten times counts as missing, with a word."""
    under = failing_looks(session.restart, LOOKS, "EIO", 1000)
    assert installation.launch(under=under) == Ended(
        0, "started\n",
        f"{session.restart}: Input/output error; the launcher goes on as if it did not exist\n")


def test_look_that_cannot_work_is_reported_at_once(installation, session):
    """Links that lead to each other are no hold."""
    session.hold.symlink_to(session.hold)
    assert installation.launch() == Ended(
        0, "started\n", f"{session.hold}: Too many levels of symbolic links; the launcher goes "
        "on as if it did not exist\n")


def test_request_that_cannot_be_removed_is_reported_once(installation, session):
    """The helper starts again and again, and one line says why."""
    record = installation.root / "record"
    (session.restart / "content").mkdir(parents=True)
    installation.set_helper(f"""echo helper >>{record}
        [ "$(wc -l <{record})" -lt 4 ] || rm -r {session.restart}
        rm -f {session.hold}""")
    ended = installation.launch()
    assert (ended.status, record.read_text()) == (0, 4 * "helper\n")
    assert re.fullmatch(rf"{session.restart}: .*; it asks for a restart each time that the "
                        r"helper ends\n", ended.errors)
