# SPDX-License-Identifier: Apache-2.0
"""The kill switch around a real tunnel: it lets the tunnel live, and goes with it."""

import pytest

from quorvex_world import diff_states
from tunnel_steps import DIRECT4, FAR4, FAR6, TUNNEL4, TUNNEL6, all_as, strangers

pytestmark = pytest.mark.tunnel

ACTIVE = ("info", "Kill switch active for this tunnel.")
CONNECTED = ("info", "WireGuard tunnel connected.")


def has_table(machine) -> bool:
    return any(line == "table inet quorvexvpn {" for line in machine.world.state().nftables)


def test_the_tunnel_carries_traffic_inside_the_closed_firewall(settled):
    before = settled.world.state()
    wire = settled.world.server.capture("phys0-peer")
    assert not has_table(settled)
    entries = len(settled.alice.logs)
    settled.connect(kill_switch=True)
    assert settled.alice.logs[entries:] == [("info", "Preparing WireGuard tunnel."), ACTIVE, CONNECTED]
    assert has_table(settled)
    assert settled.traffic(FAR4) == all_as(TUNNEL4)
    assert settled.traffic(FAR6) == all_as(TUNNEL6)
    assert strangers(wire.packets()) == []
    settled.disconnect()
    assert not has_table(settled)
    assert diff_states(before, settled.world.state()) == ""
    assert settled.traffic(FAR4) == all_as(DIRECT4)


def test_without_the_wish_there_is_no_table(settled):
    entries = len(settled.alice.logs)
    settled.connect(kill_switch=False)
    assert ACTIVE not in settled.alice.logs[entries:] and not has_table(settled)


def test_the_family_that_the_profile_does_not_route_is_closed_too(settled):
    """Without the kill switch an IPv4 profile leaves IPv6 to the cable; with it, not a packet of IPv6 gets out."""
    wire = settled.world.server.capture("phys0-peer")
    settled.connect(settled.wireguard.profile(allowed_ips="0.0.0.0/0"), kill_switch=True)
    assert settled.traffic(FAR4) == all_as(TUNNEL4)
    seen = settled.traffic(FAR6, timeout=0.5)
    # ICMPv6 as a whole stays open for neighbour discovery, so an echo gets through; nothing else does.
    assert (seen.http, seen.udp) == (None, None)
    assert [line for line in strangers(wire.packets()) if "ICMP6" not in line] == []


def test_the_firewall_stays_closed_when_the_engine_is_gone(settled):
    """WireGuard has no process that the service could watch; the kill switch holds without anybody watching."""
    wire = settled.world.server.capture("phys0-peer")
    settled.connect(kill_switch=True)
    assert settled.traffic(FAR4) == all_as(TUNNEL4)
    for engine in settled.engines():
        settled.world.run(["/bin/kill", "-KILL", str(engine)])
    settled.world.poll(lambda: not settled.world.interface_exists("quorvexvpn"), what="the interface to go")
    seen = settled.traffic(FAR4, timeout=0.5)
    assert (seen.http, seen.udp, seen.ping) == (None, None, False)
    assert strangers(wire.packets()) == []
