"""The documents are well-formed, and their links lead somewhere."""

import re

import pytest

from support.processes import Ended


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
