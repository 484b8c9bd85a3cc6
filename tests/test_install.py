"""What cmake --install makes, moved elsewhere; and the packages, extracted."""

import os
import re
import shutil
from pathlib import Path

import pytest

from support.processes import Ended


@pytest.fixture
def stage(build, run, scratch) -> Path:
    """Where cmake --install has put the prefix /opt/suite."""
    stage = scratch / "stage"
    assert run(build.variable("CMAKE_COMMAND"), "--install", build.folder, "--prefix",
               "/opt/suite", env={"DESTDIR": str(stage)}).status == 0
    return stage


@pytest.fixture
def installed(stage, build) -> Path:
    """The installation, moved to a folder with a blank in its name, with a helper."""
    shutil.copy(build.testchild, stage / "opt/suite/bin/zorv-debugger")
    return (stage / "opt/suite").rename(stage / "moved to")


def needed_libraries(run, *programs: Path) -> set[str]:
    """The libraries that the programs name as needed."""
    return set(re.findall(r"NEEDED\s+(\S+)", run("objdump", "-p", *programs).output))


def test_installs_documents_and_nothing_outside_the_prefix(stage):
    """Manual pages, documents and the example are installed; all files are below the prefix."""
    share = stage / "opt/suite/share"
    names = {str(path.relative_to(share)) for path in share.rglob("*")}
    assert {"man/man1/zorv-mpirun.1", "man/man1/zorv-mpirun-info.1",
            "doc/zorv-mpirun/docs/settings.md", "doc/zorv-mpirun/examples/front-end"} <= names
    assert (os.listdir(stage), os.listdir(stage / "opt")) == (["opt"], ["suite"])


def test_launcher_needs_no_network_and_xml_libraries(stage, run):
    """They would bring twelve more libraries with them, at every launch."""
    libraries = needed_libraries(run, stage / "opt/suite/bin/zorv-mpirun")
    assert [name for name in libraries if re.match("libQt6(Network|Xml)", name)] == []


def test_moved_installation_launches_and_its_session_serves_every_user(installed, run, scratch):
    """A moved installation finds its helper, and its session file names the front end."""
    sessions = scratch / ".talvora/session"
    sessions.mkdir(parents=True)
    (installed / "session").write_text('<session host="front" port="4242"/>\n')
    env = {"HOME": str(scratch), "TESTCHILD": "--print helper"}
    assert run(installed / "bin/zorv-mpirun", env=env) == Ended(0, "helper\n")
    assert os.listdir(sessions) == ["restart-supported"]


def test_module_finds_the_installation(installed, run):
    """The module puts the launcher and its manual page into the search paths."""
    script = Path("/usr/share/modules/init/sh")
    if not script.exists():
        pytest.skip("Environment Modules are not installed")
    load = '. "$1"; module use "$2"; module load zorv-mpirun; ' \
           'command -v zorv-mpirun; echo "${MANPATH%%:*}"'
    assert run("sh", "-c", load, "sh", script, installed / "share/modulefiles") == Ended(
        0, f"{installed}/bin/zorv-mpirun\n{installed}/share/man\n")


@pytest.fixture(params=["TGZ", "DEB", "RPM"])
def package(request, build, run, needs, scratch) -> Path:
    """A package of the build; the portable build has all kinds."""
    is_portable = build.variable("ZORV_PORTABLE") == "ON"
    if build.variable("ZORV_SANITIZE") == "ON" or not (is_portable or request.param == "DEB"):
        pytest.skip(f"this build makes no package of the kind {request.param}")
    needs({"TGZ": "tar", "DEB": "dpkg-shlibdeps", "RPM": "rpmbuild"}[request.param], "--version")
    cpack = Path(build.variable("CMAKE_COMMAND")).with_name("cpack")
    assert run(cpack, "--config", build.folder / "CPackConfig.cmake", "-G", request.param,
               "-B", scratch / "package", env={"HOME": str(scratch)}).status == 0
    shutil.rmtree(scratch / "package/_CPack_Packages")
    return next((scratch / "package").glob("zorv-mpirun*"))


def test_package_launches_and_depends_on_its_libraries(build, run, package, scratch):
    """Launcher and report work as the package has them; it names the libraries they need."""
    tools = {".gz": ["tar", "-xzf", package], ".deb": ["dpkg-deb", "--extract", package, "."],
             ".rpm": ["sh", "-c", 'rpm2archive - <"$0" | tar -xz', package]}
    clean = scratch / "clean"
    clean.mkdir()
    assert run(*tools[package.suffix], cwd=clean).status == 0
    programs = next(clean.glob("**/bin"))
    for library in needed_libraries(run, *programs.iterdir()):
        depends = run("dpkg-deb", "-f", package, "Depends").output
        owners = re.findall("^([^:]+):", run("dpkg", "-S", f"*/{library}").output, re.MULTILINE)
        assert set(owners) & set(re.findall(r"[^ ,]+", depends)), library
    shutil.copy(build.testchild, programs / "zorv-debugger")
    env = {"HOME": str(scratch), "TESTCHILD": "--print helper"}
    assert run(programs / "zorv-mpirun", env=env) == Ended(0, "helper\n")
    assert run(programs / "zorv-mpirun-info").status == 0


def test_package_has_no_errors(run, needs, source, package, scratch, environment):
    """The distributions' own tools find no error in the package."""
    # They leave files in both.
    environment.update(HOME=str(scratch), TMPDIR=str(scratch))
    checks = {".deb": ["lintian", "--fail-on", "error"],
              ".rpm": ["rpmlint", "--config", source / "packaging/rpmlint.toml"]}
    if package.suffix not in checks:
        pytest.skip("nothing checks a tarball")
    check = checks[package.suffix]
    needs(check[0], "--version")
    assert run(*check, package).status == 0
