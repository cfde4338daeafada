# SPDX-License-Identifier: Apache-2.0
"""All four engines in one life of the service, one after the other."""

import itertools

import pytest

from engine_steps import ALL, PROGRAMS, expect_tunnel, need
from quorvex_world import diff_states, engines
from tunnel_steps import (
    DIRECT4, FAR4, FIRST_CONNECT_LEAVES, Machine, all_as, await_idle, furnish, own_kilobytes)

pytestmark = pytest.mark.tunnel

# Anonymous memory beyond which the service has grown, not only moved its pages about.
ROOM_KILOBYTES = 256
CONNECTS = 10


@pytest.fixture
def machine(world) -> Machine:
    """A machine with all engines, and one server of each across the cable."""
    need(*ALL)
    furnish(world)
    for kind in ALL[1:]:
        engines.install(world, kind.kit)
    world.servers = [world.tunnel, *(kind(world.server) for kind in ALL[1:])]
    return Machine(world, world.start_service(), world.client("alice"))


def running(machine) -> list[str]:
    """The engines that have a process, by name."""
    names = [engine for engine, program in PROGRAMS.items() if machine.processes_of(program)]
    return names + (["WireGuard"] if machine.engines() else [])


@pytest.mark.parametrize("kill_switch", [False, True], ids=["open", "with the kill switch"])
def test_each_engine_takes_over_from_the_one_before(machine, kill_switch):
    fresh = machine.world.state()
    for server in [*machine.world.servers, *reversed(machine.world.servers)]:
        machine.connect(kill_switch=kill_switch, through=server)
        assert running(machine) == [server.engine]
        expect_tunnel(machine, server)
    machine.disconnect()
    assert diff_states(fresh, machine.world.state()) == FIRST_CONNECT_LEAVES
    assert machine.traffic(FAR4) == all_as(DIRECT4)


def test_the_service_reports_every_engine_as_ready(machine):
    assert machine.summary() == "Sing-box ready; Xray ready; WireGuard ready; OpenVPN ready"


def round_trip(machine, server) -> None:
    machine.connect(through=server)
    assert machine.world.http_get(f"http://{FAR4}/").body == server.seen_as4
    machine.disconnect()


@pytest.mark.slow
def test_ten_tunnels_of_all_engines_leave_the_service_as_small_as_it_was(machine):
    world, service = machine.world, machine.service
    for server in world.servers * 2:
        round_trip(machine, server)
    await_idle(machine)
    before, descriptors, threads = world.state(), service.fds(), len(service.threads())
    kilobytes = own_kilobytes(service.host_pid)
    for server in itertools.islice(itertools.cycle(world.servers), CONNECTS):
        round_trip(machine, server)
    world.poll(lambda: len(service.threads()) <= threads, what="no more threads than before")
    assert service.fds() == descriptors
    assert diff_states(before, world.state()) == ""
    assert own_kilobytes(service.host_pid) - kilobytes <= ROOM_KILOBYTES
    assert service.children() == []
