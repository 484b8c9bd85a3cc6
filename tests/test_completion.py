"""The completion of the options, as the shells do it with the installed files."""

import re

import pexpect
import pytest

# In bash and zsh, Alt-* puts all that is offered in the place of the word before it.
BASH = """
. "$SHARE/bash-completion/completions/zorv-mpirun"
. "$SHARE/bash-completion/completions/zorv-mpirun-info"
"""
ZSH = """
fpath=("$SHARE/zsh/site-functions" $fpath)
autoload -Uz compinit && compinit -D -u
_all() { _main_complete; compstate[insert]=all; compstate[list]=; }
zle -C all complete-word _all
bindkey '\\e*' all
"""
# The programs write their arguments down.
PROGRAMS = """
zorv-mpirun() { printf '%s\\n' "$@" >"$RECORD"; exit; }
zorv-mpirun-info() { zorv-mpirun "$@"; }
"""
FISH = """
set -a fish_complete_path "$SHARE"/fish/vendor_completions.d
complete -C "$argv" | string replace -r '\\t.*' ''
"""


@pytest.fixture
def options(source) -> dict[str, list[str]]:
    """The table of options: the spellings of manual-launch mode of each."""
    rows = re.findall(r'^\w+_OPTION\("([^"]+)", "([^"]*)"',
                      (source / "backend/options.def").read_text(), re.MULTILINE)
    return {name: simple_names.split() for name, simple_names in rows}


@pytest.fixture(params=["bash", "zsh", "fish"])
def complete(request, build, run, needs, environment, scratch):
    """complete(*words): what the shell offers for the last word, sorted.

    The working directory has the files "match" and "matches".
    """
    shell = request.param
    here = scratch / "here"
    here.mkdir()
    (here / "match").touch()
    (here / "matches").mkdir()
    needs(shell, "--version")
    assert run(build.variable("CMAKE_COMMAND"), "--install", build.folder, "--prefix",
               scratch / "installed").status == 0
    environment |= {
        "SHARE": f"{scratch}/installed/share", "RECORD": f"{scratch}/record",
        # Fish completes only the options of programs that it finds.
        "PATH": f"{scratch}/installed/bin:{environment['PATH']}",
        # No history and no settings of the user.
        "HOME": str(scratch), "ZDOTDIR": str(scratch), "HISTFILE": "",
        "XDG_CONFIG_HOME": f"{scratch}/fish", "XDG_DATA_HOME": f"{scratch}/fish",
        "XDG_CACHE_HOME": f"{scratch}/fish"}
    (scratch / ".bashrc").write_text(BASH + PROGRAMS)
    (scratch / ".zshrc").write_text(ZSH + PROGRAMS)
    flags = {"bash": ["-i"], "zsh": ["-d", "-i"]}

    def complete(*words) -> list[str]:
        line = " ".join(words)
        if shell == "fish":
            offered = run("fish", "--no-config", "-c", FISH, line, cwd=here).output.splitlines()
        else:
            with pexpect.spawn(shell, flags[shell], env=environment, cwd=here) as terminal:
                terminal.send(f"{line}\033*\n")
                terminal.expect(pexpect.EOF)
            offered = (scratch / "record").read_text().splitlines()[len(words) - 2:]
        # Fish also offers what is similar; bash and zsh leave a word alone for which
        # they have nothing.
        return sorted(word.rstrip("/") for word in offered
                      if word.startswith(words[-1]) and word != words[-1])
    return complete


@pytest.mark.parametrize("words, settings, is_manual", [
    pytest.param([], {}, False, id="usual"),
    pytest.param(["--zorvmanuallaunch"], {}, True, id="manual launch by an option"),
    pytest.param([], {"PELK_MANUAL_LAUNCH": "1", "TALVORA_MANUAL_LAUNCH": "0"}, True,
                 id="manual launch by a setting"),
])
def test_offers_every_option(complete, options, environment, words, settings, is_manual):
    """Every option is offered, and no other; the simple spellings only in a manual launch."""
    environment |= settings
    simple = ["-h", "--help", "-?", "--", *sum(options.values(), [])] if is_manual else []
    assert complete("zorv-mpirun", *words, "-") == sorted([*options, *simple])


@pytest.mark.parametrize("words, offered", [
    pytest.param(["zorv-mpirun", "--zorvdebug", "--zorvhost", "x", "--zorvp"],
                 ["--zorvport", "--zorvprogress"], id="options after a switch and a value"),
    pytest.param(["zorv-mpirun", "-host", "x", "--zorvp"], [],
                 id="no options after a simple spelling, which ends them"),
    pytest.param(["zorv-mpirun", "--zorvlog", "mat"], ["match", "matches"], id="files as a value"),
    pytest.param(["zorv-mpirun", "--zorvport", "mat"], [], id="nothing for a number"),
    pytest.param(["zorv-mpirun", "-np", "mat"], ["match", "matches"],
                 id="files as arguments of the MPI launcher"),
    pytest.param(["zorv-mpirun-info", "--j"], ["--json"], id="option of the report"),
    pytest.param(["zorv-mpirun-info", "zorv-mpirun", "--zorvpor"], ["--zorvport"],
                 id="option of the launcher after those of the report"),
])
def test_offers_what_the_program_takes_there(complete, words, offered):
    """Options stand at the front; files are values of some, and arguments after them."""
    assert complete(*words) == offered
