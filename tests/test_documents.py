"""The documents: well-formed, and about what the programs have, all of it."""

import re
from collections.abc import Iterator
from pathlib import Path

import pytest

from support.processes import Ended


@pytest.fixture
def read(source):
    """read(name): the text of a file of the source directory."""
    return lambda name: (source / name).read_text()


@pytest.fixture
def settings(source) -> list[str]:
    """The settings that the programs look up, sorted."""
    calls = re.compile(
        r'(?:env(?:String|Path|Flag|IsSet)|uncachedValue|logFileName)\(\s*"([A-Z0-9_]+)"')
    return sorted({name for file in program_sources(source)
                   for name in calls.findall(file.read_text())})


def program_sources(source: Path) -> Iterator[Path]:
    """The sources of the programs, without those that only pass names of settings on."""
    for file in source.rglob("*.cpp"):
        path = file.relative_to(source)
        if path.parts[0] not in ("build", "tests") and path.parts[:2] != ("common", "env"):
            yield file


@pytest.mark.parametrize("document, row", [
    pytest.param("docs/settings.md",
                 r"^\| [A-Z0-9_]+ \| `ZORV_([A-Z0-9_]+)`, `PELK_\1`, `TALVORA_\1` \|",
                 id="settings.md"),
    pytest.param("docs/zorv-mpirun.1", r'^\.BR ZORV_([A-Z0-9_]+) ", " PELK_\1 ", " TALVORA_\1 "',
                 id="manual page"),
    pytest.param("mpirun-info/settings.cpp", r'^ *\{"([A-Z0-9_]+)", Kind', id="report"),
])
def test_name_every_setting(read, settings, document, row):
    """Every setting of the programs is named, under its three prefixes, and no other."""
    assert sorted(re.findall(row, read(document), re.MULTILINE)) == settings


def test_manual_page_names_every_option(read):
    """Every option of the launcher is named, and no other."""
    tables = read("backend/backendoptions.cpp") + read("zorv-debugger/zorvdebuggeroptions.cpp")
    page = read("docs/zorv-mpirun.1").replace("\\-", "-")
    assert sorted(re.findall(r"^\.TP.*\n\.BR (--zorv[a-z]+)", page, re.MULTILINE)) == sorted(
        re.findall(r'^ *\{"(--zorv[a-z]+)", ', tables, re.MULTILINE))


def test_links_lead_somewhere(source):
    """No document links to a file that is not there."""
    dead = [f"{document.relative_to(source)}: {target}"
            for document in (source / "README.md", *source.glob("docs/*.md"))
            for target in re.findall(r"\]\(([^)#:]+)\)", document.read_text())
            if not (document.parent / target).exists()]
    assert dead == []


@pytest.mark.parametrize("page", ["zorv-mpirun.1", "zorv-mpirun-info.1"])
@pytest.mark.parametrize("tool", [
    pytest.param(["mandoc", "-T", "lint"], id="mandoc"),
    pytest.param(["groff", "-man", "-ww", "-z", "-Tutf8"], id="groff"),
])
def test_manual_page_is_well_formed(run, needs, source, tool, page):
    """The tools that format manual pages have nothing to say."""
    needs(tool[0], "/dev/null")
    assert run(*tool, source / "docs" / page) == Ended(0)
