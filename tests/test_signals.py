"""Signals that are passed on, that stop, that a terminal sends, and process 1."""

import os
import re
import signal
import sys
from contextlib import ExitStack, closing
from pathlib import Path
from signal import SIGCONT, SIGHUP, SIGINT, SIGKILL, SIGSTOP, SIGTERM, SIGTSTP, SIGUSR1

import pytest

from support.processes import Ended, wait_until
from support.terminal import Terminal


class SignalLog:
    """What a helper tells of the signals that it gets, in a FIFO."""

    def __init__(self, fifo):
        self.fifo = fifo

    def wait_for_start(self) -> int:
        """Waits for the start of a helper, and returns its process."""
        return int(re.fullmatch(r"started (\d+)", self.fifo.line())[1])

    def next(self) -> tuple[int, int]:
        """Waits for a signal, and returns its number and value."""
        number, value = self.fifo.line().split()
        return int(number), int(value)


@pytest.fixture
def signals(installation, make_fifo) -> SignalLog:
    """Makes the helper one that records all signals and that SIGTERM ends."""
    log = SignalLog(make_fifo("signals"))
    installation.set_test_child("--record-signals", log.fifo.path)
    return log


def leave_the_group(installation):
    """Makes the helper leave the process group of the launcher."""
    installation.helper.rename(installation.root / "testchild")
    installation.set_helper(f"exec setsid {installation.root}/testchild")


def end(launcher, signals):
    """Ends the launcher with SIGTERM, which the helper gets as well."""
    launcher.send(SIGTERM)
    assert launcher.wait() == Ended(-SIGTERM)
    assert signals.next() == (SIGTERM, 0)


def status(pid: int, field: str) -> str:
    """The first word of a field of the process's status, see proc(5)."""
    return re.search(rf"^{field}:\s*(\S+)", Path(f"/proc/{pid}/status").read_text(), re.M)[1]


@pytest.mark.parametrize("name", [
    "SIGUSR1", "SIGUSR2", "SIGCONT", "SIGWINCH", "SIGURG", "SIGALRM", "SIGVTALRM", "SIGPROF",
    "SIGXCPU", "SIGPWR", "SIGIO", "SIGRTMIN", "SIGRTMAX"])
def test_signal_is_passed_on_and_the_launcher_lives(installation, signals, name):
    """The helper gets the signal once, and nothing ends."""
    launcher = installation.start()
    signals.wait_for_start()
    number = getattr(signal, name)
    launcher.send(number)
    assert signals.next() == (number, 0)
    end(launcher, signals)


@pytest.mark.parametrize("instant", [
    pytest.param("sched_getaffinity:signal=USR1:when=2", id="in main's first step"),
    pytest.param("execve:signal=USR1:when=1", id="at the exec of the fresh copy"),
])
def test_signal_in_the_first_steps_waits_for_the_helper(installation, needs, instant):
    """It ends the helper, which has the default action, and not the launcher."""
    under = ["prlimit", "--stack=4194304:", "strace", "-o", "/dev/null", "-e",
             f"inject={instant}"]
    needs(*under, "true")
    installation.set_helper("exec sleep 600")
    # The sanitizers cannot look for leaks under strace.
    ended = installation.launch(under=under, env={"ASAN_OPTIONS": "detect_leaks=0"})
    assert ended == Ended(0)


def test_value_of_a_queued_signal_is_passed_on(installation, signals, run):
    """A value that sigqueue(3) sends reaches the helper, in order."""
    launcher = installation.start()
    signals.wait_for_start()
    number = signal.SIGRTMIN + 3
    for value in (7, 42):
        assert run("/bin/kill", "-s", number, "-q", value, launcher.pid).status == 0
    assert [signals.next(), signals.next()] == [(number, 7), (number, 42)]
    end(launcher, signals)


@pytest.mark.parametrize("number", [SIGUSR1, signal.SIGRTMIN], ids=["SIGUSR1", "SIGRTMIN"])
def test_signal_between_two_helpers_waits_for_the_next(installation, session, signals, number):
    """A signal that comes while the launcher waits at a hold reaches the next helper."""
    session.hold.touch()
    launcher = installation.start(under=["env", f"--block-signal={int(number)}"])
    os.kill(signals.wait_for_start(), SIGKILL)
    launcher.wait_for_no_child()
    launcher.send(number)
    session.restart.touch()
    session.hold.unlink()
    signals.wait_for_start()
    assert signals.next() == (number, 0)
    end(launcher, signals)


