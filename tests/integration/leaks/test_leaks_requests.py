# SPDX-License-Identifier: Apache-2.0
"""Not one packet gets out beside the tunnel while the kill switch is on, whatever is asked for."""

import pytest

from engine_steps import ALL as ALL_ENGINES
from engine_steps import by_engine, need
from leak_events import REQUESTS, next_engine
from leak_steps import leak_machine

pytestmark = pytest.mark.tunnel
# A disconnect may come before there is anything to close.
MAY_NEVER_CLOSE = {name for name in REQUESTS if name.startswith("a disconnect")}


@pytest.mark.parametrize("event", REQUESTS)
@by_engine(ALL_ENGINES)
def test_nothing_gets_out_at(world, kind, event):
    need(kind, next_engine(kind))
    machine = leak_machine(world, kind)
    REQUESTS[event](machine)
    assert machine.leaks() == [] and machine.opened_unasked() == []
    assert machine.closed_rounds() >= 4 or event in MAY_NEVER_CLOSE
    assert machine.snapshot() == {"stage": "disconnected"}
    machine.await_all()
