# SPDX-License-Identifier: Apache-2.0
"""Not one packet gets out beside the tunnel while the kill switch is on, whatever happens to the tunnel."""

import pytest

from engine_steps import ALL as ALL_ENGINES
from engine_steps import by_engine, need
from leak_events import ACCIDENTS
from leak_steps import leak_machine

pytestmark = pytest.mark.tunnel


@pytest.mark.parametrize("event", ACCIDENTS)
@by_engine(ALL_ENGINES)
def test_nothing_gets_out_when(world, kind, event):
    need(kind)
    machine = leak_machine(world, kind)
    ACCIDENTS[event](machine)
    assert machine.leaks() == [] and machine.opened_unasked() == []
    assert machine.closed_rounds() >= 4
    assert machine.snapshot() == {"stage": "disconnected"}
    machine.await_all()
