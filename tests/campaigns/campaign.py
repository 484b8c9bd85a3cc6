#!/usr/bin/python3
"""Tries the launcher many times, at random instants and with faults, and counts what is wrong.

Every trial has random numbers of its own. A trial that is wrong prints the command that repeats
it alone. With libinterpose.so in LD_PRELOAD, INTERPOSE_DELAY_US delays system calls,
INTERPOSE_THREAD starts a thread that does not hold signals back, and INTERPOSE_BREAK breaks the
launcher on purpose: the mode must see it. The session files are tried by the program
"sessionfiles". docs/reliability.md has the results.
"""

import argparse
import inspect
import os
import random
import re
import resource
import shlex
import shutil
import signal
import sys
import time
from collections.abc import Callable, Mapping
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import Optional

SOURCE = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(SOURCE / "tests"))

from support.installation import Build, Installation, Session  # noqa: E402
from support.processes import become_subreaper, children, kill_descendants  # noqa: E402

MOST_WRONG = 3
# About twice the time that a start takes, in seconds.
SPAN = 0.025
# Python has no name for SIGSTKFLT before 3.11.
ENDING_SIGNALS = [signal.SIGABRT, signal.SIGINT, signal.SIGTERM, signal.SIGSEGV, signal.SIGFPE,
                  signal.SIGBUS, signal.SIGHUP, signal.SIGQUIT, signal.SIGILL, signal.SIGTRAP,
                  signal.SIGSYS, 16]
PASSED_SIGNALS = [signal.SIGUSR1, signal.SIGUSR2, signal.SIGCONT, signal.SIGWINCH, signal.SIGURG,
                  signal.SIGALRM, signal.SIGVTALRM, signal.SIGPROF, signal.SIGXCPU, signal.SIGPWR,
                  signal.SIGIO, signal.SIGRTMIN]
MOST_PROCESSOR_NS = 200_000_000

# The errors of calls where a machine is in trouble, by their manual pages. What is no file does
# not wear out or fill up; close() is not there: an injected error would leave the descriptor
# open, which Linux never does, see close(2).
CALLS_OF_ERRORS = {
    "EACCES": r"access|connect|faccessat2|getcwd|newfstatat|openat|readlink|statx|unlink",
    "EAGAIN": r"clone|clone3|(read|write)\(\d+</",
    "EINTR": r"connect|fcntl|openat|poll|ppoll|read|waitid|write",
    "EIO": r"getdents64|unlink|(read|write)\(\d+</",
    "EMFILE": r"dup|eventfd2|fcntl|openat|pipe2|socket",
    "ENOENT": r"access|connect|faccessat2|getcwd|getdents64|newfstatat|openat|readlink|statx"
              r"|unlink",
    "ENOMEM": r"access|clone|clone3|close_range|eventfd2|faccessat2|fstat|mmap|newfstatat|openat"
              r"|poll|ppoll|readlink|socket|statx",
    "ENOSPC": r"openat|write\(\d+</",
    "ENOSYS": r"close_range",
    "EPERM": r"prlimit64",
}


