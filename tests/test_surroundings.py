"""The launcher where something is wrong around it, which costs no launch."""

import os

import pytest

from support.processes import Ended


@pytest.mark.parametrize("prepare, cause", [
    pytest.param('rmdir "$1"', "No such file or directory", id="missing"),
    pytest.param('rmdir "$1"; touch "$1"', "Not a directory", id="file"),
    pytest.param('mount -t tmpfs -o mode=0 none "$1"', "Permission denied", id="no permission"),
])
def test_reports_an_unusable_session_directory(installation, session, namespace, prepare, cause):
    """The log and the marker that cannot be made are reported, and the launch goes on."""
    namespace.run(prepare, session.folder)
    log = session.folder / "log"
    expected = f"{installation.log_name(log)}: {cause}\n{session.marker}: {cause}\n"
    if cause == "Permission denied":
        for file in (session.hold, session.restart):
            expected += f"{file}: {cause}; the launcher goes on as if it did not exist\n"
    # Root obeys permissions, too.
    under = [*namespace.under, "setpriv", "--bounding-set", "-dac_override,-dac_read_search"]
    assert installation.launch(under=under, env={"ZORV_MPIRUN_LOG": str(log)}) == Ended(
        0, "started\n", expected)


def test_finds_a_session_directory_with_an_unusual_name(installation, session):
    """The marker goes to the directory, whatever characters its name has."""
    folder = session.folder / " sé\n%s "
    folder.mkdir()
    assert installation.launch(
        env={"LC_ALL": "C", "ZORV_SESSION_PATH": str(folder)}) == Ended(0, "started\n")
    assert os.listdir(folder) == ["restart-supported"]


def test_asks_no_name_server(installation, session, namespace, needs):
    """A launch sends nothing, whatever name it has to look up."""
    needs("ip", "-V")
    namespace.use_silent_name_server()
    namespace.run("hostname nodex")
    before = namespace.traffic()
    assert installation.launch(
        "--zorvyourname", "other", under=namespace.under) == Ended(0, "started\n")
    assert namespace.traffic() == before
    assert session.files() == ["restart-supported"]
