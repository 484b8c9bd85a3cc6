"""A session directory that others can write, with things of theirs at our names.

tst_files has more cases of owners and modes.
"""

import os

import pytest

from support.processes import Ended


@pytest.fixture(params=["log", "marker"])
def taken_name(request, installation, session, scratch):
    """A name at which the launcher writes, in a sticky directory that anybody may write."""
    scratch.chmod(0o755)
    session.folder.chmod(0o1777)
    log = session.folder / "log"
    installation.environment["ZORV_MPIRUN_LOG"] = str(log)
    return {"log": installation.log_name(log), "marker": session.marker}[request.param]


@pytest.mark.parametrize("make, cause", [
    pytest.param("cp ../precious", "belongs to another user", id="file"),
    pytest.param("ln -s ../precious", "belongs to another user", id="link"),
    pytest.param("mkfifo", "is a FIFO without a reader, or a socket", id="FIFO"),
])
def test_leaves_a_strangers_file(installation, run, another_user, taken_name, make, cause):
    """A launch reports the cause, and empties no file of anybody and waits for no reader."""
    precious = installation.root / "precious"
    precious.write_text("precious")
    run("sh", "-c", f'{make} "$0"', taken_name, cwd=taken_name.parent)
    os.lchown(taken_name, another_user, -1)
    show = ["stat", "--format=mode %f, inode %i, owner %u, %s bytes, changed %y", taken_name]
    before = run(*show)
    assert installation.launch() == Ended(0, "started\n", f"{taken_name}: {cause}\n")
    assert run(*show) == before
    assert precious.read_text() == "precious"


def test_writes_to_no_fifo_of_a_stranger(installation, taken_name, another_user):
    """A reader would get the messages."""
    os.mkfifo(taken_name)
    os.chown(taken_name, another_user, -1)
    with open(os.open(taken_name, os.O_RDONLY | os.O_NONBLOCK)):
        assert installation.launch() == Ended(
            0, "started\n", f"{taken_name}: belongs to another user\n")


def test_follows_a_link_of_the_directorys_owner(
        installation, session, taken_name, another_user, scratch):
    """Who owns the directory decides what is in it; a link may lead to a new file."""
    taken_name.symlink_to(scratch / "target")
    for path in (session.folder, taken_name):
        os.lchown(path, another_user, -1)
    assert installation.launch() == Ended(0, "started\n")
    assert (scratch / "target").read_text() == ""
