"""The report says of a launch what comes of it, and names what is wrong."""

import os
import re
import tarfile
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field

import pytest

from support.processes import Ended, wait_until

USER = 54321
# The limit of processes counts those of other tests, too: one row has a user of its own.
BUSY_USER = 54331


def as_user(number: int) -> list[str]:
    return ["setpriv", f"--reuid={number}", f"--regid={number}", "--clear-groups"]


AS_USER = as_user(USER)
MEBIBYTE = 1 << 20
HELPER = "bin/zorv-debugger"
WRITE_HELPER = f"cat >{HELPER}; chmod +x {HELPER}"
OWN_SESSIONS = f"chown {USER} sessions"
# Binaries from this one are made wrong.
COPY_TRUE = f"cp /bin/true {HELPER}"
# Adds 4 MB of arguments, under a stack limit that lets them through.
LONG_ARGUMENTS = ["sh", "-c", "ulimit -Ss unlimited; x=$(printf %0100000d 0); "
                  "for i in $(seq 40); do set -- \"$@\" $x; done; exec \"$@\"", "sh"]


@dataclass(frozen=True)
class Setup:
    """What is done to a site, what the report finds then, and whether a launch works.

    `prepare` runs in the installation's root, `mounts` after it in namespaces, in which
    launch and report are then, too. `says` is a part of the causes.
    """

    finds: Sequence[str] = ()
    works: bool = True
    hangs: bool = False
    prepare: str = ":"
    mounts: str = ""
    under: Sequence[str] = ()
    env: Mapping[str, str] = field(default_factory=dict)
    arguments: Sequence[str] = ()
    says: str = ""


def works(name: str, *finds: str, **options):
    """A row of the table."""
    return pytest.param(Setup(finds, **options), id=name)


def broken(name: str, *finds: str, **options):
    """A row with which a launch fails."""
    return works(name, *finds, works=False, **options)


def stack(soft, hard="unlimited") -> list[str]:
    return ["prlimit", f"--stack={soft}:{hard}"]


