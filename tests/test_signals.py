"""Signals that are passed on, that end or stop the launcher, that a terminal sends; process 1."""

import signal
import sys
from signal import SIGCONT, SIGHUP, SIGINT, SIGTERM, SIGTSTP, SIGUSR1

import pexpect
import psutil
import pytest

from support.processes import Ended, wait_until


def leave_the_group(installation):
    """Makes the helper leave the process group of the launcher."""
    installation.helper.rename(installation.root / "testchild")
    installation.set_helper(f"exec setsid {installation.root}/testchild")


def end(launcher, signals):
    """Ends the launcher with SIGTERM, which the helper gets as well; returns how it ended."""
    launcher.send(SIGTERM)
    ended = launcher.wait()
    assert signals.numbers() == [SIGTERM, 0]
    return ended


def wait_for_stop(process):
    """Waits until a signal has stopped the process."""
    wait_until(lambda: process.status() == psutil.STATUS_STOPPED, f"{process} is stopped")


@pytest.mark.parametrize("name", [
    "SIGUSR1", "SIGUSR2", "SIGCONT", "SIGWINCH", "SIGURG", "SIGALRM", "SIGVTALRM", "SIGPROF",
    "SIGXCPU", "SIGPWR", "SIGIO", "SIGRTMIN", "SIGRTMAX"])
@pytest.mark.parametrize("at_the_start", ["default", "ignore"])
def test_signal_is_passed_on_and_the_launcher_lives(installation, signals, name, at_the_start):
    """The helper gets the signal once, even if it was ignored at the start, and nothing ends."""
    number = getattr(signal, name)
    launcher = installation.start(under=["env", f"--{at_the_start}-signal={int(number)}"])
    signals.process()
    launcher.send(number)
    assert signals.numbers() == [number, 0]
    end(launcher, signals)


@pytest.mark.parametrize("instant", [
    pytest.param("sched_getaffinity:signal=USR1:when=2", id="in main's first step"),
    pytest.param("execve:signal=USR1:when=1", id="at the exec of the fresh copy"),
])
def test_signal_in_the_first_steps_waits_for_the_helper(installation, strace, instant):
    """It ends the helper, which has the default action, and not the launcher."""
    under = ["prlimit", "--stack=4194304:", *strace("-e", f"inject={instant}")]
    installation.set_helper("exec sleep 600")
    assert installation.launch(under=under) == Ended(0)


def test_value_of_a_queued_signal_is_passed_on(installation, signals, run):
    """A value that sigqueue(3) sends reaches the helper, in order."""
    launcher = installation.start()
    signals.process()
    number = signal.SIGRTMIN + 3
    for value in (7, 42):
        assert run("/bin/kill", "-s", number, "-q", value, launcher.pid).status == 0
    assert [signals.numbers(), signals.numbers()] == [[number, 7], [number, 42]]
    end(launcher, signals)


@pytest.mark.parametrize("number", [SIGUSR1, signal.SIGRTMIN], ids=["SIGUSR1", "SIGRTMIN"])
def test_signal_between_two_helpers_waits_for_the_next(installation, session, signals, number):
    """A signal that comes while the launcher waits at a hold reaches the next helper."""
    session.hold.touch()
    # Blocked from the start, the signal waits for the helper to look at it.
    launcher = installation.start(under=["env", f"--block-signal={int(number)}"])
    signals.process().kill()
    launcher.wait_for_no_child()
    launcher.send(number)
    session.restart.touch()
    session.hold.unlink()
    signals.process()
    assert signals.numbers() == [number, 0]
    end(launcher, signals)


def test_signal_that_nobody_waits_for_ends_with_the_launcher(session, held):
    """A signal after the last helper is dropped, and the launcher ends as always."""
    held.send(SIGUSR1)
    session.hold.unlink()
    assert held.wait() == Ended(0)


# Python has no name for 16, SIGSTKFLT, before 3.11.
@pytest.mark.parametrize("number", [
    signal.SIGABRT, signal.SIGBUS, signal.SIGFPE, SIGHUP, signal.SIGILL, SIGINT, signal.SIGQUIT,
    signal.SIGSEGV, 16, signal.SIGSYS, SIGTERM, signal.SIGTRAP],
    ids=lambda number: getattr(number, "name", "SIGSTKFLT"))
def test_signal_ends_the_launcher_removes_the_marker_and_reaches_the_helper(
        installation, session, signals, number):
    """The launcher ends by the signal itself, and the helper gets it once."""
    launcher = installation.start()
    helper = signals.process()
    launcher.send(number)
    assert launcher.wait() == Ended(-number)
    assert signals.numbers() == [number, 0]
    assert session.files() == []
    helper.terminate()


def test_signal_reaches_the_helper_after_a_restart(installation, session, signals):
    """The helper that runs gets the signal; the hold stays."""
    launcher = installation.start()
    session.restart.touch()
    signals.process().kill()
    signals.process()
    assert end(launcher, signals) == Ended(-SIGTERM)
    assert session.files() == ["restart-hold"]


def test_signal_ends_the_launcher_in_a_hold(session, held):
    """The signal ends the launcher while it waits without a helper; the files stay."""
    session.restart.touch()
    held.send(SIGTERM)
    assert held.wait() == Ended(-SIGTERM)
    assert session.files() == ["restart", "restart-hold"]


