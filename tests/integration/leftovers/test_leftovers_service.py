# SPDX-License-Identifier: Apache-2.0
"""However the service ends, after its next start the machine is as it was before the connect."""

import pytest

from engine_steps import by_engine
from leftover_events import TO_SERVICE, by_kill_switch, nothing_is_left_after
from leftover_steps import KINDS

pytestmark = pytest.mark.tunnel


@by_kill_switch
@pytest.mark.parametrize("event", TO_SERVICE)
@by_engine(KINDS)
def test_nothing_is_left_after(world, kind, event, kill_switch):
    """The orderly disconnect shows that the bystander of the other cases is one whom no engine's own end would harm."""
    nothing_is_left_after(world, kind, TO_SERVICE[event], kill_switch)
