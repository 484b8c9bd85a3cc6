"""The report says of a launch what comes of it, and names what is wrong."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

from support.processes import Ended
from support.report import unpacked

USER = 54321
AS_USER = ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups"]
OWN_SESSIONS = f"chown {USER} sessions"
HELPER = "bin/zorv-debugger"
# Adds 4 MB of arguments, under a stack limit that lets them through.
LONG_ARGUMENTS = ["sh", "-c", 'ulimit -Ss unlimited; exec "$@" $(seq 300000)', "sh"]


def row(name: str, *finds: str, prepare=":", mounts="", under=(), env=None, arguments=(), says=""):
    """A row of the table: what is done to a site, and the codes of what the report finds then.

    `prepare` runs in the installation's root, `mounts` after it in namespaces, in which
    launch and report are then, too. `says` is a part of the causes.
    """
    return pytest.param(finds, prepare, mounts, under, env or {}, arguments, says, id=name)


def first_line(line: str) -> str:
    """The command that changes the first line of the helper, which is a script."""
    return f"sed -i '1s,.*,{line},' {HELPER}"


SETUPS = [
    row("nothing wrong"),
    # The helper.
    row("binary helper", prepare=f'cp "$TESTCHILD_PROGRAM" {HELPER}',
        env={"TESTCHILD": "--append ran/yes"}),
    row("helper through a link", prepare=f"mv {HELPER} real; ln -s ../real {HELPER}"),
    row("missing helper", "helper-missing", prepare=f"rm {HELPER}", says="does not exist"),
    row("link to the launcher", "helper-is-launcher", prepare=f"ln -sf zorv-mpirun {HELPER}"),
    row("FIFO", "helper-no-file", prepare=f"rm {HELPER}; mkfifo {HELPER}; chmod +x {HELPER}"),
    row("helper that may not be executed", "helper-not-executable",
        prepare=f"chmod 644 {HELPER}"),
    row("empty helper", "helper-empty", prepare=f": >{HELPER}"),
    row("text without #!", "helper-no-program", prepare=f"echo : >{HELPER}"),
    row("binary for another processor", "helper-foreign",
        prepare=f"cp /bin/true {HELPER}; "
                f"printf '\\026\\000' | dd of={HELPER} bs=1 seek=18 conv=notrunc"),
    row("object file", "helper-no-program", says="a binary file, but not a program",
        prepare=f"cp /bin/true {HELPER}; "
                f"head -c 2 /dev/zero | dd of={HELPER} bs=1 seek=16 conv=notrunc"),
    row("half a binary", "helper-truncated", prepare=f"head -c 8000 /bin/true >{HELPER}"),
    row("missing loader", "helper-loader",
        prepare=f"LC_ALL=C sed 's,/ld-,/xx-,' /bin/true >{HELPER}", says="/xx-"),
    row("missing library", "helper-library",
        prepare=f"LC_ALL=C sed 's,libc.so.6,libc.so.9,' /bin/true >{HELPER}", says="libc.so.9"),
    row("interpreter by env", prepare=first_line("#!/usr/bin/env -S A=b sh -e")),
    row("interpreter by env, with an argument", "helper-interpreter",
        prepare=first_line("#!/usr/bin/env sh -e"),
        says="'sh -e' is not on PATH; env needs -S to split it"),
    row("missing interpreter", "helper-interpreter", prepare=first_line("#!/nowhere/sh")),
    row("carriage return after the interpreter", "helper-carriage-return",
        prepare=first_line("#!/bin/sh\\r")),
    row("noexec", "helper-noexec", prepare="mkdir mounted",
        mounts=f"mount -t tmpfs -o noexec none mounted; cp {HELPER} mounted; "
               f"ln -sf ../mounted/zorv-debugger {HELPER}"),
    row("closed directory", "helper-unreachable", under=AS_USER,
        prepare=f"{OWN_SESSIONS}; mkdir closed; mv {HELPER} closed/helper; "
                f"ln -s ../closed/helper {HELPER}; chmod 700 closed"),
    # Limits.
    row("4 open files", "descriptors-exhausted", "not-looked-at",
        under=["prlimit", "--nofile=4"]),
    row("10 open files", "descriptors-exhausted", under=["prlimit", "--nofile=10"]),
    row("11 open files", "few-descriptors", under=["prlimit", "--nofile=11"]),
    row("one process", "processes-exhausted", "not-looked-at",
        under=[*AS_USER, "prlimit", "--nproc=1"], prepare=OWN_SESSIONS),
    row("long arguments", under=LONG_ARGUMENTS),
    row("arguments too long for the helper's stack limit", "arguments-too-long",
        "old-stack-limit-set", under=LONG_ARGUMENTS, env={"TALVORA_OLD_STACK_LIMIT": "8388608"}),
    row("small old stack limit", "old-stack-limit-set", "stack-too-small",
        env={"TALVORA_OLD_STACK_LIMIT": "4096"}),
    row("hard stack limit of 1 MiB", "stack-limit-hard",
        under=["prlimit", "--stack=1048576:1048576"]),
    # The session.
    row("hold file left", "hold-file-left", prepare=": >sessions/restart-hold"),
    row("restart file left", "restart-file-left", prepare=": >sessions/restart"),
    row("hold file without a session", "session-invalid", "session-file-unusable",
        prepare="rm sessions/*; : >sessions/restart-hold"),
    row("restart file that cannot be answered", "restart-file-stuck",
        "session-directory-unusable", under=AS_USER,
        prepare="chmod 644 sessions/*; : >sessions/restart; chmod 755 sessions"),
    row("another user's marker", "marker-foreign", under=AS_USER,
        prepare=f"{OWN_SESSIONS}; : >sessions/restart-supported; "
                f"chown {USER + 1} sessions/restart-supported"),
    row("missing session directory", "session-directory-unusable",
        prepare="rm -r sessions",
        env={"ZORV_HOST": "127.0.0.1", "ZORV_PORT": "4244", "ZORV_SESSION_FILE": None}),
    row("unknown port", "port-unknown", prepare="rm sessions/*",
        env={"ZORV_HOST": "127.0.0.1", "ZORV_SESSION_FILE": None}),
    row("no home", "home-unset", "session-directory-unusable", "session-invalid",
        "session-file-unusable", says="no source names a front end host",
        env={"ZORV_SESSION_PATH": "", "ZORV_SESSION_FILE": None, "HOME": None}),
    row("large port", "session-invalid", says="70000 is not a port (session file)",
        prepare="echo '<session host=\"a\" port=\"70000\"/>' >sessions/latest"),
    row("session file that is no XML", "session-file-unusable", "session-invalid",
        prepare="echo '<session cookie=c00kie>' >sessions/latest", says="(not well-formed)"),
    row("port of another session", "port-of-another-session",
        arguments=["--zorvport", "4250"], says="session 3 (session file) listens at 4244"),
    # File systems.
    row("full disk", "directory-full", "session-invalid", "session-file-unusable",
        mounts="mount -t tmpfs -o size=4k none sessions; "
               "! printf %8192s x 2>&- >sessions/data", says="No space left on device"),
    row("directory that everybody can write to, with an own marker", "others-can-write",
        under=AS_USER, prepare="chmod 777 sessions; : >sessions/restart-supported; "
                               f"chown {USER} sessions/restart-supported"),
    row("missing directory of the installation", "directory-missing", prepare="rmdir libexec"),
    row("missing log directory", "log-directory-missing", env={"ZORV_LOGS": "nowhere"}),
    row("log in a missing directory", "log-unwritable", env={"ZORV_MPIRUN_LOG": "nowhere/log"}),
    # Slips of the pen.
    row("no number", "command-line-rejected", arguments=["--zorvport", "42x"]),
    row("usage", "usage-asked", arguments=["--zorvmanuallaunch"]),
    row("joined option", "option-joined", arguments=["--zorvport=4242", "-np", "2"],
        says="'--zorvport=...' ended the options; write '--zorvport VALUE'"),
    row("misspelt option", "option-misspelt", arguments=["--zorvhots", "b"],
        says="'--zorvhots' ended the options; did you mean '--zorvhost'?"),
    row("long dash", "option-misspelt", arguments=["\u2013zorvport", "4242"]),
    row("late option", "option-after-others", arguments=["-np", "2", "--zorvhost", "b", "a.out"],
        says="'-np' ended the options; these follow it: --zorvhost"),
    row("options of others", arguments=["--mca", "btl", "self", "-x", "ZORV", "./zorv-test"]),
    row("misspelt setting", "setting-misspelt", env={"ZORV_SESION_PATH": "x"},
        says="nothing reads ZORV_SESION_PATH; did you mean ZORV_SESSION_PATH?"),
    row("misspelt prefix of a setting", "setting-misspelt", env={"ZROV_PORT": "4250"}),
    row("setting of another program", env={"ZORV_LICENCE_SERVER": "x"}),
    row("setting with two values", "settings-conflict",
        env={"ZORV_LOCALHOST": "127.0.0.1", "PELK_LOCALHOST": "127.0.0.2"},
        says="PELK_LOCALHOST is not used because ZORV_LOCALHOST has another value"),
    row("setting that is no number", "setting-not-a-number", env={"PELK_SESSION": "3x"}),
    row("setting without effect", "setting-overridden", env={"TALVORA_PORT": "4250"}),
    # What surrounds the launch.
    row("task of a step", "many-launchers",
        env={"SLURM_JOB_ID": "7", "SLURM_STEP_ID": "0", "SLURM_STEP_NUM_TASKS": "4"}),
    row("blocked signals", "signals-blocked", under=["env", "--block-signal=TERM"]),
    row("one processor", "single-processor", under=["taskset", "--cpu-list", "0"]),
    row("no interface", "no-interface", env={"ZORV_NETWORK_INTERFACES": "none0"}),
    row("two MPI libraries", "mixed-mpi", env={"PATH": ".:/usr/bin:/bin"},
        prepare="printf '#!/bin/sh\\necho Open MPI 4\\n' >mpirun; "
                "printf '#!/bin/sh\\necho HYDRA 4\\n' >mpiexec; chmod +x mpirun mpiexec"),
    row("library from elsewhere", "foreign-library", env={"LD_PRELOAD": "./libstdc++.so.6"},
        prepare="cp $(ldd bin/zorv-mpirun | sed -nE 's/.*libstdc.* => ([^ ]*) .*/\\1/p') ."),
]


@pytest.mark.parametrize("finds, prepare, mounts, under, env, arguments, says", SETUPS)
def test_says_what_comes_of_a_launch(
        site, build, request, finds, prepare, mounts, under, env, arguments, says):
    """The report is bad if, and only if, the launch fails, and has the right findings."""
    if "setpriv" in under:
        request.getfixturevalue("another_user")
    if "LD_PRELOAD" in env and build.variable("ZORV_PORTABLE") == "ON":
        pytest.skip("the portable programs load nothing")
    is_limited = "prlimit" in under or "LD_PRELOAD" in env
    if is_limited and build.variable("ZORV_SANITIZE") == "ON":
        pytest.skip("the sanitizers come first, and need resources of their own")
    if "taskset" in under and len(os.sched_getaffinity(0)) < 2:
        pytest.skip("there is one processor")
    site.prepare(prepare)
    if mounts:
        namespace = request.getfixturevalue("namespace")
        namespace.run(f"cd {site.root}; {mounts}")
        under = [*namespace.under, *under]
    report = site.report_before_launch(*arguments, under=under, env=env)
    assert report.codes(finds) == set(finds)
    assert says in report.causes()


def test_does_not_judge_a_helper_that_it_cannot_read(site, another_user):
    """Status 2: it is not known whether a launch would fail, as only a script must be readable."""
    site.prepare(f"{OWN_SESSIONS}; chmod 711 {HELPER}")
    report = site.report(under=AS_USER)
    assert (report.status, "helper-unreadable" in report.codes()) == (2, True)


@pytest.fixture
def silent(site, namespace):
    """A directory whose file server gives no answer, in the namespaces."""
    folder = site.root / "silent"
    folder.mkdir()
    program = Path(__file__).with_name("support") / "silentserver.py"
    with subprocess.Popen([*namespace.under, sys.executable, program, folder],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as server:
        answer = server.stdout.readline()
        if answer != "ready\n":
            pytest.skip(f"no file systems of users here: {answer}{server.stdout.read()}")
        yield folder
        server.terminate()


@pytest.mark.parametrize("env, code", [
    pytest.param({"HOME": "{silent}", "ZORV_SESSION_PATH": "", "ZORV_SESSION_FILE": ""},
                 "launch-would-hang", id="home with the session"),
    pytest.param({"ZORV_SESSION_FILE": "{silent}/s/f"}, "launch-would-hang", id="session file"),
    pytest.param({"ZORV_LOGS": "{silent}"}, "launch-would-hang", id="log directory"),
    pytest.param({"PATH": "{silent}/bin:/usr/bin:/bin"}, "no-answer", id="entry of PATH"),
])
def test_names_a_file_server_that_gives_no_answer(site, silent, namespace, env, code):
    """The report says which directory it is, and is bad if, and only if, a launch hangs."""
    env = {name: value.format(silent=silent) for name, value in env.items()}
    # The word after the options is looked for on PATH.
    report = site.report_before_launch("job", under=namespace.under, env=env)
    assert code in report.codes()
    assert str(silent) in report.causes()


def test_reports_all_that_it_can_when_nothing_answers(site, silent, namespace):
    """Report and archive have what answers, also what is larger than a pipe."""
    site.installation.log_name(site.root / "log").write_text("x" * 100000)
    env = {"HOME": str(silent), "PATH": f"{silent}/bin:/usr/bin:/bin",
           "ZORV_SESSION_PATH": str(silent), "ZORV_SESSION_FILE": f"{silent}/s/f",
           "ZORV_MPIRUN_LOG": str(site.root / "log"), "ZORV_TARBALL": "t" * 100000}
    archive = site.root / "ticket.tar"
    report = site.report("--bundle", archive, "job", under=namespace.under, env=env)
    assert report.json["settings"]["TARBALL"]["value"] == "t" * 100000
    files = unpacked(archive)
    assert (files["session.txt"], files["log.txt"]) == ("It cannot be read.\n", "x" * 65536)


def test_names_a_name_server_that_gives_no_answer(site, namespace):
    """The report says which name it is; the launch looks nothing up."""
    namespace.use_silent_name_server()
    site.write_session("host='alpha' port='4244' session='3'")
    report = site.report_before_launch(under=namespace.under)
    assert (report.status, report.codes(["name-server-silent"])) == (0, {"name-server-silent"})
    assert "alpha" in report.causes()


@pytest.mark.parametrize("make_mpirun", [
    pytest.param("ln -s zorv-mpirun bin/mpirun", id="link"),
    pytest.param("printf '#!/bin/sh\\nexec zorv-mpirun \"$@\"\\n' >bin/mpirun", id="script"),
])
def test_starts_no_launch_to_ask_for_a_version(site, make_mpirun):
    """What leads to the launcher on PATH is not asked: it would start the helper."""
    site.prepare(f"{make_mpirun}; "
                 "printf '#!/bin/sh\\necho HYDRA 4\\n' >bin/mpiexec; chmod +x bin/*; "
                 "mkdir hidden; cp bin/mpiexec hidden/mpirun")
    report = site.report(env={"PATH": f"{site.root}/bin:{site.root}/hidden"})
    assert {row["path"]: row["kind"] for row in report.json["mpi"]["launchers"]} == {
        f"{site.root}/bin/mpirun": "zorv-mpirun", f"{site.root}/bin/mpiexec": "MPICH"}
    # It is no MPI library beside the other one.
    assert "mixed-mpi" not in report.codes(["mixed-mpi"])
    assert not site.ran.exists()


def test_leaves_nothing_behind(site):
    """The files that the report makes to look at directories are gone."""
    before = sorted(path for path in site.root.rglob("*"))
    site.report()
    assert sorted(path for path in site.root.rglob("*")) == before


def test_says_that_the_command_line_asks_for_help(site):
    """The launcher prints its help and starts nothing."""
    report = site.report("-h", env={"ZORV_MANUAL_LAUNCH": "yes"})
    assert (report.status, report.codes()) == (0, {"help-asked"})


def test_takes_the_command_line_after_a_name_of_the_launcher(site):
    """The launcher may have another name; options after it are its own."""
    site.prepare("ln -s zorv-mpirun bin/mpirun")
    report = site.report("bin/mpirun", "--zorvport", "x")
    assert not report.json["commandLine"]["accepted"]
    report = site.report("/opt/bin/zorv-mpirun", "--zorvsession", "3", "--codes", "--json")
    assert report.json["commandLine"]["argumentsOfMpiLauncher"] == 2


def test_rejects_an_option_without_its_value(site):
    """A mistake in the report's own options gives status 2."""
    assert site.start(site.program, "--host").wait() == Ended(
        2, "", "option '--host' requires an argument\n")