def test_signal_that_nobody_waits_for_ends_with_the_launcher(installation, session, signals):
    """A signal after the last helper is dropped, and the launcher ends as always."""
    session.hold.touch()
    launcher = installation.start()
    os.kill(signals.wait_for_start(), SIGKILL)
    launcher.wait_for_no_child()
    launcher.send(SIGUSR1)
    session.hold.unlink()
    assert launcher.wait() == Ended(0)


@pytest.fixture
def start_in_terminal(installation, environment, scratch):
    """start_in_terminal(*under): starts the launcher in a terminal, which is returned."""
    with ExitStack() as stack:
        yield lambda *under: stack.enter_context(closing(
            Terminal([*under, installation.launcher], environment, scratch / "cwd")))


@pytest.fixture
def start_at_keyboard(installation):
    """start_at_keyboard(*under): starts the launcher in a terminal without job control.

    Returns its Process, and the descriptor for what the user types.
    """
    keyboard, terminal = os.openpty()
    yield lambda *under: (installation.start(under=[
        "sh", "-c", 'exec setsid --ctty "$@" <"$0"', os.ttyname(terminal), *under]), keyboard)
    os.close(terminal)
    os.close(keyboard)


def test_interrupt_of_the_terminal_reaches_the_helper_once(start_at_keyboard, signals):
    """Ctrl-C goes to the whole process group, and the launcher does not repeat it."""
    # Not as the leader of the session, which waits for the helper.
    process, keyboard = start_at_keyboard("unshare", "--fork")
    helper = signals.wait_for_start()
    launcher = int(status(helper, "PPid"))
    os.kill(launcher, SIGSTOP)
    wait_until(lambda: status(launcher, "State") == "T", "the launcher stops")
    os.write(keyboard, b"\x03")
    # The helper takes it before the launcher does: two at a time would look like one.
    assert signals.next() == (SIGINT, 0)
    os.kill(launcher, SIGCONT)
    assert process.wait() == Ended(-SIGINT)
    os.kill(helper, SIGTERM)
    # The end of the session's leader hangs up.
    assert [signals.next(), signals.next()] == [(SIGHUP, 0), (SIGTERM, 0)]


def test_interrupt_of_the_terminal_reaches_a_helper_in_another_group(
        installation, start_in_terminal, signals):
    """The launcher passes Ctrl-C on to a helper that the terminal does not reach."""
    leave_the_group(installation)
    terminal = start_in_terminal()
    helper = signals.wait_for_start()
    terminal.type("\x03")
    terminal.wait_for("status 130")
    assert signals.next() == (SIGINT, 0)
    os.kill(helper, SIGTERM)
    assert signals.next() == (SIGTERM, 0)


def test_end_of_a_session_leader_hangs_no_helper_up(start_at_keyboard, signals):
    """The leader waits for the helper: its end would add a SIGHUP to the Ctrl-C.

    The launcher leads the session of a terminal where no shell is between, as in ssh -t.
    """
    launcher, keyboard = start_at_keyboard()
    helper = signals.wait_for_start()
    os.write(keyboard, b"\x03")
    assert signals.next() == (SIGINT, 0)
    os.kill(helper, SIGTERM)
    assert signals.next() == (SIGTERM, 0)
    assert launcher.wait() == Ended(-SIGINT)


def test_suspend_of_the_terminal_stops_both_and_fg_continues_them(start_in_terminal, started):
    """Ctrl-Z and fg work as with any program."""
    terminal = start_in_terminal()
    helper = int(started.line())
    terminal.type("\x1a")
    terminal.wait_for("status 148")
    assert status(helper, "State") == "T"
    terminal.type("\n")
    wait_until(lambda: status(helper, "State") != "T", "the helper continues")
    terminal.type("\x03")
    terminal.wait_for("status 130")


@pytest.mark.parametrize("name", ["SIGTSTP", "SIGTTIN", "SIGTTOU"])
def test_stop_signal_stops_the_helper_and_the_launcher(start_in_terminal, signals, name):
    """A stop signal to the launcher alone reaches the helper as itself; SIGCONT wakes both."""
    start_in_terminal()
    number = getattr(signal, name)
    launcher = int(status(signals.wait_for_start(), "PPid"))
    os.kill(launcher, number)
    assert signals.next() == (number, 0)
    wait_until(lambda: status(launcher, "State") == "T", "the launcher stops")
    os.kill(launcher, SIGCONT)
    assert signals.next() == (SIGCONT, 0)
    os.kill(launcher, SIGTERM)
    assert signals.next() == (SIGTERM, 0)


