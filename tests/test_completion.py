"""The completion of the options, as the shells do it with the installed files."""

import pytest

from support.tables import options

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


@pytest.fixture(params=["bash", "zsh", "fish"])
def complete(request, build, run, needs, environment, scratch):
    """complete(*words, env={}): what the shell offers for the last word, sorted.

    The folder "here" is the working directory.
    """
    shell = request.param
    here = scratch / "here"
    here.mkdir()
    needs(shell, "--version")
    assert run(build.variable("CMAKE_COMMAND"), "--install", build.folder, "--prefix",
               scratch / "installed").status == 0
    environment |= {
        "SHARE": f"{scratch}/installed/share", "RECORD": f"{scratch}/record",
        # Fish completes only the options of programs that it finds.
        "PATH": f"{scratch}/installed/bin:{environment['PATH']}",
        # No history and no settings in HOME.
        "HISTFILE": "", "ZDOTDIR": str(scratch), "XDG_CONFIG_HOME": f"{scratch}/fish",
        "XDG_DATA_HOME": f"{scratch}/fish", "XDG_CACHE_HOME": f"{scratch}/fish"}
    (scratch / ".bashrc").write_text(BASH + PROGRAMS)
    (scratch / ".zshrc").write_text(ZSH + PROGRAMS)
    command = {"bash": f"bash --noprofile --rcfile {scratch}/.bashrc -i", "zsh": "zsh -d -i"}

    def complete(*words, env=None) -> list[str]:
        line = " ".join(words)
        if shell == "fish":
            offered = run("fish", "--no-config", "-c", FISH, line, env=env,
                          cwd=here).output.splitlines()
        else:
            (scratch / "typed").write_text(f"{line}\033*\n")
            run("sh", "-c", f"script -qec '{command[shell]}' /dev/null <{scratch}/typed", env=env,
                cwd=here)
            offered = (scratch / "record").read_text().splitlines()[len(words) - 2:]
        # Fish also offers what is similar; bash and zsh leave a word alone for which
        # they have nothing.
        return sorted(word.rstrip("/") for word in offered
                      if word.startswith(words[-1]) and word != words[-1])
    return complete


def test_offers_every_option(complete):
    """Every option is offered, and no other."""
    assert complete("zorv-mpirun", "-") == sorted(option.name for option in options())


def test_offers_every_spelling_in_a_manual_launch(complete):
    """The option that makes a launch manual turns the simple spellings on."""
    assert complete("zorv-mpirun", "--zorvmanuallaunch", "-") == sorted(
        ["-h", "--help", "-?", "--"] + [
            name for option in options() for name in (option.name, *option.simple_names)])


@pytest.mark.parametrize("words, env, offered", [
    pytest.param(["--zorvdebug", "--zorvhost", "x", "--zorvp"], {},
                 ["--zorvport", "--zorvprogress"], id="after a switch and a value"),
    pytest.param(["--por"], {"PELK_MANUAL_LAUNCH": "1", "TALVORA_MANUAL_LAUNCH": "0"},
                 ["--port"], id="manual launch by the environment"),
    pytest.param(["--por"], {"ZORV_MANUAL_LAUNCH": "Off", "PELK_MANUAL_LAUNCH": "1"}, [],
                 id="manual launch turned off by the environment"),
    pytest.param(["-host", "x", "--zorvp"], {}, [], id="a simple spelling ends the options"),
])
def test_offers_options_as_the_launcher_reads_them(complete, words, env, offered):
    """Options stand at the front, and simple spellings count in a manual launch."""
    assert complete("zorv-mpirun", *words, env=env) == offered


@pytest.mark.parametrize("words, offered", [
    pytest.param(["--zorvlog", "mat"], ["match", "matches"], id="file"),
    pytest.param(["--zorvport", "mat"], [], id="number"),
    pytest.param(["-np", "mat"], ["match", "matches"], id="argument of the MPI launcher"),
])
def test_offers_files_where_they_are_taken(complete, scratch, words, offered):
    """File names are offered for values that are files, and after the options."""
    (scratch / "here/matches").mkdir()
    (scratch / "here/match").touch()
    assert complete("zorv-mpirun", *words) == offered


@pytest.mark.parametrize("words, offered", [
    pytest.param(["--j"], ["--json"], id="option of the report"),
    pytest.param(["zorv-mpirun", "--zorvpor"], ["--zorvport"], id="option of the launcher"),
])
def test_offers_the_reports_options_before_the_launchers(complete, words, offered):
    """The report's options stand before the launcher's command line."""
    assert complete("zorv-mpirun-info", *words) == offered
