# SPDX-License-Identifier: Apache-2.0
"""After a crash with the kill switch on, nothing gets out until the service is back; then the network is."""

import pytest

from engine_steps import ALL as ALL_ENGINES
from engine_steps import PROCESS_ENGINES, by_engine, expect_tunnel, need
from leak_events import all_killed, closed, engine_killed
from leak_steps import LeakMachine, leak_machine
from quorvex_world import SingBoxServer
from tunnel_steps import DIRECT4, FAR4, FAR6, all_as

pytestmark = pytest.mark.tunnel

SING_BOX_TABLE = "table inet sing-box {"


def crash(machine: LeakMachine) -> None:
    """The service dies, and systemd ends what is left of its control group."""
    machine.service.kill()
    machine.service.wait()
    machine.signal_engine("KILL")
    machine.world.poll(lambda: not machine.engine_pids(), what="the end of the engine")


def has_table(world, line: str = "table inet quorvexvpn {") -> bool:
    return line in world.state().nftables


@by_engine(ALL_ENGINES)
def test_a_crash_leaves_the_machine_closed_until_the_service_is_back(world, kind):
    need(kind)
    machine = leak_machine(world, kind)
    closed(machine)
    crash(machine)
    for far in (FAR4, FAR6):
        seen = machine.traffic(far, timeout=0.5)
        assert (seen.http, seen.udp) == (None, None)
    machine.rounds(20)
    assert has_table(world)
    machine.restart()
    assert not has_table(world)
    assert machine.leaks() == [] and machine.opened_unasked() == []
    assert machine.closed_rounds() >= 20
    assert machine.snapshot() == {"stage": "disconnected"}


@by_engine(ALL_ENGINES)
def test_the_network_is_back_with_the_service(world, kind):
    need(kind)
    machine = leak_machine(world, kind)
    closed(machine)
    crash(machine)
    machine.restart()
    machine.await_all()


@by_engine(ALL_ENGINES)
def test_after_a_crash_the_next_connect_works_and_its_disconnect_leaves_nothing(world, kind):
    need(kind)
    machine = leak_machine(world, kind)
    closed(machine)
    crash(machine)
    machine.restart()
    closed(machine)
    expect_tunnel(machine)
    machine.disconnect()
    assert machine.leaks() == [] and machine.opened_unasked() == []
    machine.await_all()


@by_engine(ALL_ENGINES)
def test_a_dead_engine_leaves_the_machine_closed_until_the_user_connects_anew(world, kind):
    need(kind)
    machine = leak_machine(world, kind)
    closed(machine)
    machine.signal_engine("KILL")
    machine.rounds(20)
    closed(machine)
    expect_tunnel(machine)
    machine.disconnect()
    assert machine.leaks() == [] and machine.opened_unasked() == []
    machine.await_all()


@pytest.mark.parametrize("event", [engine_killed, all_killed])
def test_a_killed_sing_box_does_not_keep_the_machines_tcp(world, event):
    """Its own table outlives it and leads all TCP to a port at which nobody listens any more; so it must not stay."""
    need(SingBoxServer)
    machine = leak_machine(world, SingBoxServer)
    event(machine)
    assert not has_table(world, SING_BOX_TABLE) and not has_table(world)
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    machine.await_all()


@by_engine(PROCESS_ENGINES)
def test_an_engine_that_outlives_its_service_ends_at_the_next_start(world, kind):
    """Only a service killed by hand leaves one: systemd ends the whole control group."""
    need(kind)
    machine = leak_machine(world, kind)
    closed(machine)
    machine.service.kill()
    machine.service.wait()
    assert machine.engine_pids() and machine.traffic(FAR4) == all_as(world.tunnel.seen_as4)
    machine.restart()
    assert machine.snapshot() == {"stage": "disconnected"}
    assert not machine.engine_pids() and not has_table(world)
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    machine.await_all()
