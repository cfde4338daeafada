# SPDX-License-Identifier: Apache-2.0
"""Whatever becomes of a tunnel's interface or cable, after a disconnect the machine is as it was before the connect."""

import pytest

from engine_steps import by_engine
from leftover_events import TO_NETWORK, by_kill_switch, nothing_is_left_after
from leftover_steps import KINDS

pytestmark = pytest.mark.tunnel


@by_kill_switch
@pytest.mark.parametrize("event", TO_NETWORK)
@by_engine(KINDS)
def test_nothing_is_left_after(world, kind, event, kill_switch):
    nothing_is_left_after(world, kind, TO_NETWORK[event], kill_switch)
