"""A session directory that others can write, with things of theirs at our names."""

import os
from pathlib import Path

import pytest

from support.processes import Ended

FOREIGN = "belongs to another user"


@pytest.fixture
def precious(installation) -> Path:
    """A file of the user's, which no link of a stranger may lead to."""
    path = installation.root / "precious"
    path.write_text("precious")
    return path


@pytest.fixture
def shared_session(installation, session, scratch):
    """A session whose directory anybody may write, and whose log stands in it.

    It is sticky: nobody can remove what another user made.
    """
    scratch.chmod(0o755)
    session.folder.chmod(0o1777)
    installation.environment["ZORV_MPIRUN_LOG"] = str(session.folder / "log")
    return session


@pytest.fixture(params=["log", "marker"])
def taken_name(request, installation, shared_session) -> Path:
    """A name at which the launcher writes."""
    return {"log": installation.log_name(shared_session.folder / "log"),
            "marker": shared_session.marker}[request.param]


def assert_left_alone(path: Path, installation, cause: str):
    """A launch reports the cause, and leaves what has the name as it is."""
    before = os.lstat(path)
    assert installation.launch() == Ended(0, "started\n", f"{path}: {cause}\n")
    after = os.lstat(path)
    for what in ("st_mode", "st_ino", "st_uid", "st_size", "st_mtime_ns"):
        assert getattr(after, what) == getattr(before, what), what


def test_leaves_a_strangers_file(installation, taken_name, another_user):
    """A file of another user is not emptied."""
    taken_name.write_text("text")
    os.chown(taken_name, another_user, -1)
    assert_left_alone(taken_name, installation, FOREIGN)


@pytest.mark.parametrize("target", ["precious", "nothing"])
def test_follows_no_link_of_a_stranger(
        installation, taken_name, another_user, precious, target):
    """A link of another user leads nowhere, neither to a file nor to a new one."""
    taken_name.symlink_to(precious.with_name(target))
    os.lchown(taken_name, another_user, -1)
    assert_left_alone(taken_name, installation, FOREIGN)
    assert precious.read_text() == "precious"
    assert not precious.with_name("nothing").exists()


@pytest.mark.parametrize("has_reader", [False, True], ids=["no reader", "reader"])
def test_does_not_wait_for_a_strangers_fifo(
        installation, taken_name, another_user, has_reader):
    """A FIFO of another user is not written to, whether somebody reads it or not."""
    os.mkfifo(taken_name)
    os.chown(taken_name, another_user, -1)
    with open(taken_name if has_reader else os.devnull, "r+b", buffering=0):
        cause = FOREIGN if has_reader else "is a FIFO without a reader, or a socket"
        assert_left_alone(taken_name, installation, cause)


def test_leaves_a_file_of_ours_that_has_another_name(installation, taken_name, precious):
    """Others may have linked a file of ours to the name, which is not emptied."""
    os.link(precious, taken_name)
    assert_left_alone(taken_name, installation, "has other names, where others can write")
    assert precious.read_text() == "precious"


@pytest.mark.parametrize("log_is_link", [False, True], ids=["file", "link"])
@pytest.mark.parametrize("is_strangers", [False, True], ids=["ours", "stranger's"])
def test_trusts_the_owner_of_the_directory(
        installation, shared_session, another_user, precious, is_strangers, log_is_link):
    """What belongs to us or to the owner of the directory is emptied, and links followed."""
    owner = another_user if is_strangers else os.getuid()
    log = installation.log_name(shared_session.folder / "log")
    log.symlink_to(precious) if log_is_link else log.write_text("old")
    shared_session.marker.write_text("old")
    for path in (shared_session.folder, log, shared_session.marker):
        os.lchown(path, owner, -1)
    assert installation.launch() == Ended(0, "started\n")
    assert log.read_text() == ""
    assert log.is_symlink() == log_is_link
    assert shared_session.marker.read_text() == ""
