"""What the launcher does when the files of the session directory are in trouble."""

import os
import re
from signal import SIGKILL, SIGTERM

import pytest

from support.processes import Ended, wait_until


@pytest.fixture
def started(installation, session, make_fifo):
    """A FIFO with the process of each helper that starts; helpers run until killed."""
    started = make_fifo("started")
    installation.set_helper(f"echo $$ >{started.path}; exec sleep 600")
    return started


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


@pytest.fixture
def failing_looks(needs):
    """failing_looks(error, count, file): strace that lets looks at the file fail."""
    needs("strace", "true")

    def failing_looks(error: str, count: int, file) -> list:
        looks = "stat,newfstatat,statx"
        return ["strace", "-qq", "-o", os.devnull, "-P", file, "-e", f"trace={looks}",
                "-e", f"inject={looks}:error={error}:when=1..{count}"]
    return failing_looks


@pytest.mark.parametrize("error", ["EIO", "ESTALE", "ENOMEM", "EACCES"])
@pytest.mark.parametrize("name", ["restart", "restart-hold"])
def test_look_that_fails_for_a_while_loses_no_restart(
        installation, session, failing_looks, error, name):
    """The look is made again, without a word, and the request is found."""
    record = installation.root / "record"
    installation.set_helper(
        f"echo helper >>{record}; rm -f {session.hold}; [ -e {record}.asked ] || "
        f": | tee {record}.asked >{session.restart}")
    under = failing_looks(error, 2, session.folder / name)
    assert installation.launch(under=under, env={"ASAN_OPTIONS": "detect_leaks=0"}) == Ended(0)
    assert record.read_text() == "helper\nhelper\n"


def test_statx_that_is_forbidden_loses_no_restart(installation, session, needs):
    """Old container runtimes forbid statx with EPERM; the launcher looks with stat then."""
    needs("strace", "true")
    record = installation.root / "record"
    session.restart.touch()
    installation.set_helper(f"echo helper >>{record}; rm -f {session.hold}")
    under = ["strace", "-qq", "-o", os.devnull, "-P", session.restart, "-e", "trace=statx",
             "-e", "inject=statx:error=EPERM"]
    assert installation.launch(under=under, env={"ASAN_OPTIONS": "detect_leaks=0"}) == Ended(0)
    assert record.read_text() == "helper\nhelper\n"


def test_look_that_keeps_failing_is_reported(installation, session, failing_looks):
    """A file that cannot be looked at ten times counts as missing, with a word."""
    under = failing_looks("EIO", 1000, session.restart)
    assert installation.launch(under=under, env={"ASAN_OPTIONS": "detect_leaks=0"}) == Ended(
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


def test_dangling_link_is_no_request(installation, session):
    """A link that leads nowhere does not exist, as for most programs."""
    session.restart.symlink_to("nowhere")
    assert installation.launch() == Ended(0, "started\n")
    assert session.restart.is_symlink()


def test_signal_ends_the_launcher_between_looks(installation, session, started):
    """A launcher that waits for a look to work ends by a signal as always."""
    launcher = installation.start()
    session.hold.touch()
    os.kill(int(started.line()), SIGKILL)
    launcher.send(SIGTERM)
    assert launcher.wait() == Ended(-SIGTERM)