class Campaign:
    """An installation and a session in the working directory, and the trial that runs."""

    def __init__(self, options: argparse.Namespace):
        self.options = options
        # The actions of the helper have relative names, without blanks.
        self.session = Session(Path("root/session"))
        self.installation = Installation(Path("root"), Build(options.build), None, {
            **os.environ, "LC_ALL": "C.UTF-8", "HOME": os.getcwd(), "ZORV_HOST": "alpha",
            "ZORV_SESSION_PATH": os.path.abspath("root/session")})
        # What the helper writes down, and what is made when a signal is sent to no child.
        self.record, self.stray = Path("record"), Path("stray")
        self.wrongs = 0
        self.number = 0
        self.what = ""
        # The children that have ended, and how, negative for a signal.
        self.ends = {}

    def clean(self):
        """Removes what a trial has left."""
        for file in (*self.session.folder.iterdir(), self.record, self.stray):
            file.unlink(missing_ok=True)
        self.ends.clear()

    def wrong(self, kind: str, what: str):
        """Prints and counts what was wrong with the trial that runs."""
        self.wrongs += 1
        # Of an option that is given twice, the last counts.
        end = sys.argv.index("--under") if "--under" in sys.argv else len(sys.argv)
        count = self.options.count if self.options.mode == "restarts" else 1
        repeat = [*sys.argv[:end], f"--first={self.number}", f"--count={count}", *sys.argv[end:]]
        print(f"{kind}: {what} ({self.what})\nRepeat it with: {shlex.join(repeat)}",
              file=sys.stderr)

    def wait_until(self, condition) -> bool:
        """Waits until the condition holds; false when that takes longer than the timeout."""
        end = time.monotonic() + self.options.timeout / 1000
        while not condition():
            if time.monotonic() > end:
                return False
            time.sleep(0.0005)
        return True

    def records(self) -> list[str]:
        """The lines that the helpers have written down."""
        files = (self.record, self.session.folder / "restarts")
        return [line for file in files if file.exists() for line in file.read_text().splitlines()]

    def living(self) -> list[int]:
        """The children that live; this program gets all orphans."""
        for child in children(os.getpid()):
            pid, status = os.waitpid(child, os.WNOHANG)
            if pid != 0:
                self.ends[pid] = os.waitstatus_to_exitcode(status)
        return children(os.getpid())

    def has_ended(self, pid: int) -> bool:
        """Waits for the end of a child."""
        return self.wait_until(lambda: pid not in self.living() and pid in self.ends)

    def launch(self, *actions, output=None, under=(), blocked=()) -> int:
        """Starts the launcher in a process group of its own, and returns its process.

        `actions` are those of the test child, which is the helper. `under` is a command to
        start the launcher with.
        """
        self.installation.environment["TESTCHILD"] = " ".join(map(str, actions))
        command = [*under, *self.options.under, self.installation.launcher, "-np", "2", "program"]
        streams = [] if output is None else [(os.POSIX_SPAWN_DUP2, output, 1),
                                             (os.POSIX_SPAWN_DUP2, output, 2)]
        return os.posix_spawnp(
            command[0], command, self.installation.environment, file_actions=streams, setpgroup=0,
            setsigmask=blocked,
            setsigdef=signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP})

    def check_left(self, launcher: int, survivors: int = 0):
        """Waits for the launcher's end, and until the survivors alone are left, which it ends."""
        if not self.has_ended(launcher):
            self.wrong("hangs", "the launcher goes on")
        elif not self.wait_until(lambda: len(self.living()) == survivors):
            self.wrong("orphans", f"{len(self.living())} processes are left")
        self.living()
        kill_descendants()

    def check_end(self, launcher: int, sent=(), survivors: int = 0):
        """All must end with status 0 or by a signal that was sent, the launcher by it."""
        self.check_left(launcher, survivors)
        by_signal = [-number for number in sent]
        for pid, status in self.ends.items():
            if status not in (by_signal if pid == launcher and sent else (0, *by_signal)):
                self.wrong("wrong ends", f"status {status}")
        if sent and self.session.marker.exists():
            self.wrong("markers", "the marker is left")
        if self.stray.exists():
            self.wrong("strays", "a signal was sent to what is no child")

    def end_by_signal(self, *actions, to_group: bool = False, pair: bool = False):
        """Ends the launcher by one or two signals, the first in the first 25 ms."""
        launcher = self.launch(*actions)
        time.sleep(random.uniform(0, SPAN))
        sent = [random.choice(ENDING_SIGNALS)]
        os.kill(-launcher if to_group else launcher, sent[0])
        if pair:
            time.sleep(random.uniform(0, 0.002))
            sent.append(random.choice(ENDING_SIGNALS))
            os.kill(launcher, sent[1])
        self.check_end(launcher, sent)

    def run_traced(self, *strace_options) -> tuple[Optional[int], str]:
        """Launches under strace; returns the status, None without an end, and the messages."""
        restarts = self.options.mode == "faults_restart"
        actions = ["--restart-again", self.session.folder] if restarts else [
            "--append", self.record]
        with open("errors", "w+", errors="replace") as errors:
            launcher = self.launch(*actions, output=errors.fileno(),
                                   under=["/usr/bin/strace", *strace_options])
            self.check_left(launcher)
            errors.seek(0)
            return self.ends.get(launcher), errors.read()

    def possible_faults(self) -> list[str]:
        """The faults of a run, as strace is told of them: which call, and which error."""
        self.run_traced("-y", "-o", "trace")
        occurrences, faults = {}, []
        for line in Path("trace").read_text(errors="replace").splitlines():
            call = line.partition("(")[0]
            occurrences[call] = occurrences.get(call, 0) + 1
            # Main begins with this question; what was before was the dynamic loader.
            if "RLIMIT_STACK, NULL" in line:
                faults.clear()
            faults += [f"{call}:error={error}:when={occurrences[call]}"
                       for error, calls in CALLS_OF_ERRORS.items()
                       if re.match(rf"({calls})\b", line)]
        return faults


