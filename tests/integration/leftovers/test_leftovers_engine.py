# SPDX-License-Identifier: Apache-2.0
"""Whatever ends an engine, the stage says so, and after a disconnect the machine is as it was before the connect."""

import pytest

import memory_group
from engine_steps import by_engine
from leftover_events import TO_ENGINE, nothing_is_left_after
from leftover_steps import KINDS

pytestmark = pytest.mark.tunnel

OUT_OF_MEMORY = "engine out of memory"
# A stop waits eight or twelve seconds for a frozen engine.
FROZEN = "engine frozen"


def case(event: str, kill_switch: bool):
    # Without memory an engine ends as by a signal; one of the two shows that.
    is_slow = event == FROZEN or (event == OUT_OF_MEMORY and kill_switch)
    return pytest.param(event, kill_switch, id=f"{event}, {'closed' if kill_switch else 'open'}",
                        marks=[pytest.mark.slow] if is_slow else [])


@pytest.mark.parametrize("event, kill_switch", [case(event, closed) for event in TO_ENGINE for closed in (False, True)])
@by_engine(KINDS)
def test_nothing_is_left_after(world, kind, event, kill_switch):
    if event == OUT_OF_MEMORY and (reason := memory_group.missing()):
        pytest.skip(reason)
    nothing_is_left_after(world, kind, TO_ENGINE[event], kill_switch)
