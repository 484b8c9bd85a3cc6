"""The launcher where something is wrong around it, which costs no launch."""

import os

import pytest

from support.processes import Ended


@pytest.fixture
def without_privileges(namespace) -> list[str]:
    """What to put in front of a command, which is in the namespace and obeys permissions."""
    return [*namespace.under, "setpriv", "--bounding-set", "-dac_override,-dac_read_search"]


@pytest.mark.parametrize("prepare, cause", [
    pytest.param('rmdir "$1"', "No such file or directory", id="missing"),
    pytest.param('rmdir "$1"; touch "$1"', "Not a directory", id="file"),
    pytest.param('mount -t tmpfs -o mode=0 none "$1"', "Permission denied", id="no permission"),
])
def test_reports_an_unusable_session_directory(
        installation, session, namespace, without_privileges, prepare, cause):
    """The log and the marker that cannot be made are reported, and the launch goes on."""
    namespace.run(prepare, session.folder)
    log = session.folder / "log"
    expected = f"{installation.log_name(log)}: {cause}\n{session.marker}: {cause}\n"
    if cause == "Permission denied":
        for file in (session.hold, session.restart):
            expected += f"{file}: {cause}; the launcher goes on as if it did not exist\n"
    assert installation.launch(under=without_privileges, env={"ZORV_MPIRUN_LOG": str(log)}) == (
        Ended(0, "started\n", expected))


@pytest.mark.parametrize("name, locale", [
    pytest.param("sé", "C", id="UTF-8 in the C locale"),
    pytest.param(" a\n%s ", "C", id="blanks, line end, percent sign"),
])
def test_finds_a_session_directory_with_an_unusual_name(installation, session, name, locale):
    """The marker goes to the directory, whatever characters its name has."""
    folder = session.folder / name
    folder.mkdir()
    assert installation.launch(
        env={"LC_ALL": locale, "ZORV_SESSION_PATH": str(folder)}) == Ended(0, "started\n")
    assert os.listdir(folder) == ["restart-supported"]


def test_asks_no_name_server(installation, session, namespace, needs):
    """A launch sends nothing, whatever name it has to look up."""
    needs("ip", "-V")
    namespace.use_silent_name_server()
    namespace.run("hostname nodex")
    before = namespace.sent_datagrams()
    assert installation.launch(
        "--zorvyourname", "other", under=namespace.under) == Ended(0, "started\n")
    assert namespace.sent_datagrams() == before
    assert session.files() == ["restart-supported"]
