# SPDX-License-Identifier: Apache-2.0
"""An engine that stands still while its tunnel is taken down: nothing before the removal, everything after it."""

import time

import pytest

from attempts import ORDINARY, PAST_TUNNEL
from engine_steps import ALL as ALL_ENGINES
from engine_steps import by_engine, need
from leak_events import closed
from leak_steps import leak_machine
from leak_wire import closed_times
from quorvex_world import SingBoxServer

pytestmark = [pytest.mark.tunnel, pytest.mark.slow]

# Its packet marks know TCP, UDP and ICMP; another protocol goes past it unless the kill switch's own route is there.
TAKEN_BY_SING_BOX = {one.name for one in ORDINARY if one.how != "raw"}
# No engine takes these; sing-box does take TCP and questions for names from sockets that are bound to the device.
LEFT_ALONE = {one.name for one in PAST_TUNNEL if one.how in ("udp+bound", "raw+bound")}


@by_engine(ALL_ENGINES)
def test_a_disconnect_opens_the_firewall_at_once_and_waits_for_the_engine_behind_it(world, kind):
    need(kind)
    machine = leak_machine(world, kind)
    closed(machine)
    machine.signal_engine("STOP")
    machine.rounds(20)
    machine.alice.mark()
    machine.wish(False)
    machine.alice.call("Disconnect")
    error = machine.alice.wait_stage("error", timeout=40)
    removed = closed_times(world)[-1].end
    waited = time.time() - (time.monotonic() - error.time) - removed
    assert machine.leaks() == [] and machine.opened_unasked() == []
    assert 8 <= waited < 15
    # A second before the engine's forced end; until then what takes the tunnel is lost in it.
    out = {packet.target for packet in machine.wire.packets() if removed < packet.time < removed + 7}
    assert LEFT_ALONE <= out
    taken = TAKEN_BY_SING_BOX if kind is SingBoxServer else {one.name for one in ORDINARY}
    assert not out & taken
