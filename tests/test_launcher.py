"""What the launcher does with its helper: start it, pass things on, report failures."""

import os
import re
import resource
import shutil
from signal import SIGKILL

import pytest

from support.processes import Ended


@pytest.mark.parametrize("executable, helper, missing", [
    pytest.param("bin/zorv-mpirun", "bin/zorv-debugger", ["lib", "libexec"], id="installation"),
    pytest.param("link", "bin/zorv-debugger", ["lib", "libexec"], id="link"),
    pytest.param("Bin/zorv-mpirun", "Bin/zorv-debugger", [], id="flat folder of another name"),
])
def test_starts_the_helper_beside_it_though_folders_are_missing(
        installation, run, executable, helper, missing):
    """The helper is the one beside the launcher; only an installation misses folders."""
    root = installation.root
    (root / "lib").rmdir()
    (root / "libexec").rmdir()
    (root / "link").symlink_to("bin/zorv-mpirun")
    installation.set_helper('echo "$0"')
    shutil.copytree(root / "bin", root / "Bin")
    assert run(root / executable) == Ended(0, f"{root / helper}\n", "".join(
        f"Unable to find directory '{root / name}'.\nYour Velmor product installation may be "
        "incomplete or corrupted.\n" for name in missing))


def test_program_that_was_removed_finds_no_installation(installation):
    """The launcher says so, and ends with 1."""
    ended = installation.launch(under=["sh", "-c", 'exec 9<"$0"; rm "$0"; exec /proc/self/fd/9'])
    assert ended == Ended(1, "", "zorv-mpirun: cannot find the installation: the program's file "
                          "was replaced or removed\n")


@pytest.mark.parametrize("arguments", [
    pytest.param(["a b", "", "'c\"", "d\ne", "\\", "$HOME", "*"], id="blanks, quotes, line ends"),
    pytest.param([os.fsdecode(bytes(range(1, 256)))], id="every byte"),
    pytest.param(["-qmljsdebugger=x", "--qmljsdebugger", "y", "-platform", "z"],
                 id="options that Qt takes for itself"),
    pytest.param(["--zorvport", "4242", "--zorvmpirun", "-np", "2", "a.out", "--zorvport"],
                 id="options of the launcher"),
    pytest.param(["-h", "--zorvport", "none"], id="-h without manual launch, rejected option"),
])
def test_passes_arguments_on_unchanged(installation, scratch, arguments):
    """The helper gets --zorvmpirun and then every argument of the launcher."""
    record = scratch / "record"
    installation.set_helper(f"cat /proc/$$/cmdline >{record}")
    assert installation.launch(*arguments) == Ended(0)
    seen = os.fsdecode(record.read_bytes()).split("\0")[:-1]
    assert seen == ["/bin/sh", str(installation.helper), "--zorvmpirun", *arguments]


def test_says_why_a_helper_does_not_start(installation):
    """The cause is more than the system's text, and the report is named."""
    installation.helper.write_text("#!/nowhere/sh\n")
    assert installation.launch() == Ended(
        1, "", f"{installation.helper}: No such file or directory (its interpreter /nowhere/sh is "
        "missing: /nowhere does not exist; zorv-mpirun-info tells more)\n")


@pytest.mark.parametrize("under", [
    pytest.param(["env", "XDG_CONFIG_HOME=/a", "XDG_CONFIG_DIRS=/b"], id="environment"),
    pytest.param(["sh", "-c", 'exec env -u _ "$@" 3</dev/null 9</dev/null', "sh"],
                 id="open descriptors"),
    pytest.param(["sh", "-c", 'exec env -u _ "$@" <&- >&- 2>&-', "sh"],
                 id="closed standard streams"),
    pytest.param(["env", "--ignore-signal=HUP,PIPE,USR2,CHLD,TSTP,XFSZ"], id="ignored signals"),
    pytest.param(["env", "--block-signal=TERM,USR1,CHLD"], id="blocked signals"),
    pytest.param(["env", "--block-signal=TERM,USR1", "prlimit", "--stack=4194304:"],
                 id="blocked signals, unusual stack limit"),
    pytest.param(["setpriv", "--pdeathsig", "TERM"], id="signal of the parent's death"),
    pytest.param(["taskset", "--cpu-list", "0"], id="CPU affinity"),
    pytest.param(["env", "OMP_PROC_BIND=true"], id="OMP_PROC_BIND"),
    pytest.param(["sh", "-c", 'umask 077; exec env -u _ "$@"', "sh"], id="umask"),
    pytest.param(["prlimit", "--nofile=16"], id="resource limits"),
])
def test_helper_inherits_what_the_launcher_got(installation, run, needs, scratch, under):
    """A helper finds the same through the launcher as without it, and all standard streams."""
    needs(*under, "true")
    state = scratch / "state"
    installation.set_test_child("--record-state", state)
    run(*under, installation.helper)
    descriptors, *direct = state.read_text().splitlines()
    state.unlink()
    assert installation.launch(under=under) == Ended(0)
    seen, *through_launcher = state.read_text().splitlines()
    assert through_launcher == direct
    assert set(seen.split()) == {*descriptors.split(), "0", "1", "2"}


