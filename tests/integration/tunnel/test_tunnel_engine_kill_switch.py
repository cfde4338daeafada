# SPDX-License-Identifier: Apache-2.0
"""The kill switch around the engines that run as a process."""

import pytest

from engine_steps import PROCESS_ENGINES, by_engine, engine_process, expect_tunnel, leaks, machine_with
from quorvex_world import diff_states
from tunnel_steps import DIRECT4, FAR4, FAR6, FIRST_CONNECT_LEAVES, Machine, all_as

pytestmark = pytest.mark.tunnel

ACTIVE = ("info", "Kill switch active for this tunnel.")


def closed_machine(world, kind) -> Machine:
    """Connected, with the kill switch, and with a capture that is known to see what passes the tunnel by."""
    machine = machine_with(world, kind)
    world.fresh = world.state()
    world.wire = world.server.capture("phys0-peer")
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    assert len(leaked(world)) >= 10
    world.before = len(leaked(world))
    machine.connect(kill_switch=True)
    assert ACTIVE in machine.alice.logs and has_table(world)
    return machine


def has_table(world) -> bool:
    return "table inet quorvexvpn {" in world.state().nftables


def leaked(world) -> list[str]:
    """Packets to anybody but the server's machine, to which the kill switch lets everything pass."""
    return [line for line in leaks(world.wire.packets(), world.tunnel) if world.tunnel.endpoint not in line]


def expect_nothing_gets_out(machine) -> None:
    for far in (FAR4, FAR6):
        seen = machine.traffic(far, timeout=0.5)
        assert (seen.http, seen.udp) == (None, None)
    # ICMPv6 as a whole stays open for neighbour discovery, so an echo of IPv6 gets out; nothing else does.
    assert [line for line in leaked(machine.world)[machine.world.before:] if "ICMP6" not in line] == []


@by_engine(PROCESS_ENGINES)
def test_the_tunnel_carries_traffic_inside_the_closed_firewall(world, kind):
    machine = closed_machine(world, kind)
    expect_tunnel(machine)
    assert leaked(world)[world.before:] == []


@by_engine(PROCESS_ENGINES)
def test_the_firewall_goes_with_the_tunnel(world, kind):
    machine = closed_machine(world, kind)
    machine.disconnect()
    assert diff_states(world.fresh, world.state()) == FIRST_CONNECT_LEAVES
    assert machine.traffic(FAR4) == all_as(DIRECT4)


@by_engine(PROCESS_ENGINES)
def test_the_firewall_stays_closed_when_the_engine_has_died(world, kind):
    machine = closed_machine(world, kind)
    machine.alice.mark()
    world.run(["/bin/kill", "-KILL", str(engine_process(machine)["pid"])])
    machine.alice.wait_stage("error")
    assert has_table(world)
    expect_nothing_gets_out(machine)
    machine.disconnect()
    assert not has_table(world)
