"""Fixtures of the black-box tests; see docs/testing.md for how to add a test."""

import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path

import psutil
import pytest

from support.emulator import DIFFERENCES
from support.installation import Build, Installation, Session
from support.namespace import MAKE, Namespace
from support.processes import (Fifo, Process, become_subreaper, kill_descendants,
                               running_children, wait_until)
from support.report import Site

SOURCE = Path(__file__).resolve().parent.parent


def pytest_addoption(parser):
    parser.addoption("--build", type=Path,
                     help="the build directory to test; default: the newest in build/")
    parser.addoption("--discard-scratch", action="store_true",
                     help="remove the scratch folders of failed tests, too")


def pytest_configure(config):
    newest = max(SOURCE.glob("build/*/mpirun/zorv-mpirun"), key=os.path.getmtime,
                 default=SOURCE / "build/mpirun/zorv-mpirun")
    config.option.build = (config.option.build or newest.parent.parent).resolve()
    if not Build(config.option.build).launcher.exists():
        raise pytest.UsageError(
            f"no launcher in {config.option.build}; build it, or give --build DIRECTORY")
    # The same surroundings for every user: no settings of the suite, no umask, no
    # ignored or blocked signals, no core dumps; what CTest sets for this build.
    for name in list(os.environ):
        if re.match("(ZORV|PELK|TALVORA)_", name):
            del os.environ[name]
    for preset in json.loads((SOURCE / "CMakePresets.json").read_text())["testPresets"]:
        if preset["name"] == config.option.build.name:
            os.environ.update(preset.get("environment", {}) | dict(os.environ))
    os.umask(0o022)
    signal.pthread_sigmask(signal.SIG_SETMASK, ())
    # Python ignores two for itself, and not for its children.
    for number in signal.valid_signals() - {signal.SIGPIPE, signal.SIGXFSZ}:
        if signal.getsignal(number) == signal.SIG_IGN:
            signal.signal(number, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, resource.getrlimit(resource.RLIMIT_CORE)[1]))
    become_subreaper()


def pytest_collection_modifyitems(config, items):
    if not Build(config.option.build).variable("ZORV_TARGET"):
        return
    for item in items:
        for pattern, what in DIFFERENCES.items():
            if re.search(pattern, item.nodeid):
                item.add_marker(pytest.mark.skip(reason=f"in the emulator {what}"))


def pytest_report_header(config):
    return f"build: {config.option.build}"


def leftovers(scratch: Path) -> list[str]:
    """What a test has left behind: processes, and files outside its folders."""
    found = [f"file {path}" for name in ("cwd", "home", "tmp")
             for path in (scratch / name).iterdir()]
    try:
        wait_until(lambda: not running_children(), "the end of all processes", seconds=5)
    except pytest.fail.Exception:
        found += map(str, psutil.Process().children(recursive=True))
    return found


@pytest.fixture(autouse=True)
def scratch(request):
    """A folder of the test's own; kept when the test fails.

    `cwd`, `home` and `tmp` in it are the working directory, HOME and TMPDIR of what the
    test starts. The test fails if it leaves something in them, or leaves processes behind.
    """
    folder = Path(tempfile.mkdtemp(prefix="zorv-test-"))
    print(f"scratch folder, kept if the test fails: {folder}")
    failed_before = request.session.testsfailed
    for name in ("cwd", "home", "tmp"):
        (folder / name).mkdir()
    yield folder
    has_failed = request.session.testsfailed > failed_before
    is_interrupted = request.session.exitstatus == pytest.ExitCode.INTERRUPTED
    found = [] if has_failed or is_interrupted else leftovers(folder)
    kill_descendants()
    if request.config.option.discard_scratch or not (has_failed or found):
        shutil.rmtree(folder)
    if found:
        pytest.fail("\n".join(["left behind:", *found]), pytrace=False)


@pytest.fixture(scope="session")
def build(request) -> Build:
    """The build directory under test."""
    return Build(request.config.option.build)


