"""What the launcher does when the files of the session directory are in trouble."""

import os
import re

import pytest

from support.processes import Ended, wait_until


def test_long_hold_is_reported(session, held):
    """After ten seconds a line names the file and its age, and says what to do."""
    os.utime(session.hold, (1e9, 1e9))
    wait_until(lambda: held.errors() != "", "a line on the hold")
    session.hold.unlink()
    assert re.fullmatch(
        rf"{session.hold}: the launcher has waited for 1\d s because this file exists; "
        r"it is \d{8,} s old\. Remove it to let the launcher go on\.\n", held.wait().errors)


@pytest.fixture
def fast_clock(environment, build, needs, run):
    """Makes a second an hour for what the test starts."""
    if "ON" in (build.variable("ZORV_PORTABLE"), build.variable("ZORV_SANITIZE")):
        pytest.skip("no library can be preloaded")
    needs("faketime", "-f", "+0 x3600", "true")
    variables = run("faketime", "-f", "+0 x3600", "printenv", "LD_PRELOAD", "FAKETIME").output
    environment.update(zip(("LD_PRELOAD", "FAKETIME"), variables.splitlines()))


def test_hold_is_reported_again_each_hour(fast_clock, session, held):
    """After the first line there is one an hour."""
    wait_until(lambda: held.errors().count("\n") == 3, "three lines on the hold")
    session.hold.unlink()
    waited = re.findall(r"waited for (\d+) s", held.wait().errors)
    assert [int(seconds) // 3600 for seconds in waited[:3]] == [0, 1, 2]


LOOKS = "stat,newfstatat,statx"


@pytest.mark.parametrize("name, calls, error, count", [
    pytest.param("restart", LOOKS, "ESTALE", 2, id="request"),
    pytest.param("restart-hold", LOOKS, "EACCES", 2, id="hold"),
    # Old container runtimes forbid it; the launcher looks with stat then.
    pytest.param("restart", "statx", "EPERM", 1000, id="statx is forbidden"),
])
def test_look_that_fails_for_a_while_loses_no_restart(
        installation, session, strace, name, calls, error, count):
    """The look is made again, without a word, and the request is found."""
    record = installation.root / "record"
    session.restart.touch()
    installation.set_helper(f"echo helper >>{record}; rm -f {session.hold}")
    under = strace("-P", session.folder / name, "-e",
                   f"inject={calls}:error={error}:when=1..{count}")
    assert installation.launch(under=under) == Ended(0)
    assert record.read_text() == "helper\nhelper\n"


def test_look_that_keeps_failing_is_reported(installation, session, strace):
    """A file that cannot be looked at ten times counts as missing, with a word."""
    under = strace("-P", session.restart, "-e", f"inject={LOOKS}:error=EIO")
    assert installation.launch(under=under) == Ended(
        0, "started\n",
        f"{session.restart}: Input/output error; the launcher goes on as if it did not exist\n")


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