def start(campaign: Campaign):
    """Sends a signal that ends the launcher at a random instant of the first 25 ms.

    Wrong: another end than by the signal; a process or the marker is left; a signal to a
    process that is no child.
    """
    campaign.end_by_signal("--sleep")


def pair(campaign: Campaign):
    """The same with two signals."""
    campaign.end_by_signal("--sleep", pair=True)


def group(campaign: Campaign):
    """The same with a signal to the process group."""
    campaign.end_by_signal("--sleep", to_group=True)


def restart(campaign: Campaign):
    """The same while helpers are restarted without a pause."""
    # The marker goes with the launcher.
    campaign.end_by_signal("--restart-again", campaign.session.folder,
                           "--wait-file", campaign.session.marker)


def hold(campaign: Campaign):
    """The same around the end of a helper that a hold follows."""
    campaign.session.hold.touch()
    campaign.end_by_signal("--exit", "0")


def passed(campaign: Campaign):
    """Sends a signal that is passed on, then SIGTERM.

    Wrong: the helper gets it not at all, or twice; the launcher ends by it.
    """
    number = int(random.choice(PASSED_SIGNALS))
    # Blocked from the start, so that it waits for the helper to look at it.
    launcher = campaign.launch("--record-signals", campaign.record, blocked=[number])
    time.sleep(random.uniform(0, 2 * SPAN))
    os.kill(launcher, number)
    if not campaign.wait_until(lambda: f"{number} 0" in campaign.records()):
        campaign.wrong("lost signals", f"the helper did not get signal {number}")
    os.kill(launcher, signal.SIGTERM)
    campaign.check_end(launcher, [signal.SIGTERM])
    if campaign.records()[1:] != [f"{number} 0", "15 0"]:
        campaign.wrong("stray signals", str(campaign.records()))


def stop(campaign: Campaign):
    """Sends SIGTSTP to the group, as Ctrl-Z does, then SIGCONT and SIGTERM.

    Wrong: the launcher does not stop, or does not end.
    """
    launcher = campaign.launch("--sleep")
    time.sleep(random.uniform(0, SPAN))
    os.kill(-launcher, signal.SIGTSTP)
    look = os.WSTOPPED | os.WNOHANG | os.WNOWAIT
    if not campaign.wait_until(lambda: os.waitid(os.P_PID, launcher, look)):
        campaign.wrong("hangs", "the launcher does not stop")
    os.kill(-launcher, signal.SIGCONT)
    os.kill(launcher, signal.SIGTERM)
    campaign.check_end(launcher, [signal.SIGTERM])


def ignored(campaign: Campaign):
    """Sends SIGTERM, which the helper ignores. Wrong: the launcher does not end."""
    launcher = campaign.launch("--ignore", "15", "--append", campaign.record, "--sleep")
    campaign.wait_until(campaign.record.exists)
    os.kill(launcher, signal.SIGTERM)
    campaign.check_end(launcher, [signal.SIGTERM], survivors=1)


def killed(campaign: Campaign):
    """Sends SIGKILL. Wrong: half a helper is left."""
    launcher = campaign.launch("--append", campaign.record, "--sleep")
    time.sleep(random.uniform(0, SPAN))
    os.kill(launcher, signal.SIGKILL)
    # A helper that runs stays. A child that is none yet becomes one, or ends.
    settled = campaign.has_ended(launcher) and campaign.wait_until(
        lambda: campaign.record.exists() or not campaign.living())
    left = len(campaign.living())
    if not settled or left > 1:
        campaign.wrong("leftovers", f"{left} processes, or half a helper")
    kill_descendants()