SETUPS = [
    works("nothing wrong"),
    # The helper.
    works("binary helper", prepare=f'cp "$TESTCHILD_PROGRAM" {HELPER}',
          env={"TESTCHILD": "--append ran/yes"}),
    works("helper through a link", prepare=f"mv {HELPER} real; ln -s ../real {HELPER}"),
    works("interpreter after a blank, with an argument",
          prepare=f"printf '#! /bin/sh -e\\n: >ran/yes\\n' | {{ {WRITE_HELPER}; }}"),
    broken("missing helper", "helper-missing", prepare=f"rm {HELPER}", says="does not exist"),
    broken("link to the launcher", "helper-is-launcher", hangs=True,
           prepare=f"ln -sf zorv-mpirun {HELPER}"),
    broken("dead link", "helper-missing", prepare=f"ln -sf nowhere {HELPER}",
           says="is a link that leads nowhere"),
    broken("directory", "helper-no-file", prepare=f"rm {HELPER}; mkdir {HELPER}"),
    broken("FIFO", "helper-no-file", prepare=f"rm {HELPER}; mkfifo {HELPER}; chmod +x {HELPER}"),
    broken("helper that may not be executed", "helper-not-executable",
           prepare=f"chmod 644 {HELPER}"),
    broken("empty helper", "helper-empty", prepare=f": >{HELPER}"),
    broken("text without #!", "helper-no-program", prepare=f"echo : >{HELPER}"),
    broken("binary for another processor", "helper-foreign",
           prepare=f"{COPY_TRUE}; printf '\\026\\000' | dd of={HELPER} bs=1 seek=18 conv=notrunc"),
    # An object file, no program headers, and a library.
    *[broken(f"binary with {count} zero bytes at {offset}", "helper-no-program",
             prepare=f"{COPY_TRUE}; head -c {count} /dev/zero | "
                     f"dd of={HELPER} bs=1 seek={offset} conv=notrunc",
             says="a binary file, but not a program")
      for count, offset in ((2, 16), (2, 54), (2, 56), (8, 24))],
    broken("half a binary", "helper-truncated", prepare=f"head -c 8000 /bin/true >{HELPER}",
           says="cut off"),
    broken("missing interpreter", "helper-interpreter",
           prepare=f"echo '#!/nowhere/sh' >{HELPER}", says="/nowhere does not exist"),
    *[works(f"interpreter by {line}", prepare=f"printf '#!/usr/bin/{line}\\n: >ran/yes\\n' "
                                              f"| {{ {WRITE_HELPER}; }}")
      for line in ("env sh", "env -vS A=b sh", "env\t/bin/sh", "env -S -u A \"sh\"")],
    *[broken(f"interpreter by {line}", "helper-interpreter", says=cause,
             prepare=f"printf '#!/usr/bin/{line}\\n: >ran/yes\\n' | {{ {WRITE_HELPER}; }}")
      for line, cause in (("env sh -e", "'sh -e' is not on PATH; env needs -S to split it"),
                          ("env -S nosuchsh -e", "nosuchsh is not on PATH"))],
    # They start themselves again and again.
    *[broken(f"only {line} as an interpreter", "helper-interpreter", hangs=True,
             prepare=f"printf '#!/usr/bin/{line}\\n: >ran/yes\\n' | {{ {WRITE_HELPER}; }}",
             says="its first line names no interpreter after env")
      for line in ("env", "env A=b", "env -S A=b")],
    broken("carriage return after the interpreter", "helper-carriage-return",
           prepare=f"sed -i 's/$/\\r/' {HELPER}"),
    broken("missing loader", "helper-loader",
           prepare=f"LC_ALL=C sed 's,/ld-,/xx-,' /bin/true >{HELPER}", says="/xx-"),
    broken("missing library", "helper-library",
           prepare=f"LC_ALL=C sed 's,libc.so.6,libc.so.9,' /bin/true >{HELPER}",
           says="libc.so.9"),
    broken("noexec", "helper-noexec", prepare="mkdir mounted",
           mounts=f"mount -t tmpfs -o noexec none mounted; cp {HELPER} mounted; "
                  f"ln -sf ../mounted/zorv-debugger {HELPER}"),
    broken("closed directory", "helper-unreachable", under=AS_USER,
           prepare=f"{OWN_SESSIONS}; mkdir closed; mv {HELPER} closed/helper; "
                   f"ln -s ../closed/helper {HELPER}; chmod 700 closed",
           says="is a link to a path that you may not search"),
    # Limits.
    broken("4 open files", "descriptors-exhausted", "not-looked-at",
           under=["prlimit", "--nofile=4"]),
    broken("10 open files", "descriptors-exhausted", under=["prlimit", "--nofile=10"]),
    *[works(f"{count} open files", "few-descriptors", under=["prlimit", f"--nofile={count}"])
      for count in (11, 32)],
    broken("one process", "processes-exhausted", "not-looked-at",
           under=[*AS_USER, "prlimit", "--nproc=1"], prepare=OWN_SESSIONS),
    works("few processes", under=[*as_user(BUSY_USER), "prlimit", "--nproc=4"],
          prepare=f"chown {BUSY_USER} sessions"),
    works("120 MiB of addresses", under=["prlimit", f"--as={120 * MEBIBYTE}"]),
    works("long arguments", under=LONG_ARGUMENTS),
    broken("arguments longer than the helper's stack limit allows",
           "arguments-too-long", "old-stack-limit-set", under=LONG_ARGUMENTS,
           env={"TALVORA_OLD_STACK_LIMIT": str(8 * MEBIBYTE)}),
    *[works(f"stack limit of {soft}", under=stack(soft)) for soft in (65536, "unlimited")],
    works("hard stack limit of 1 MiB", "stack-limit-hard",
          under=stack(MEBIBYTE, MEBIBYTE)),
    *[broken(f"old stack limit of {limit}", "old-stack-limit-set", "stack-too-small",
             env={"TALVORA_OLD_STACK_LIMIT": limit}) for limit in ("0", "4096")],
    *[works(f"old stack limit of {limit}", "old-stack-limit-set",
            env={"TALVORA_OLD_STACK_LIMIT": limit}) for limit in ("1048576", "8388608", "x", "")],
    # The session.
    broken("hold file left", "hold-file-left", hangs=True, prepare=": >sessions/restart-hold",
           says="sessions/restart-hold"),
    broken("restart file left", "restart-file-left", hangs=True, prepare=": >sessions/restart"),
    works("restart file that is a dangling link", prepare="ln -s nowhere sessions/restart"),
    works("hold file without a session", "session-invalid", "session-file-unusable",
          prepare="rm sessions/*; : >sessions/restart-hold"),
    works("restart file that cannot be answered", "restart-file-stuck",
          "session-directory-unusable", under=AS_USER,
          prepare="chmod 644 sessions/*; : >sessions/restart; chmod 755 sessions"),
    works("another user's marker", "marker-foreign", "others-can-write",
          prepare=f": >sessions/restart-supported; chown {USER + 1} sessions/restart-supported; "
                  "chmod 777 sessions", under=AS_USER),
    *[works(f"{what} in the marker's place", "marker-foreign",
            prepare=f"{make} sessions/restart-supported")
      for what, make in (("directory", "mkdir"), ("FIFO", "mkfifo"))],
    works("missing session directory", "session-directory-unusable",
          prepare="rm -r sessions", env={"ZORV_HOST": "127.0.0.1", "ZORV_PORT": "4244"}),
    works("unknown port", "port-unknown", prepare="rm sessions/*", env={"ZORV_HOST": "127.0.0.1"}),
    works("no home", "home-unset", "session-directory-unusable", "session-invalid",
          "session-file-unusable", env={"ZORV_SESSION_PATH": "", "HOME": None}),
    works("large port", "session-invalid", says="70000 is not a port (session file)",
          prepare="echo '<session host=\"a\" port=\"70000\"/>' >sessions/latest"),
    works("dead link as a session file", "session-file-unusable", "session-invalid",
          prepare="rm sessions/127.0.0.1-3", says="(dead link), a link to "),
    works("session file that is no XML", "session-file-unusable", "session-invalid",
          prepare="echo '<session cookie=c00kie>' >sessions/latest", says="(not well-formed)"),
    works("port of another session", "port-of-another-session",
          arguments=["--zorvport", "4250"], says="session 3 (session file) listens at 4244"),
    # File systems.
    works("no inodes left", "directory-full", "session-invalid", "session-file-unusable",
          mounts="mount -t tmpfs -o nr_inodes=1 none sessions", says="No space left on device"),
    works("full disk", "directory-full", "session-invalid", "session-file-unusable",
          mounts="mount -t tmpfs -o size=4k none sessions; "
                 "! printf %8192s x 2>&- >sessions/data"),
    works("read-only session directory", "session-directory-unusable",
          mounts="mount --bind sessions sessions; mount -o remount,bind,ro sessions"),
    works("directory that everybody can write to", "others-can-write",
          prepare="chmod 777 sessions"),
    works("missing directory of the installation", "directory-missing", prepare="rmdir libexec",
          says="/libexec"),
    works("missing log directory", "log-directory-missing", env={"ZORV_LOGS": "nowhere"},
          says="nowhere does not exist"),
    works("log in a missing directory", "log-unwritable",
          env={"ZORV_MPIRUN_LOG": "nowhere/log"}),
    # Slips of the pen.
    broken("no number", "command-line-rejected", arguments=["--zorvport", "42x"],
           says="invalid --zorvport argument '42x'"),
    broken("usage", "usage-asked", arguments=["--zorvmanuallaunch"]),
    works("joined option", "option-joined", arguments=["--zorvport=4242", "-np", "2"],
          says="'--zorvport=...' ended the options; write '--zorvport VALUE'"),
    works("misspelt option", "option-misspelt", arguments=["--zorvhots", "b"],
          says="'--zorvhots' ended the options; did you mean '--zorvhost'?"),
    works("long dash", "option-misspelt", arguments=["\u2013zorvport", "4242"],
          says="did you mean '--zorvport'?"),
    works("late option", "option-after-others",
          arguments=["-np", "2", "--zorvhost", "b", "a.out"],
          says="'-np' ended the options; these follow it: --zorvhost"),
    works("options of others", arguments=["--mca", "btl", "self", "-x", "ZORV", "./zorv-test"]),
    works("misspelt setting", "setting-misspelt", env={"ZORV_SESION_PATH": "x"},
          says="nothing reads ZORV_SESION_PATH; did you mean ZORV_SESSION_PATH?"),
    works("setting in small letters", "setting-misspelt", env={"zorv_host": "x"},
          says="did you mean ZORV_HOST?"),
    *[works(f"misspelt prefix of {name}", "setting-misspelt", env={name: "4250"},
            says=f"nothing reads {name}; did you mean {meant}?")
      for name, meant in (("ZROV_PORT", "ZORV_PORT"), ("ZOVR_HOTS", "ZORV_HOST"),
                          ("TALVRA_PORT", "TALVORA_PORT"), ("ZORVPORT", "ZORV_PORT"))],
    works("setting of another program", env={"ZORV_LICENCE_SERVER": "x"}),
    works("setting with two values", "settings-conflict",
          env={"ZORV_LOCALHOST": "127.0.0.1", "PELK_LOCALHOST": "127.0.0.2"},
          says="PELK_LOCALHOST is not used because ZORV_LOCALHOST has another value"),
    works("setting that is no number", "setting-not-a-number", env={"PELK_SESSION": "3x"}),
    works("setting without effect", "setting-overridden", env={"TALVORA_PORT": "4250"},
          says="comes from the session file"),
    # What surrounds the launch.
    works("task of a step", "many-launchers",
          env={"SLURM_JOB_ID": "7", "SLURM_STEP_ID": "0", "SLURM_STEP_NUM_TASKS": "4"}),
    works("blocked signals", "signals-blocked", under=["env", "--block-signal=TERM"]),
    works("one processor", "single-processor", under=["taskset", "--cpu-list", "0"]),
    works("no interface", "no-interface", env={"ZORV_NETWORK_INTERFACES": "none0"}),
    works("two MPI libraries", "mixed-mpi",
          prepare="for row in 'mpirun Open MPI 4' 'mpiexec HYDRA 4'; do set -- $row; "
                  'printf "#!/bin/sh\\necho $row\\n" >$1; chmod +x $1; done',
          under=["sh", "-c", 'PATH=$PWD:$PATH exec "$@"', "sh"]),
    works("library from elsewhere", "foreign-library",
          prepare="cp $(ldd bin/zorv-mpirun | sed -nE 's/.*libstdc.* => ([^ ]*) .*/\\1/p') .",
          under=["sh", "-c", 'LD_PRELOAD=$PWD/libstdc++.so.6 exec "$@"', "sh"]),
]


