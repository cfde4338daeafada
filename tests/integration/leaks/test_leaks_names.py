# SPDX-License-Identifier: Apache-2.0
"""A server's name that means something else through the tunnel than before it: the tunnel lives, and stays closed."""

import pytest

from engine_steps import ALL as ALL_ENGINES
from engine_steps import by_engine, expect_tunnel, need
from leak_steps import LeakMachine, leak_machine
from leak_wire import ACTIVE, SERVERS, closed_times
from quorvex_world import NameServer, OpenVpnServer, WireGuardServer

pytestmark = pytest.mark.tunnel

RESOLVER = "203.0.113.54"
NAME = "vpn.test"
SERVER, ANOTHER = SERVERS
ASK_AGAIN = (WireGuardServer, OpenVpnServer)


def two_answers(world, inside: dict[str, list[str]]) -> None:
    """One resolver's address; what comes by the cable is answered by another server than what comes by a tunnel."""
    server = world.server
    server.run(["/media/sbin/nft", "-f", "-"], input=f"""
table ip answers {{
  chain from_the_cable {{
    type nat hook prerouting priority dstnat;
    iifname "phys0-peer" ip daddr {RESOLVER} udp dport 53 dnat to 10.99.0.53
  }}
}}""")
    world.outside = NameServer(server, "10.99.0.53", {NAME: [SERVER]})
    world.inside = NameServer(server, RESOLVER, inside)
    world.use_resolver(RESOLVER)


def closed_by_name(world, kind, inside: dict[str, list[str]]) -> LeakMachine:
    need(kind)
    machine = leak_machine(world, kind)
    two_answers(world, inside)
    machine.connect(world.tunnel.profile(host=NAME), kill_switch=True)
    machine.alice.wait_log(ACTIVE)
    return machine


def asked(names: NameServer) -> set[str]:
    return {kind for kind, name, _ in names.queries if name == NAME}


def let_through(machine: LeakMachine) -> str:
    return closed_times(machine.world)[-1].ruleset


def expect_a_closed_tunnel(machine: LeakMachine) -> None:
    expect_tunnel(machine)
    machine.rounds()
    expect_tunnel(machine)
    assert machine.leaks() == []
    machine.disconnect()
    machine.await_all()


@by_engine(ALL_ENGINES)
def test_another_answer_through_the_tunnel_does_not_cut_it_off(world, kind):
    machine = closed_by_name(world, kind, {NAME: [ANOTHER]})
    assert asked(world.outside) == {"A", "AAAA"}
    ruleset = let_through(machine)
    assert SERVER in ruleset
    if kind in ASK_AGAIN:
        assert asked(world.inside) and f"{{ {ANOTHER}, {SERVER} }}" in ruleset
    expect_a_closed_tunnel(machine)


@by_engine(ALL_ENGINES)
@pytest.mark.parametrize("inside", [pytest.param({}, id="no such name"), pytest.param({NAME: []}, id="no address")])
def test_a_name_that_means_nothing_any_more_does_not_cut_it_off(world, kind, inside):
    machine = closed_by_name(world, kind, inside)
    assert f"ip daddr {{ {SERVER} }} accept" in let_through(machine)
    if kind in ASK_AGAIN:
        assert asked(world.inside)
    expect_a_closed_tunnel(machine)
