"""The example front end with the real launcher.

It makes its session directory in TMPDIR, where no test may leave anything.
"""

from signal import SIGTERM

import pytest


@pytest.fixture
def front_end(installation, source) -> list[str]:
    """The command that starts the launcher through the front end."""
    return ["sh", source / "examples/front-end", installation.launcher]


def test_has_the_helper_run_twice(installation, front_end, run, scratch):
    """The front end asks for one restart, and ends when the launcher does."""
    helpers = scratch / "helpers"
    installation.set_helper(f"echo $$ >>{helpers}; exit 3")
    assert run(*front_end).status == 0
    assert len(set(helpers.read_text().split())) == 2


def test_reports_a_launcher_without_a_helper(installation, front_end, run):
    """The front end's status is the launcher's when there is no helper."""
    installation.helper.unlink()
    assert run(*front_end).status == 1


def test_signal_ends_launcher_and_helper(front_end, start, signals):
    """A signal to the front end ends the launcher, which passes it on."""
    process = start(*front_end)
    signals.process()
    process.send(SIGTERM)
    assert process.wait().status == 128 + SIGTERM
    assert signals.numbers() == [SIGTERM, 0]