@pytest.mark.parametrize("given", SETUPS)
def test_says_what_comes_of_a_launch(site, build, request, given):
    """The report is bad if, and only if, the launch fails, and has the right findings."""
    under = list(given.under)
    if under[:1] == ["setpriv"]:
        request.getfixturevalue("another_user")
    words = " ".join(under)
    if "LD_PRELOAD" in words and build.variable("ZORV_PORTABLE") == "ON":
        pytest.skip("the portable programs load nothing")
    limited = re.search("LD_PRELOAD|--(nofile|nproc|as)=", words)
    if limited and build.variable("ZORV_SANITIZE") == "ON":
        pytest.skip("the sanitizers come first, and need resources of their own")
    if under[:1] == ["taskset"] and len(os.sched_getaffinity(0)) < 2:
        pytest.skip("there is one processor")
    site.prepare(given.prepare)
    if given.mounts:
        namespace = request.getfixturevalue("namespace")
        namespace.run(f"cd {site.root}; {given.mounts}")
        under = [*namespace.under, *under]
    report = site.report(*given.arguments, under=under, env=given.env)
    worked = site.launch_works(*given.arguments, hangs=given.hangs, under=under, env=given.env)
    assert {"launch works": worked, "findings": report.codes(given.finds),
            "status": report.status} == {"launch works": given.works, "findings": set(given.finds),
                                         "status": 0 if given.works else 1}
    assert given.says in report.causes()