def ends(campaign: Campaign):
    """Lets the helper end at once, with every status. Wrong: the launcher does not end with 0."""
    orphan = ["--fork-exit"] if campaign.number % 3 == 0 else []
    campaign.check_end(campaign.launch(*orphan, "--exit", campaign.number % 256))


def restarts(campaign: Campaign):
    """Restarts the helper in one run.

    Wrong: descriptors, threads or memory grow; a helper is given something else.
    """
    campaign.check_end(campaign.launch("--restart-again", campaign.session.folder))
    # A line says what the launcher used, in numbers, and what the helper got.
    lines = [line.split() for line in campaign.records()]
    count = len(lines)
    if count != campaign.options.count or len({line[3] for line in lines}) != 1:
        campaign.wrong("differences", f"{count} helpers, and different things")
        return
    for column, what in enumerate(("descriptors", "threads", "KiB")):
        # A page table or an arena may grow once.
        used = [int(line[column]) for line in lines[min(5, count // 2):]]
        # The least of a third: a quick helper may still see the pipe ends that the
        # launcher closes after a start.
        third = (count + 2) // 3
        early, late = min(used[:third]), min(used[-third:])
        print(f"{early}, then {late} {what}")
        if late > early * 1.01:
            campaign.wrong("leaks", what)


def output(campaign: Campaign):
    """Floods both output streams; the reader is fast, slow, or leaves.

    Wrong: a byte is lost; the launcher uses processor time.
    """
    size = campaign.options.mebibytes << 20
    end = ("--exit", 3) if campaign.number % 2 == 0 else ("--signal", 6)
    is_slow = campaign.number % 3 == 1
    leaves = campaign.number % 3 == 2
    reader, writer = os.pipe()
    launcher = campaign.launch("--flood", size, "--flood-error", size, *end, output=writer)
    os.close(writer)
    came = 0
    while data := os.read(reader, 65536):
        came += len(data)
        if leaves and came > size / 10:
            break
        time.sleep(0.001 if is_slow else 0)
    os.close(reader)
    if not leaves and came != 2 * size:
        campaign.wrong("losses", f"{came} bytes came of twice {size}")
    # Of the launcher alone, as long as nobody has waited for it; see proc(5).
    used = int(Path(f"/proc/{launcher}/schedstat").read_text().split()[0])
    if used == 0 or used > MOST_PROCESSOR_NS:
        campaign.wrong("spins", f"{used} ns of processor time")
    campaign.check_end(launcher)


def faults(campaign: Campaign):
    """Lets one system call fail, by strace.

    Wrong: an end without a message; a lost launch.
    """
    status, errors = campaign.run_traced(
        # Of that call alone, and "-qq": strace itself prints nothing.
        "-qq", "-o", "/dev/null", "-e", f"trace={campaign.what.partition(':')[0]}",
        "-e", f"inject={campaign.what}")
    helpers = len(campaign.records())
    loses_message = re.match("write:error=(EIO|ENOSPC)", campaign.what)
    # To a look at a file, this is an answer and no failure.
    finds_nothing = re.match("(openat|statx):error=ENOENT", campaign.what)
    if status not in (0, 1):
        campaign.wrong("wrong ends", f"status {status}: {errors}")
    elif status != 0:
        if ": " not in errors and not loses_message:
            campaign.wrong("silences", errors)
    elif helpers == 0:
        campaign.wrong("lost launches", errors)
    elif campaign.options.mode == "faults_restart" and helpers != 2 and not (
            errors or finds_nothing):
        campaign.wrong("lost restarts", f"{helpers} helpers instead of 2")


def faults_session(campaign: Campaign):
    """The same with a session."""
    faults(campaign)


def faults_restart(campaign: Campaign):
    """The same with a restart. Wrong as well: it is lost without a message, or made twice."""
    faults(campaign)


def faults_failure(campaign: Campaign):
    """The same without a helper."""
    faults(campaign)


# The modes, with the number of trials that CTest makes.
MODES = {start: 200, pair: 100, group: 100, restart: 100, hold: 50, passed: 100, stop: 100,
         ignored: 20, killed: 200, ends: 300, restarts: 300, output: 6, faults: 40,
         faults_session: 40, faults_restart: 40, faults_failure: 40}


def prepare(campaign: Campaign):
    """Makes the installation, the session and this process as the mode needs them."""
    mode = campaign.options.mode
    campaign.installation.set_test_child()
    if mode == "faults_failure":
        campaign.installation.helper.unlink()
    if mode in ("faults", "faults_failure"):
        campaign.installation.environment["ZORV_HOST"] = ""
    campaign.installation.environment["RESTARTS"] = str(
        2 if mode == "faults_restart" else campaign.options.count)
    become_subreaper()
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, resource.getrlimit(resource.RLIMIT_CORE)[1]))


def choose_trials(campaign: Campaign) -> dict[int, str]:
    """The number of each trial, and what it tries."""
    first, count = campaign.options.first, campaign.options.count
    if campaign.options.mode == "restarts":
        return {first: f"{count} restarts"}
    if not campaign.options.mode.startswith("faults"):
        return {number: f"trial {number}" for number in range(first, first + count)}
    # The number of a trial is the place of its fault in the list; they are spread over it.
    possible = campaign.possible_faults()
    print(f"{len(possible)} faults possible")
    left = max(len(possible) - first, 0)
    count = min(count, left)
    places = [first + i * left // count for i in range(count)]
    return {place: possible[place] for place in places}


def run(campaign: Campaign, mode: Callable[[Campaign], None]) -> bool:
    """Tries the mode as often as the options say; whether something was tried, and right."""
    options = campaign.options
    trials = choose_trials(campaign)
    for campaign.number, campaign.what in trials.items():
        campaign.clean()
        random.seed(f"{options.seed} {campaign.number}")
        mode(campaign)
        if campaign.wrongs >= MOST_WRONG:
            break
    print(f"{options.mode}: {len(trials)} tried, seed {options.seed}: {campaign.wrongs} wrong")
    return bool(trials) and campaign.wrongs == 0


def natural(text: str) -> int:
    """The number that an option gives."""
    if int(text) < 0:
        raise ValueError
    return int(text)


def parse_command_line(modes: Mapping[str, Callable]) -> argparse.Namespace:
    """Reads the command line; ends the program if it cannot."""
    texts = "\n\n".join(f"{name}: {inspect.getdoc(mode)}" for name, mode in modes.items())
    parser = argparse.ArgumentParser(description=__doc__, epilog=f"The modes:\n\n{texts}",
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("mode", choices=modes, metavar="MODE")
    parser.add_argument("--under", nargs=argparse.REMAINDER, default=[], metavar="COMMAND",
                        help="the last option: a command to start the launcher with")
    parser.add_argument("--build", type=Path, default=SOURCE / "build/release",
                        help="the build directory")
    for name, default, text in (
            ("count", None, "how many trials; default: a few for each mode"),
            ("seed", 1, "of the random numbers"),
            ("first", 0, "number of the first trial"),
            ("timeout", 20000, "of each wait, in milliseconds"),
            ("mebibytes", 20, "of a flood")):
        parser.add_argument(f"--{name}", type=natural, default=default, metavar="N", help=text)
    options = parser.parse_args()
    options.build = options.build.resolve()
    if not Build(options.build).launcher.exists():
        parser.error(f"no launcher in {options.build}")
    if options.under:
        # The working directory becomes another one.
        options.under[0] = os.path.abspath(shutil.which(options.under[0]) or options.under[0])
    if options.count is None:
        options.count = MODES[modes[options.mode]]
    return options


def interrupt(number: int, _):
    """Ends the program, which then cleans up; a second signal does not interrupt that."""
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    sys.exit(128 + number)


def main() -> int:
    modes = {mode.__name__: mode for mode in MODES}
    options = parse_command_line(modes)
    signal.signal(signal.SIGINT, interrupt)
    signal.signal(signal.SIGTERM, interrupt)
    with TemporaryDirectory(prefix="zorv-campaign-") as scratch:
        os.chdir(scratch)
        campaign = Campaign(options)
        prepare(campaign)
        try:
            return 0 if run(campaign, modes[options.mode]) else 1
        finally:
            kill_descendants()


if __name__ == "__main__":
    sys.exit(main())
