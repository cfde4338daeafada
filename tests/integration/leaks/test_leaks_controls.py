# SPDX-License-Identifier: Apache-2.0
"""The counting of leaks finds leaks: without the kill switch, and with one that has a hole."""

import time

import pytest

from attempts import NAMES, PAST_TUNNEL
from engine_steps import ALL as ALL_ENGINES
from engine_steps import by_engine, need
from leak_events import two_disconnects
from leak_steps import leak_machine, plant_hole
from quorvex_world import SingBoxServer, WireGuardServer

pytestmark = pytest.mark.tunnel

# Without the streams, which may be silent for a while.
PAST = {one.name for one in PAST_TUNNEL if "stream" not in one.how}
# What sed makes of the table, and what must get out then.
HOLES = {
    "a table that drops nothing": ("s/policy drop/policy accept/", PAST),
    "a table that lets one host through": (
        "s/oifname \"lo\" accept/&; ip daddr 203.0.113.22 accept/", {NAMES["203.0.113.22"]}),
    "a table without IPv6": (
        "s/oifname \"lo\" accept/&; meta nfproto ipv6 accept/", {name for name in PAST if "IPv6" in name}),
}


@by_engine(ALL_ENGINES)
def test_without_the_kill_switch_all_that_goes_past_the_tunnel_is_seen(world, kind):
    need(kind)
    machine = leak_machine(world, kind)
    machine.connect()
    machine.rounds(1)
    since = time.time()
    machine.rounds()
    seen = machine.wire.seen_since(since)
    # sing-box takes what it can of bound sockets' TCP and of all questions for names, and the rest goes past it.
    taken = {one.name for one in PAST_TUNNEL if one.how in ("tcp+bound", "dns+bound")}
    assert PAST - (taken if kind is SingBoxServer else set()) <= seen


@pytest.mark.parametrize("hole", HOLES)
def test_a_hole_is_found(world, hole):
    """The stand-in serves for the fault alone: nft itself loads the table, with the hole in it."""
    need(WireGuardServer)
    edit, expected = HOLES[hole]
    machine = leak_machine(world, WireGuardServer)
    plant_hole(world, edit)
    two_disconnects(machine)
    assert {packet.target for packet in machine.leaks()} & PAST == expected