def test_does_not_judge_a_helper_that_it_cannot_read(site, another_user):
    """Status 2: it is not known whether a launch would fail, as only a script must be readable."""
    site.prepare(f"{OWN_SESSIONS}; chmod 711 {HELPER}")
    report = site.report(under=AS_USER)
    assert (report.status, "helper-unreadable" in report.codes()) == (2, True)


@pytest.fixture
def silent(site, namespace, start):
    """A directory whose file server gives no answer, in the namespaces."""
    folder = site.root / "silent"
    folder.mkdir()
    server = start(*namespace.under, "/usr/bin/python3",
                   os.path.join(os.path.dirname(__file__), "support/silentserver.py"), folder)
    wait_until(lambda: "ready" in server._output.read_text()
               or server._process.poll() is not None, "the file system")
    if server._process.poll() is not None:
        pytest.skip(f"no file systems of users here: {server.wait().errors}")
    yield folder
    server._process.terminate()
    server.wait()


@pytest.mark.parametrize("env, code, works", [
    pytest.param({"HOME": "{silent}", "ZORV_SESSION_PATH": ""}, "launch-would-hang", False,
                 id="home with the session"),
    pytest.param({"HOME": "{silent}"}, "no-answer", True, id="home without"),
    pytest.param({"ZORV_SESSION_PATH": "{silent}/s"}, "launch-would-hang", False,
                 id="session directory"),
    pytest.param({"ZORV_SESSION_FILE": "{silent}/s/f"}, "launch-would-hang", False,
                 id="session file"),
    pytest.param({"ZORV_LOGS": "{silent}"}, "launch-would-hang", False, id="log directory"),
    pytest.param({"PATH": "{silent}/bin:/usr/bin:/bin"}, "no-answer", True, id="entry of PATH"),
])
def test_names_a_file_server_that_gives_no_answer(site, silent, namespace, env, code, works):
    """The whole report comes within 10 seconds, and says which directory it is."""
    env = {name: value.format(silent=silent) for name, value in env.items()}
    started = os.times().elapsed
    # The word after the options is looked for on PATH.
    report = site.report("job", under=namespace.under, env=env)
    assert os.times().elapsed - started < 10
    assert code in report.codes()
    assert report.status == (0 if works else 1)
    assert str(silent) in report.causes()
    assert site.launch_works(under=namespace.under, env=env, hangs=not works) == works


