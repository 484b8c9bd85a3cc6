"""The bash completion, driven as bash drives it."""

import re

import pytest

DRIVER = """
. "$1"
function=$2
shift 2
COMP_WORDS=(program "$@")
COMP_CWORD=$#
"$function"
printf '%s\\n' "${COMPREPLY[@]}"
"""


@pytest.fixture
def offers(run, needs, source):
    """offers(*words, env={}, function=...): what is offered for the last word, sorted."""
    needs("bash", "--version")
    script = source / "packaging/bash-completion/zorv-mpirun"

    def offers(*words, env=None, function="_zorv_mpirun"):
        ended = run("bash", "--norc", "-c", DRIVER, "bash", script, function, *words, env=env)
        assert (ended.status, ended.errors) == (0, "")
        return sorted(ended.output.split())
    return offers


@pytest.fixture
def spellings(source) -> tuple[set[str], set[str]]:
    """The long spellings of the launcher's option tables, and the short ones."""
    tables = "".join((source / name).read_text() for name in (
        "backend/backendoptions.cpp", "zorv-debugger/zorvdebuggeroptions.cpp"))
    rows = re.findall(r'\{"(--zorv[a-z]+)"(?:, "([^"]*)")?', tables)
    return {long for long, _ in rows}, {word for _, short in rows for word in short.split()}


def test_offers_every_option(offers, spellings):
    """Every option of the program is offered, and no other."""
    long, _ = spellings
    assert offers("-") == sorted(long)


def test_offers_every_spelling_in_a_manual_launch(offers, spellings):
    """The option that makes a launch manual turns the short spellings on."""
    long, short = spellings
    assert offers("--zorvmanuallaunch", "-") == sorted(
        long | short | {"-h", "--help", "-?", "--"})


@pytest.mark.parametrize("words, env, offered", [
    pytest.param(["--zorvdebug", "--zorvhost", "x", "--zorvp"], {},
                 ["--zorvport", "--zorvprogress"], id="after a switch and a value"),
    pytest.param(["--por"], {"PELK_MANUAL_LAUNCH": "1"}, ["--port"],
                 id="manual launch by the environment"),
    pytest.param(["-host", "x", "--por"], {"TALVORA_MANUAL_LAUNCH": ""}, ["--port"],
                 id="after a short spelling and its value"),
    pytest.param(["-host", "x", "--zorvp"], {}, [], id="a short spelling ends the options"),
])
def test_offers_options_as_the_launcher_reads_them(offers, words, env, offered):
    """Options stand at the front, and short spellings count in a manual launch."""
    assert offers(*words, env=env) == offered


@pytest.mark.parametrize("words, offered", [
    pytest.param(["--j"], ["--json"], id="option of the report"),
    pytest.param(["--json", "--host", "x", "zorv-mpirun", "--zorvpor"], ["--zorvport"],
                 id="option of the launcher"),
    pytest.param(["zorv-mpirun", "--j"], [], id="launcher's command line has begun"),
])
def test_offers_the_reports_options_before_the_launchers(offers, words, offered):
    """The report's options stand before the launcher's command line."""
    assert offers(*words, function="_zorv_mpirun_info") == offered
