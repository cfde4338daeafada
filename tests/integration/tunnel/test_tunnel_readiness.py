# SPDX-License-Identifier: Apache-2.0
"""When the service says "connected" with real tools: an interface and a full route, not an answer from the server.

WireGuard has no connection that could fail: `wg-quick up` succeeds whoever may be at the other end. So these tests
also show what such a tunnel does with the traffic: it carries none of it, and lets none of it out beside itself.
"""

import pytest

from quorvex_world import diff_states
from tunnel_steps import DIRECT4, FAR4, TUNNEL4, all_as, is_flow, nothing, strangers

pytestmark = pytest.mark.tunnel


def test_a_wrong_key_is_connected_and_carries_nothing(machine):
    wire = machine.world.server.capture("phys0-peer")
    stranger = machine.world.run(["/usr/bin/wg", "genkey"]).stdout.strip()
    machine.connect(machine.wireguard.profile().replace(machine.wireguard.client_private, stranger))
    assert machine.snapshot()["stage"] == "connected"
    assert machine.traffic(FAR4, timeout=0.5) == nothing()
    assert machine.wireguard.handshake_age() is None
    packets = wire.packets()
    assert any(is_flow(line) for line in packets) and strangers(packets) == []
    machine.disconnect()
    assert machine.traffic(FAR4) == all_as(DIRECT4)


def test_an_unreachable_server_is_connected_and_carries_nothing(machine):
    wire = machine.world.server.capture("phys0-peer")
    machine.connect(machine.wireguard.profile().replace("10.99.0.2:51820", "10.99.0.77:51820"))
    assert machine.snapshot()["stage"] == "connected"
    assert machine.traffic(FAR4, timeout=0.5) == nothing()
    assert "10.99.0.77" in machine.world.run(["/usr/bin/ip", "neighbour", "show", "dev", "phys0"]).stdout
    assert strangers(wire.packets()) == []


def test_a_tunnel_comes_to_life_when_its_server_does(machine):
    """Nothing needs to be connected anew: the engine goes on trying."""
    machine.world.server.run(["/usr/bin/ip", "link", "set", "phys0-peer", "down"])
    machine.connect()
    assert machine.traffic(FAR4, timeout=0.5) == nothing()
    machine.world.server.run(["/usr/bin/ip", "link", "set", "phys0-peer", "up"])
    assert machine.world.http_get(f"http://{FAR4}/", timeout=20).body == TUNNEL4


def test_a_full_route_in_a_table_of_its_own_counts(machine):
    """`Table = 1234` is the profile's wish: the route is there, rules that lead to it are somebody else's matter."""
    before = machine.world.state()
    machine.connect(machine.wireguard.profile(interface="Table = 1234", allowed_ips="0.0.0.0/0"))
    routes = machine.world.run(["/usr/bin/ip", "-4", "route", "show", "table", "all"]).stdout.splitlines()
    assert [line for line in routes if line.startswith("default dev quorvexvpn table 1234")] != []
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    machine.world.run(["/usr/bin/ip", "-4", "rule", "add", "to", FAR4, "lookup", "1234"])
    assert machine.traffic(FAR4) == all_as(TUNNEL4)
    machine.world.run(["/usr/bin/ip", "-4", "rule", "delete", "to", FAR4, "lookup", "1234"])
    machine.disconnect()
    assert diff_states(before, machine.world.state()) == "runtime_files: +drwx------ quorvexvpn"


def test_the_main_table_counts_as_well(machine):
    machine.connect(machine.wireguard.profile(interface="Table = main", allowed_ips="0.0.0.0/0"))
    routes = machine.world.run(["/usr/bin/ip", "-4", "route", "show"]).stdout.splitlines()
    assert any(line.startswith("default dev quorvexvpn") for line in routes)


def test_the_stages_arrive_in_order_and_connected_only_with_route_and_interface(machine):
    gate = machine.world.recorder("/usr/bin/wg-quick").gate("up")
    machine.alice.connect("home", "wireGuard", machine.wireguard.profile())
    machine.world.wait_call("wg-quick", "up")
    assert machine.snapshot() == {"stage": "connecting", "activeProfileId": "home"}
    assert not machine.world.interface_exists("quorvexvpn")
    gate.open()
    machine.alice.wait_stage("connected")
    assert machine.world.interface_exists("quorvexvpn")
    assert "default dev quorvexvpn" in machine.world.run(
        ["/usr/bin/ip", "-4", "route", "show", "table", "all"]).stdout
    assert machine.alice.stages == ["preparing", "connecting", "connected"]