def test_stop_signal_that_is_ignored_at_the_start_does_not_stop_the_launcher(
        start_in_terminal, signals):
    """The helper gets it all the same."""
    terminal = start_in_terminal("env", "--ignore-signal=TSTP")
    launcher = int(status(signals.wait_for_start(), "PPid"))
    os.kill(launcher, SIGTSTP)
    assert signals.next() == (SIGTSTP, 0)
    os.kill(launcher, SIGTERM)
    terminal.wait_for("status 143")


def test_signal_that_is_blocked_at_the_start_stays_blocked(installation, started):
    """Only another signal ends the launcher."""
    launcher = installation.start(under=["env", "--block-signal=TERM"])
    started.line()
    launcher.send(SIGTERM)
    launcher.send(SIGINT)
    assert launcher.wait() == Ended(-SIGINT)


def test_hang_up_that_is_ignored_at_the_start_stays_ignored(installation, signals):
    """The user of nohup wants both to live on."""
    launcher = installation.start(under=["env", "--ignore-signal=HUP"])
    signals.wait_for_start()
    launcher.send(SIGHUP)
    end(launcher, signals)


def test_interrupt_that_is_ignored_at_the_start_ends_both(installation, started):
    """A job that a shell script put in the background leaves no helper behind."""
    launcher = installation.start(under=["env", "--ignore-signal=INT,QUIT"])
    started.line()
    launcher.send(SIGINT)
    assert launcher.wait() == Ended(-SIGINT)


def test_signal_that_is_ignored_at_the_start_is_passed_on(installation, signals):
    """The helper may have a handler, as MPI launchers do for SIGUSR1."""
    launcher = installation.start(under=["env", "--ignore-signal=USR1"])
    signals.wait_for_start()
    launcher.send(SIGUSR1)
    assert signals.next() == (SIGUSR1, 0)
    end(launcher, signals)


def test_helper_that_is_stopped_is_ended(installation, signals):
    """It continues to handle the signal that ends the launcher, in another group as well."""
    leave_the_group(installation)
    launcher = installation.start()
    helper = signals.wait_for_start()
    os.kill(helper, signal.SIGSTOP)
    wait_until(lambda: status(helper, "State") == "T", "the helper stops")
    launcher.send(SIGTERM)
    assert launcher.wait() == Ended(-SIGTERM)
    assert signals.next() == (SIGTERM, 0)


def test_message_beyond_the_limit_of_a_file_ends_no_launch(installation):
    """SIGXFSZ does not end the launcher, and the helper has its default action."""
    (installation.root / "lib").rmdir()
    installation.set_helper("echo too much; exit 0")
    under = ["sh", "-c", 'ulimit -f 0; exec "$@"', "sh"]
    ended = installation.launch(under=under, env={"ZORV_HELPER_STATUS": "1"})
    assert ended == Ended(128 + signal.SIGXFSZ)


IN_CONTAINER = ["unshare", "--map-root-user", "--pid", "--fork", "--mount-proc"]
SUBREAPER = [sys.executable, "-c", "import ctypes, os, sys; ctypes.CDLL(None).prctl(36, 1); "
             "os.execv(sys.argv[1], sys.argv[1:])"]


@pytest.mark.parametrize("under, status", [
    pytest.param(IN_CONTAINER, 128 + SIGTERM, id="process 1"),
    pytest.param(SUBREAPER, -SIGTERM, id="subreaper"),
])
def test_reaper_waits_for_the_clean_up_of_the_helper(
        installation, session, needs, scratch, under, status):
    """The kernel kills all others when process 1 ends, so it ends after the helper."""
    needs(*under, "/bin/true")
    cleaned = scratch / "cleaned"
    installation.set_helper(f"""trap 'sleep 0.2; : >{cleaned}; exit 0' TERM
        kill -s TERM "$PPID"
        while :; do sleep 0.1; done""")
    assert installation.launch(under=under) == Ended(status)
    assert cleaned.exists()
    assert session.files() == []


@pytest.mark.parametrize("under", [
    pytest.param(IN_CONTAINER, id="process 1"),
    pytest.param([*IN_CONTAINER, "sh", "-c", '"$@"; exit $?', "sh", *SUBREAPER], id="subreaper"),
])
def test_reaper_reaps_what_is_left_to_it(installation, needs, under):
    """No zombies of orphans stay."""
    needs(*under, "/bin/true")
    installation.set_helper("""for i in 1 2 3 4 5 6 7 8 9 10; do
            sh -c 'sh -c "exit 0" &'
        done
        while grep -qs "^State:.Z" /proc/[0-9]*/status; do sleep 0.01; done
        echo reaped""")
    assert installation.launch(under=under) == Ended(0, "reaped\n")