# A shell with job control, which tells how the job has ended or stopped. When it reads a
# line, it continues the job.
JOB = ["sh", "-mc", """trap : INT
    "$@"
    echo "status $?"
    read -r _
    fg
    echo "status $?" """, "sh"]


@pytest.fixture
def start_in_terminal(installation, environment, scratch):
    """start_in_terminal(*under): starts the launcher in a terminal; returns its pexpect.spawn."""
    def start(*under) -> pexpect.spawn:
        program, *arguments = *under, str(installation.launcher)
        return pexpect.spawn(program, arguments, cwd=str(scratch / "cwd"), env=environment)
    return start


def test_interrupt_of_the_terminal_reaches_the_helper_once(start_in_terminal, signals):
    """Ctrl-C goes to the whole process group, and the launcher does not repeat it."""
    # Not as the leader of the session, which waits for the helper.
    with start_in_terminal("unshare", "--fork") as terminal:
        helper = signals.process()
        launcher = helper.parent()
        launcher.suspend()
        wait_for_stop(launcher)
        terminal.sendcontrol("c")
        # The helper takes it before the launcher does: two at a time would look like one.
        assert signals.numbers() == [SIGINT, 0]
        launcher.resume()
        terminal.wait()
        assert terminal.signalstatus == SIGINT
        helper.terminate()
        # The end of the session's leader hangs up.
        assert [signals.numbers(), signals.numbers()] == [[SIGHUP, 0], [SIGTERM, 0]]


def test_interrupt_of_the_terminal_reaches_a_helper_in_another_group(
        installation, start_in_terminal, signals):
    """The launcher passes Ctrl-C on to a helper that the terminal does not reach."""
    leave_the_group(installation)
    with start_in_terminal() as terminal:
        helper = signals.process()
        terminal.sendcontrol("c")
        assert signals.numbers() == [SIGINT, 0]
        terminal.wait()
        assert terminal.signalstatus == SIGINT
        helper.terminate()


def test_end_of_a_session_leader_hangs_no_helper_up(start_in_terminal, signals):
    """The leader waits for the helper: its end would add a SIGHUP to the Ctrl-C.

    The launcher leads the session of a terminal where no shell is between, as in ssh -t.
    """
    with start_in_terminal() as terminal:
        helper = signals.process()
        terminal.sendcontrol("c")
        assert signals.numbers() == [SIGINT, 0]
        helper.terminate()
        assert signals.numbers() == [SIGTERM, 0]
        terminal.wait()
        assert terminal.signalstatus == SIGINT


def test_suspend_of_the_terminal_stops_both_and_fg_continues_them(start_in_terminal, started):
    """Ctrl-Z and fg work as with any program."""
    with start_in_terminal(*JOB) as terminal:
        helper = started.process()
        terminal.sendcontrol("z")
        terminal.expect_exact("status 148")
        wait_for_stop(helper)
        terminal.sendline()
        wait_until(lambda: helper.status() != psutil.STATUS_STOPPED, "the helper continues")
        terminal.sendcontrol("c")
        terminal.expect_exact("status 130")


@pytest.mark.parametrize("name", ["SIGTSTP", "SIGTTIN", "SIGTTOU"])
def test_stop_signal_stops_the_helper_and_the_launcher(start_in_terminal, signals, name):
    """A stop signal to the launcher alone reaches the helper as itself; SIGCONT wakes both."""
    with start_in_terminal(*JOB):
        number = getattr(signal, name)
        launcher = signals.process().parent()
        for _ in range(2):
            launcher.send_signal(number)
            assert signals.numbers() == [number, 0]
            wait_for_stop(launcher)
            launcher.resume()
            assert signals.numbers() == [SIGCONT, 0]
        launcher.terminate()
        assert signals.numbers() == [SIGTERM, 0]


def test_stop_signal_that_is_ignored_at_the_start_does_not_stop_the_launcher(
        start_in_terminal, signals):
    """The helper gets it all the same."""
    with start_in_terminal(*JOB, "env", "--ignore-signal=TSTP") as terminal:
        launcher = signals.process().parent()
        launcher.send_signal(SIGTSTP)
        assert signals.numbers() == [SIGTSTP, 0]
        launcher.terminate()
        terminal.expect_exact("status 143")


# Of two pending signals, the kernel delivers the one with the lower number first.
@pytest.mark.parametrize("at_the_start, sent", [
    pytest.param("--block-signal=INT", [SIGINT, SIGTERM], id="blocked signal stays blocked"),
    pytest.param("--ignore-signal=HUP", [SIGHUP, SIGINT], id="nohup stays in force"),
    pytest.param("--ignore-signal=INT,QUIT", [SIGINT], id="job of a script in the background"),
])
def test_state_at_the_start_decides_which_signal_ends_both(
        installation, started, at_the_start, sent):
    """The last signal ends launcher and helper, and none before it."""
    launcher = installation.start(under=["env", at_the_start])
    started.line()
    for number in sent:
        launcher.send(number)
    assert launcher.wait() == Ended(-sent[-1])


def test_helper_that_is_stopped_is_ended(installation, signals):
    """It continues to handle the signal that ends the launcher, in another group as well."""
    leave_the_group(installation)
    launcher = installation.start()
    helper = signals.process()
    helper.suspend()
    wait_for_stop(helper)
    end(launcher, signals)


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
