"""The launcher with a session: restarts on request, and signals in every state."""

import os
import platform
from signal import (SIGABRT, SIGBUS, SIGFPE, SIGHUP, SIGILL, SIGINT, SIGKILL, SIGQUIT, SIGSEGV,
                    SIGSYS, SIGTERM, SIGTRAP)

import pytest

from support.processes import Ended, wait_until

# Python has no name for it before 3.11.
SIGSTKFLT = 16


def test_without_a_host_there_is_no_session(installation, session):
    """The files of a session that is not the launcher's stay as they are."""
    session.restart.touch()
    assert installation.launch(env={"ZORV_HOST": ""}) == Ended(0, "started\n")
    assert session.files() == ["restart"]


@pytest.mark.parametrize("arguments, error", [
    pytest.param(["--zorvport", "x", "a.out"], "invalid --zorvport argument 'x'",
                 id="invalid value"),
    pytest.param(["--zorvhost"], "option '--zorvhost' requires an argument", id="no value"),
])
def test_rejected_option_leaves_the_session_alone(installation, session, arguments, error):
    """A missing or invalid value gives one line and status 1; no helper and no marker."""
    session.restart.touch()
    assert installation.launch(*arguments) == Ended(1, "", f"{error}\n")
    assert session.files() == ["restart"]


def test_log_has_the_messages_of_this_launch_alone(installation):
    """The host's name is in that of the log, which is emptied; a rejected option is in it."""
    log = installation.root / f"my-{platform.node()}.log"
    log.write_text("old")
    ended = installation.launch("--zorvport", "x", env={
        "TALVORA_MPIRUN_LOG": str(installation.root / "my.log")})
    assert ended.status == 1
    assert log.read_text() == ended.errors == "invalid --zorvport argument 'x'\n"


def test_hold_that_cannot_be_made_ends_the_launcher(installation, session):
    """A link into a folder that is missing is no hold, and there is no restart."""
    session.restart.touch()
    session.hold.symlink_to("missing/hold")
    assert installation.launch() == Ended(
        0, "started\n", f"{session.hold}: No such file or directory\n")
    assert session.files() == ["restart-hold", "restart-supported"]


def test_hold_is_made_where_a_link_leads(installation, session):
    """A dangling link of the user is followed to a new file, and the restart is not lost."""
    target = session.folder / "target"
    session.hold.symlink_to(target)
    session.restart.touch()
    installation.set_helper(f"echo started; rm -f {target}")
    assert installation.launch() == Ended(0, "started\nstarted\n")
    assert session.hold.is_symlink()


def test_restart_without_a_helper_ends_the_launcher(installation, session):
    """A helper that is gone at a restart is reported, and the status is 1."""
    installation.set_helper(f": >{session.restart}; rm {installation.helper}")
    assert installation.launch() == Ended(
        1, "", f"{installation.helper}: No such file or directory\n")
    assert session.files() == ["restart-hold", "restart-supported"]


def test_helper_is_started_again_on_request(installation, session, started):
    """The request is taken away, and a hold is made, which somebody else takes away."""
    launcher = installation.start()
    first = started.line()
    assert session.files() == ["restart-supported"]
    session.restart.touch()
    os.kill(int(first), SIGKILL)
    second = started.line()
    assert first != second
    assert session.files() == ["restart-hold", "restart-supported"]
    os.kill(int(second), SIGKILL)
    launcher.wait_for_no_child()
    session.hold.unlink()
    assert launcher.wait() == Ended(0)
    assert session.files() == ["restart-supported"]


def test_waits_as_long_as_there_is_a_hold(installation, session, started):
    """Whatever has the name is a hold; a request made during it counts at its end."""
    launcher = installation.start()
    session.hold.mkdir()
    os.kill(int(started.line()), SIGKILL)
    launcher.wait_for_no_child()
    session.restart.touch()
    sleeps = launcher.sleeps()
    wait_until(lambda: launcher.sleeps() >= sleeps + 2, "the launcher looks at the hold again")
    assert session.files() == ["restart", "restart-hold", "restart-supported"]
    session.hold.rmdir()
    second = started.line()
    session.hold.unlink()
    os.kill(int(second), SIGKILL)
    assert launcher.wait() == Ended(0)


def test_sigkill_leaves_the_marker_and_the_helper(installation, session, make_fifo):
    """The helper reads the end of its input, and ends when it likes."""
    told = make_fifo("told")
    installation.set_helper(f"echo started >{told.path}; cat; echo end of input >{told.path}")
    launcher = installation.start()
    told.line()
    launcher.send(SIGKILL)
    assert launcher.wait() == Ended(-SIGKILL)
    assert told.line() == "end of input"
    assert session.files() == ["restart-supported"]


@pytest.fixture
def launcher_with_recording_helper(installation, session, make_fifo, scratch):
    """A launcher, a FIFO with the process of each helper, and the file of its signal."""
    started, record = make_fifo("started"), scratch / "signal"
    installation.set_test_child("--record-signal", record, "--append", started.path, "--sleep")
    return installation.start(), started, record


every_signal = pytest.mark.parametrize(
    "number", [SIGABRT, SIGBUS, SIGFPE, SIGHUP, SIGILL, SIGINT, SIGQUIT, SIGSEGV, SIGSTKFLT, SIGSYS,
               SIGTERM, SIGTRAP],
    ids=lambda number: getattr(number, "name", "SIGSTKFLT"))


@every_signal
def test_signal_reaches_the_helper_and_removes_the_marker(
        launcher_with_recording_helper, session, number):
    """The signal ends the launcher and its helper."""
    launcher, started, record = launcher_with_recording_helper
    started.line()
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    wait_until(record.exists, "the helper records a signal")
    assert int(record.read_text()) == number
    assert session.files() == []


def test_signal_reaches_the_helper_after_a_restart(launcher_with_recording_helper, session):
    """The signal ends the launcher and the helper that runs; the hold stays."""
    launcher, started, record = launcher_with_recording_helper
    first = int(started.line())
    session.restart.touch()
    os.kill(first, SIGKILL)
    started.line()
    launcher.send(SIGTERM)
    assert launcher.wait() == Ended(-SIGTERM)
    wait_until(record.exists, "the second helper records a signal")
    assert session.files() == ["restart-hold"]


@every_signal
def test_signal_ends_the_launcher_in_a_hold(installation, session, started, number):
    """The signal ends the launcher while it waits without a helper; the files stay."""
    launcher = installation.start()
    session.hold.touch()
    session.restart.touch()
    os.kill(int(started.line()), SIGKILL)
    launcher.wait_for_no_child()
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    assert session.files() == ["restart", "restart-hold"]
