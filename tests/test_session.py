"""The launcher with a session: its marker, restarts on request, its log."""

from signal import SIGKILL, SIGTERM

from support.processes import Ended


def test_without_a_host_there_is_no_session(installation, session):
    """The files of a session that is not the launcher's stay as they are."""
    session.restart.touch()
    assert installation.launch(env={"ZORV_HOST": ""}) == Ended(0, "started\n")
    assert session.files() == ["restart"]


def test_rejected_option_is_in_the_log_and_leaves_the_session_alone(installation, session):
    """Status 1 and one line, also in the log, which is emptied before; no helper, no marker."""
    session.restart.touch()
    log = installation.log_name(installation.root / "my")
    log.write_text("old")
    error = "option '--zorvhost' requires an argument\n"
    assert installation.launch("--zorvhost", env={
        "ZORV_MPIRUN_LOG": str(installation.root / "my.log")}) == Ended(1, "", error)
    assert log.read_text() == error
    assert session.files() == ["restart"]


def test_hold_that_cannot_be_made_ends_the_launcher(installation, session):
    """A link into a folder that is missing is no hold, and there is no restart."""
    session.restart.touch()
    session.hold.symlink_to("missing/hold")
    assert installation.launch() == Ended(
        0, "started\n", f"{session.hold}: No such file or directory\n")
    assert session.files() == ["restart-hold", "restart-supported"]


def test_hold_is_made_where_a_link_leads(installation, session):
    """A dangling link of the user is followed to a new file, and the restart is not lost."""
    target = session.folder / "target"
    session.hold.symlink_to(target)
    session.restart.touch()
    installation.set_helper(f"echo started; rm -f {target}")
    assert installation.launch() == Ended(0, "started\nstarted\n")
    assert session.hold.is_symlink()


def test_restart_without_a_helper_ends_the_launcher(installation, session):
    """A helper that is gone at a restart is reported, and the status is 1."""
    installation.set_helper(f": >{session.restart}; rm {installation.helper}")
    assert installation.launch() == Ended(
        1, "", f"{installation.helper}: No such file or directory\n")
    assert session.files() == ["restart-hold", "restart-supported"]


def test_helper_is_started_again_on_request(installation, session, started):
    """The request is taken away, and a hold is made, which somebody else takes away."""
    launcher = installation.start()
    helper = started.process()
    assert session.files() == ["restart-supported"]
    session.restart.touch()
    helper.kill()
    helper = started.process()
    assert session.files() == ["restart-hold", "restart-supported"]
    helper.kill()
    launcher.wait_for_no_child()
    session.hold.unlink()
    assert launcher.wait() == Ended(0)
    assert session.files() == ["restart-supported"]


def test_whatever_has_the_name_is_a_hold(installation, session, started):
    """A directory holds the launcher, and a request that is made meanwhile counts."""
    session.hold.mkdir()
    launcher = installation.start()
    started.process().kill()
    launcher.wait_for_no_child()
    session.restart.touch()
    session.hold.rmdir()
    started.process()
    launcher.send(SIGTERM)
    assert launcher.wait() == Ended(-SIGTERM)


def test_sigkill_leaves_the_marker_and_the_helper(installation, session, fifo):
    """The helper reads the end of its input, and ends when it likes."""
    installation.set_helper(f"echo started >{fifo.path}; cat; echo end of input >{fifo.path}")
    launcher = installation.start()
    fifo.line()
    launcher.send(SIGKILL)
    assert launcher.wait() == Ended(-SIGKILL)
    assert fifo.line() == "end of input"
    assert session.files() == ["restart-supported"]