@pytest.fixture(scope="session")
def source() -> Path:
    """The project's source directory."""
    return SOURCE


@pytest.fixture
def environment(scratch) -> dict[str, str]:
    """The environment of what the test starts; the test may change it."""
    inherited = {name: value for name, value in os.environ.items()
                 if not name.startswith("PYTEST_")}
    return {**inherited, "HOME": str(scratch / "home"), "TMPDIR": str(scratch / "tmp")}


@pytest.fixture
def start(scratch, environment):
    """start(*command, env={}, cwd=None): starts a program and returns its Process."""
    def start(*command, env=None, cwd=None) -> Process:
        settings = {name: value for name, value in {**environment, **(env or {})}.items()
                    if value is not None}
        return Process(command, scratch, settings, cwd or scratch / "cwd")
    return start


@pytest.fixture
def run(start):
    """run(*command, env={}, cwd=None): runs a program and returns its end."""
    return lambda *command, **options: start(*command, **options).wait()


@pytest.fixture
def installation(scratch, build, start, environment) -> Installation:
    """An installation of the suite, with the built launcher and a helper."""
    return Installation(scratch / "root", build, start, environment)


@pytest.fixture
def session(installation) -> Session:
    """The session of a front end on the host "alpha", for what the test starts."""
    session = Session(installation.root / "session")
    installation.environment.update(ZORV_HOST="alpha", ZORV_SESSION_PATH=str(session.folder))
    return session


@pytest.fixture
def site(installation) -> Site:
    """An installation and a session in which nothing is wrong, with the report beside it."""
    return Site(installation)


@pytest.fixture
def fifo(scratch):
    """A FIFO, through which a helper tells of its start."""
    path = scratch / "fifo"
    os.mkfifo(path)
    with path.open("r+b", buffering=0) as file:
        yield Fifo(path, file)


@pytest.fixture
def started(installation, fifo) -> Fifo:
    """A FIFO with the process of each helper that starts; helpers run until killed."""
    installation.set_helper(f"echo $$ >{fifo.path}; exec sleep 600")
    return fifo


@pytest.fixture
def signals(installation, fifo) -> Fifo:
    """A FIFO with the process of each helper, and number and value of each signal that it gets.

    SIGTERM ends the helper, and no other signal that can be blocked.
    """
    installation.set_test_child("--record-signals", fifo.path)
    return fifo


@pytest.fixture
def held(installation, session, started) -> Process:
    """A launcher that waits at a hold, after the end of its helper."""
    launcher = installation.start()
    session.hold.touch()
    started.process().kill()
    launcher.wait_for_no_child()
    return launcher


@pytest.fixture
def namespace():
    """Namespaces of the test's own; skips the test where they are forbidden."""
    with subprocess.Popen(MAKE, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True) as process:
        answer = process.stdout.readline().strip()
        if answer != "ready":
            pytest.skip(f"namespaces are forbidden here: {answer}")
        yield Namespace(process.pid)


@pytest.fixture
def another_user() -> int:
    """Another user, to whom the test can give files; skips the test of who is not root."""
    if os.geteuid() != 0:
        pytest.skip("only root can be several users")
    return 54321


@pytest.fixture
def needs(run):
    """needs(*command): skips the test where the command does not work."""
    def needs(*command):
        ended = run("sh", "-c", '"$@"', "sh", *command)
        if ended.status != 0:
            pytest.skip(f"{shlex.join(command)}: {ended.errors.strip()}")
    return needs


@pytest.fixture
def strace(needs, environment):
    """strace(*options): strace as `under` of a launch; skips the test where it does not work."""
    needs("strace", "-o", os.devnull, "true")
    # The sanitizers cannot look for leaks under strace.
    environment["ASAN_OPTIONS"] = "detect_leaks=0"
    return lambda *options: ["strace", "-qq", "-o", os.devnull, *options]
