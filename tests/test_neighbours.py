"""A session directory that others can write, with things of theirs at our names.

tst_files has all cases of owners and modes.
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


def assert_is_left_alone(path, owner: int, installation, cause="belongs to another user"):
    """A launch reports the cause, and leaves what the owner has at the name as it is."""
    os.lchown(path, owner, -1)
    before = os.lstat(path)
    assert installation.launch() == Ended(0, "started\n", f"{path}: {cause}\n")
    after = os.lstat(path)
    for what in ("st_mode", "st_ino", "st_uid", "st_size", "st_mtime_ns"):
        assert getattr(after, what) == getattr(before, what), what


def test_leaves_a_strangers_file(installation, taken_name, another_user):
    """A file of another user is not emptied."""
    taken_name.write_text("text")
    assert_is_left_alone(taken_name, another_user, installation)


@pytest.mark.parametrize("target", ["precious", "nothing"])
def test_follows_no_link_of_a_stranger(installation, taken_name, another_user, scratch, target):
    """A link of another user leads nowhere, neither to a file nor to a new one."""
    (scratch / "precious").write_text("precious")
    taken_name.symlink_to(scratch / target)
    assert_is_left_alone(taken_name, another_user, installation)
    assert (scratch / "precious").read_text() == "precious"
    assert not (scratch / "nothing").exists()


def test_does_not_wait_for_a_strangers_fifo(installation, taken_name, another_user):
    """A FIFO that nobody reads holds no launch up."""
    os.mkfifo(taken_name)
    assert_is_left_alone(taken_name, another_user, installation,
                         "is a FIFO without a reader, or a socket")


def test_follows_a_link_of_the_directorys_owner(
        installation, session, taken_name, another_user, scratch):
    """Who owns the directory decides what is in it."""
    (scratch / "target").write_text("old")
    taken_name.symlink_to(scratch / "target")
    for path in (session.folder, taken_name):
        os.lchown(path, another_user, -1)
    assert installation.launch() == Ended(0, "started\n")
    assert taken_name.read_text() == ""