def test_reports_all_that_it_can_when_nothing_answers(site, silent, namespace):
    """The report and the archive come within 10 seconds, with what is larger than a pipe."""
    log = site.installation.log_name(site.root / "log")
    log.write_text("x" * 100000)
    env = {"HOME": str(silent), "PATH": f"{silent}/bin:/usr/bin:/bin",
           "ZORV_SESSION_PATH": str(silent), "ZORV_SESSION_FILE": f"{silent}/s/f",
           "ZORV_MPIRUN_LOG": str(site.root / "log"), "ZORV_TARBALL": "t" * 100000}
    archive = site.root / "ticket.tar"
    started = os.times().elapsed
    report = site.report("--bundle", archive, "job", under=namespace.under, env=env)
    assert os.times().elapsed - started < 10
    assert report.json["settings"]["TARBALL"]["value"] == "t" * 100000
    with tarfile.open(archive) as bundle:
        texts = [bundle.extractfile(f"zorv-mpirun-info/{name}.txt").read().decode()
                 for name in ("session", "log")]
    assert texts == ["It cannot be read.\n", "x" * 65536]


def test_names_a_name_server_that_gives_no_answer(site, namespace):
    """The whole report comes within 10 seconds; the launch looks nothing up."""
    namespace.use_silent_name_server()
    site.write_session("host='alpha' port='4244' session='3'")
    started = os.times().elapsed
    report = site.report(under=namespace.under)
    assert os.times().elapsed - started < 10
    assert (report.status, report.codes(["name-server-silent"])) == (0, {"name-server-silent"})
    assert "alpha" in report.causes()
    assert site.launch_works(under=namespace.under, hangs=False)


def test_starts_no_launch_to_ask_for_a_version(site):
    """What leads to the launcher on PATH is not asked: it would start the helper."""
    site.prepare("ln -s zorv-mpirun bin/mpirun; chmod +x bin/*; printf "
                 "'#!/bin/sh\\nexec zorv-mpirun \"$@\"\\n' >bin/mpiexec; chmod +x bin/mpiexec")
    report = site.report(env={"PATH": f"{site.root}/bin:/usr/bin:/bin"})
    launchers = {row["path"]: row["kind"] for row in report.json["mpi"]["launchers"]}
    assert launchers[f"{site.root}/bin/mpirun"] == "zorv-mpirun"
    assert launchers[f"{site.root}/bin/mpiexec"] == "zorv-mpirun"
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
    report = site.report("/opt/bin/zorv-mpirun", "--zorvsession", "3", "--help", "--json")
    assert report.json["commandLine"]["argumentsOfMpiLauncher"] == 2


def test_rejects_an_option_without_its_value(site):
    """A mistake in the report's own options gives status 2."""
    assert site.start(site.program, "--host").wait() == Ended(
        2, "", "option '--host' requires an argument\n")
