"""All interleavings of a front end, the launcher and the helper: which front ends lose a request.

The front end is a program of steps. The launcher does what restartwatcher.cpp does, one
file operation at a time. Every order of the steps of the three is tried.
"""

from typing import NamedTuple

import pytest


class State(NamedTuple):
    """The files, the helper, and how far the launcher and the front end are."""

    restart: bool = False
    hold: bool = False
    helper_runs: bool = True
    launcher: str = "waits for the helper"
    step: int = 0
    restarts: int = 0


def launcher_steps(state: State):
    """What the launcher can do next."""
    if state.launcher == "waits for the helper" and not state.helper_runs:
        yield state._replace(launcher="looks at the hold")
    elif state.launcher == "looks at the hold" and not state.hold:
        yield state._replace(launcher="looks at the request")
    elif state.launcher == "looks at the request":
        yield state._replace(launcher="removes the request" if state.restart else "has ended")
    elif state.launcher == "removes the request":
        yield state._replace(restart=False, launcher="makes the hold")
    elif state.launcher == "makes the hold":
        yield state._replace(hold=True, launcher="starts the helper")
    elif state.launcher == "starts the helper":
        yield state._replace(helper_runs=True, launcher="waits for the helper",
                             restarts=state.restarts + 1)


STEPS = {
    "make restart": lambda state: state._replace(restart=True),
    "make hold": lambda state: state._replace(hold=True),
    "remove hold": lambda state: state._replace(hold=False),
    # Only a helper that runs can be told to end.
    "end helper": lambda state: state._replace(helper_runs=False) if state.helper_runs else None,
    "await hold": lambda state: state if state.hold else None,
    "await no restart": lambda state: None if state.restart else state,
}


def front_end_steps(state: State, program: list[str]):
    """What the front end can do next."""
    if state.step < len(program):
        after = STEPS[program[state.step]](state)
        if after is not None:
            yield after._replace(step=state.step + 1)


def final_states(program: list[str], helper_may_end: bool, start: State) -> set[State]:
    """The states after which nothing happens, when the last helper has ended too."""
    seen, todo = {start}, [start]
    final = set()
    while todo:
        state = todo.pop()
        following = [*launcher_steps(state), *front_end_steps(state, program)]
        if state.helper_runs and (helper_may_end or state.step == len(program)):
            following.append(state._replace(helper_runs=False))
        if not following:
            final.add(state)
        new = set(following) - seen
        seen |= new
        todo += new
    return final


def is_right(state: State, program: list[str]) -> bool:
    """One restart for each request, and no process waits for another."""
    return (state.step == len(program) and state.launcher == "has ended"
            and state.restarts == program.count("make restart"))


REQUEST = ["make restart", "end helper", "await hold", "remove hold"]
HELD_REQUEST = ["make restart", "remove hold", "await hold", "remove hold"]


@pytest.mark.parametrize("program, helper_may_end, starts_with_hold", [
    pytest.param(REQUEST, False, False, id="request, then end the helper"),
    pytest.param(2 * REQUEST, False, False, id="two restarts"),
    pytest.param(HELD_REQUEST, True, True, id="hold before the launch, and the helper may end"),
])
def test_front_end_that_loses_nothing(program, helper_may_end, starts_with_hold):
    """Every order of events leads to one restart for each request, and to the end."""
    final = final_states(program, helper_may_end, State(hold=starts_with_hold))
    assert [state for state in final if not is_right(state, program)] == []


@pytest.mark.parametrize("program, helper_may_end, starts_with_hold", [
    pytest.param(REQUEST, True, False, id="the helper may end before the request"),
    pytest.param(["end helper", "make restart", "await hold", "remove hold"], False, False,
                 id="end the helper, then request"),
    pytest.param(["make restart", "end helper", "await no restart", "remove hold"], False, False,
                 id="release when the request is gone"),
    pytest.param(["make hold", *HELD_REQUEST], True, False,
                 id="make the hold while the helper may end"),
    pytest.param(["make restart", "end helper"], False, False, id="never release"),
])
def test_front_end_that_loses_a_request(program, helper_may_end, starts_with_hold):
    """Some order of events loses the request, or lets the launcher wait for ever."""
    final = final_states(program, helper_may_end, State(hold=starts_with_hold))
    assert any(not is_right(state, program) for state in final)