def test_failed_exec_is_not_repeated(installation, strace, scratch):
    """One call has the bytes of the arguments, and its error is in the message."""
    trace = scratch / "trace"
    under = strace("-o", trace, "-f", "-P", installation.helper,
                   "-e", "inject=execve:error=ETXTBSY:when=1")
    assert installation.launch(os.fsdecode(b"x\377y"), under=under) == Ended(
        1, "", f"{installation.helper}: Text file busy (zorv-mpirun-info tells more)\n")
    calls = re.findall(r"execve\(.*", trace.read_text())
    assert len(calls) == 1
    assert r'"--zorvmpirun", "x\377y"]' in calls[0]


@pytest.mark.skipif(resource.getrlimit(resource.RLIMIT_STACK)[1] != resource.RLIM_INFINITY,
                    reason="the stack has a hard limit here")
@pytest.mark.parametrize("soft_limit, env, executions, seen", [
    pytest.param(8384512, {}, 2, "8188 unset", id="below 8 MiB"),
    pytest.param(8388608, {}, 1, "8192 unset", id="8 MiB"),
    pytest.param(67112960, {}, 2, "65540 unset", id="above 64 MiB"),
    pytest.param("unlimited", {}, 1, "unlimited unset", id="unlimited"),
    pytest.param(4194304, {"ZORV_IGNORE_STACK_LIMIT": ""}, 1, "4096 unset", id="switched off"),
    pytest.param(8388608, {"TALVORA_OLD_STACK_LIMIT": "0004194304"}, 1, "4096 unset",
                 id="second execution"),
])
def test_executes_itself_again_for_an_unusual_stack_limit(
        installation, strace, scratch, soft_limit, env, executions, seen):
    """The launcher runs with a stack of a usual size; the helper gets the user's limit."""
    installation.set_helper('echo "$2 $(ulimit -Ss) ${TALVORA_OLD_STACK_LIMIT-unset}"')
    trace = scratch / "trace"
    under = ["prlimit", f"--stack={soft_limit}:", *strace("-o", trace, "-e", "trace=execve")]
    assert installation.launch("argument", under=under, env=env) == Ended(
        0, f"argument {seen}\n")
    assert trace.read_text().count("execve(") == executions


def test_reports_a_stack_limit_that_cannot_be_raised(installation):
    """A hard limit below what the launcher wants is reported, and the launch goes on."""
    installation.set_helper('echo "$(ulimit -Ss) $TALVORA_OLD_STACK_LIMIT"')
    assert installation.launch(under=["prlimit", "--stack=4194304:10485760"]) == Ended(
        0, "4096 4194304\n", "setrlimit: Invalid argument\n")


@pytest.mark.parametrize("argument, manual_launch, status", [
    ("-h", "yes", 0), ("--help", "yes", 0), ("-?", "yes", 0), ("--zorvmanuallaunch", "no", 1)])
def test_help_of_a_manual_launch_ends_the_launcher(
        installation, argument, manual_launch, status):
    """The launcher prints help instead of starting the helper."""
    ended = installation.launch(argument, env={"ZORV_MANUAL_LAUNCH": manual_launch})
    assert (ended.status, ended.errors) == (status, "")
    assert ended.output.startswith("Usage: zorv-client [OPTION]... [PROGRAM] [ARGUMENTS]...\n")
    assert "started" not in ended.output


def test_loads_no_other_qt(installation, scratch):
    """Neither the working directory nor the library path changes the Qt that is loaded."""
    library = scratch / "cwd/libQt6Core.so.6"
    library.write_text("garbage")
    assert installation.launch(env={"LD_LIBRARY_PATH": "."}) == Ended(0, "started\n")
    library.unlink()


@pytest.mark.parametrize("value, seen", [
    pytest.param(None, "pipe:[]", id="not set"),
    pytest.param("", "/dev/null", id="set"),
])
def test_helper_input_decides_what_the_helper_reads(installation, value, seen):
    """The helper reads from a pipe that the launcher holds, or from the launcher's input."""
    # The launcher closes a descriptor when the helper has started.
    installation.set_helper('readlink "/proc/$PPID/fd"/* | grep -xF "$(readlink "/proc/$$/fd/0")"'
                            ' | uniq | tr -d "0-9"')
    assert installation.launch(env={"ZORV_HELPER_INPUT": value}) == Ended(0, f"{seen}\n")


@pytest.mark.parametrize("value, script, status", [
    pytest.param(None, "exit 3", 0, id="not set"),
    pytest.param("", "exit 3", 3, id="exit status"),
    pytest.param("", "kill -KILL $$", 128 + SIGKILL, id="signal"),
])
def test_helper_status_decides_how_the_launcher_ends(installation, value, script, status):
    """The launcher ends with 0, or as a shell that has run the helper."""
    installation.set_helper(script)
    assert installation.launch(env={"ZORV_HELPER_STATUS": value}) == Ended(status)


def test_closed_output_swallows_what_the_helper_writes(installation):
    """Writing to a standard output that was closed at the start does not fail."""
    installation.set_helper("echo started || echo lost >&2")
    assert installation.launch(under=["sh", "-c", '"$@" >&-', "sh"]) == Ended(0)


@pytest.mark.parametrize("script", [
    pytest.param('mkfifo ../gone; exec 8<>../gone 2>../gone 8<&-; exec "$@"', id="no reader"),
    pytest.param('ulimit -f 0; exec "$@"', id="limit of a file"),
])
def test_message_that_cannot_be_written_does_not_end_the_launcher(installation, script):
    """Neither SIGPIPE nor SIGXFSZ ends the launcher, whose message is lost."""
    (installation.root / "lib").rmdir()
    installation.set_helper("exit 0")
    assert installation.launch(under=["sh", "-c", script, "sh"]) == Ended(0)
