"""The launcher with a session: restarts on request, and signals in every state."""

import os
from dataclasses import dataclass
from pathlib import Path
from signal import (SIGABRT, SIGBUS, SIGFPE, SIGHUP, SIGILL, SIGINT, SIGKILL, SIGQUIT, SIGSEGV,
                    SIGSYS, SIGTERM, SIGTRAP)

import pytest

from support.processes import Ended, Fifo, Process, children, wait_until, without_call

# Python has no name for it before 3.11.
SIGSTKFLT = 16

every_signal = pytest.mark.parametrize(
    "number", [SIGABRT, SIGBUS, SIGFPE, SIGHUP, SIGILL, SIGINT, SIGQUIT, SIGSEGV, SIGSTKFLT, SIGSYS,
               SIGTERM, SIGTRAP],
    ids=lambda number: getattr(number, "name", "SIGSTKFLT"))


def wait_for_no_helper(launcher: Process):
    """Waits until the launcher has seen the end of its helper."""
    wait_until(lambda: not children(launcher.pid), "the launcher sees the end of its helper")


def test_without_a_host_there_is_no_session(installation, session):
    """The files of a session that is not the launcher's stay as they are."""
    session.restart.touch()
    assert installation.launch(env={"ZORV_HOST": ""}) == Ended(0, "started\n")
    assert session.files() == ["restart"]


def test_rejected_option_leaves_the_session_alone(installation, session):
    """A rejected command line starts no helper and makes no marker."""
    session.restart.touch()
    assert installation.launch("--zorvport", "x", "a.out") == Ended(
        1, "", "invalid --zorvport argument 'x'\n")
    assert session.files() == ["restart"]


def test_hold_that_cannot_be_made_ends_the_launcher(installation, session):
    """A link into a folder that is missing is no hold, and there is no restart."""
    session.restart.touch()
    session.hold.symlink_to("missing/hold")
    assert installation.launch() == Ended(
        0, "started\n", f"{session.hold}: No such file or directory\n")
    assert session.files() == ["restart-hold", "restart-supported"]


def test_restart_without_a_helper_ends_the_launcher(installation, session):
    """A helper that is gone at a restart is reported, in the log as well."""
    log = installation.root / "log"
    installation.set_helper(f": >{session.restart}; rm {installation.helper}")
    message = f"{installation.helper}: No such file or directory\n"
    assert installation.launch(env={"TALVORA_MPIRUN_LOG": f"{log}.log"}) == Ended(1, "", message)
    assert session.files() == ["restart-hold", "restart-supported"]
    assert without_call(installation.log_name(log).read_text()) == message


@pytest.fixture
def launcher_with_helper(installation, session, make_fifo):
    """A launcher with a session, and a FIFO with a line for every start of its helper.

    The line is the process of the helper, which runs until it is killed.
    """
    started = make_fifo("started")
    installation.set_helper(f"echo $$ >{started.path}; exec sleep 600")
    return installation.start(), started


def test_helper_is_started_again_on_request(launcher_with_helper, session):
    """The request is taken away, and a hold is made, which somebody else takes away."""
    launcher, started = launcher_with_helper
    first = started.line()
    assert session.files() == ["restart-supported"]
    session.restart.touch()
    os.kill(int(first), SIGKILL)
    second = started.line()
    assert first != second
    assert session.files() == ["restart-hold", "restart-supported"]
    os.kill(int(second), SIGKILL)
    wait_for_no_helper(launcher)
    session.hold.unlink()
    assert launcher.wait() == Ended(0)
    assert session.files() == ["restart-supported"]


def test_waits_as_long_as_there_is_a_hold(launcher_with_helper, session):
    """Whatever has the name is a hold; a request made during it counts at its end."""
    launcher, started = launcher_with_helper
    session.hold.mkdir()
    os.kill(int(started.line()), SIGKILL)
    wait_for_no_helper(launcher)
    session.restart.touch()
    sleeps = launcher.sleeps()
    wait_until(lambda: launcher.sleeps() >= sleeps + 2, "the launcher looks at the hold again")
    assert session.files() == ["restart", "restart-hold", "restart-supported"]
    session.hold.rmdir()
    second = started.line()
    session.hold.unlink()
    os.kill(int(second), SIGKILL)
    assert launcher.wait() == Ended(0)


def test_signal_ends_the_first_process_of_a_container(installation, session, needs):
    """Default actions spare process 1 of a namespace; the launcher ends all the same."""
    under = ["unshare", "--map-root-user", "--pid", "--fork"]
    needs(*under, "true")
    installation.set_helper('kill -TERM "$PPID"; exec sleep 600')
    assert installation.launch(under=under) == Ended(128 + SIGTERM)
    assert session.files() == []


@dataclass(frozen=True)
class RecordingHelper:
    """A helper that tells its process through a FIFO, and writes the signal that ends it."""

    started: Fifo
    record: Path

    def ended_by(self) -> int:
        """Waits for the end of the helper, and returns the signal."""
        wait_until(self.record.exists, "the helper records a signal")
        return int(self.record.read_text())


@pytest.fixture
def recording_helper(installation, make_fifo, scratch) -> RecordingHelper:
    """Makes the helper one that records the signal that ends it."""
    helper = RecordingHelper(make_fifo("started"), scratch / "signal")
    installation.set_test_child(
        "--record-signal", helper.record, "--append", helper.started.path, "--sleep")
    return helper


@every_signal
def test_signal_reaches_the_helper_without_a_session(installation, recording_helper, number):
    """The signal ends the launcher and its helper."""
    launcher = installation.start()
    recording_helper.started.line()
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    assert recording_helper.ended_by() == number


@every_signal
def test_signal_reaches_the_helper_and_removes_the_marker(
        installation, session, recording_helper, number):
    """The signal ends the launcher and its helper."""
    launcher = installation.start()
    recording_helper.started.line()
    assert session.files() == ["restart-supported"]
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    assert recording_helper.ended_by() == number
    assert session.files() == []


@every_signal
def test_signal_reaches_the_helper_after_a_restart(
        installation, session, recording_helper, number):
    """The signal ends the launcher and the helper that runs."""
    launcher = installation.start()
    first = int(recording_helper.started.line())
    session.restart.touch()
    os.kill(first, SIGKILL)
    recording_helper.started.line()
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    assert recording_helper.ended_by() == number
    assert session.files() == ["restart-hold"]


@every_signal
def test_signal_ends_the_launcher_in_a_hold(installation, session, recording_helper, number):
    """The signal ends the launcher while it waits without a helper."""
    launcher = installation.start()
    helper = int(recording_helper.started.line())
    session.hold.touch()
    os.kill(helper, SIGKILL)
    wait_for_no_helper(launcher)
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    assert session.files() == ["restart-hold"]
