"""What holds for the portable programs alone: they load nothing of the machine."""

import re

import pytest

from support.processes import Ended


@pytest.fixture(autouse=True)
def portable(build):
    if build.variable("ZORV_PORTABLE") != "ON":
        pytest.skip("this is not the portable build")


def test_needs_no_other_file(build, run, needs):
    """The programs have neither an interpreter nor a needed library, and no fixed address."""
    needs("readelf", "--version")
    shown = run("readelf", "--wide", "--file-header", "--program-headers", "--dynamic",
                build.launcher, build.report).output
    assert re.findall(r"INTERP|\(NEEDED\).*", shown) == []
    assert len(re.findall(r"Type: +DYN", shown)) == 2


@pytest.mark.parametrize("locale", ["de_DE", "ja_JP.eucjp", "C.UTF-8"])
def test_loads_no_file_of_the_c_library(installation, scratch, needs, locale):
    """No locale, translation, character set or user look-up makes the launcher open a file."""
    needs("strace", "-o", "/dev/null", "true")
    trace = scratch / "trace"
    installation.helper.unlink()
    assert installation.launch(
        under=["strace", "-o", trace, "-e", "trace=open,openat"],
        env={"LANGUAGE": "de", "LC_ALL": locale, "ZORV_SHARED_DIRECTORY": "~nobody-here/x"}
    ) == Ended(1, "", f"{installation.helper}: No such file or directory\n")
    opened = re.findall('^open[^"]*"([^"]*)"', trace.read_text(), re.MULTILINE)
    assert [name for name in opened if not name.startswith(f"{installation.root}/")
            and not name.startswith("~nobody-here/")] == []


def test_launches_where_getent_does_not_answer(installation, namespace, scratch):
    """The launch goes on, with one line; tst_lookups has what getent may answer."""
    getent = scratch / "getent"
    getent.write_text("#!/bin/sh\nexec sleep 600\n")
    getent.chmod(0o755)
    namespace.run('mount --bind "$1" /usr/bin/getent', getent)
    assert installation.launch(
        under=namespace.under, env={"ZORV_SHARED_DIRECTORY": "~ann/x"}) == Ended(
            0, "started\n", "getent passwd: no answer; no more names are looked up\n")
