# SPDX-License-Identifier: Apache-2.0
"""Tunnels that change hands: disconnects that come early or twice, another server, the same server again and again."""

import pytest

from quorvex_world import WireGuardServer, diff_states, wireguard
from tunnel_steps import (
    CONFIG, DIRECT4, FAR4, SERVER, TUNNEL4, all_as, await_idle, is_flow, own_kilobytes, strangers)

pytestmark = pytest.mark.tunnel

SECOND_SERVER = "10.98.0.2.51820"


@pytest.mark.parametrize("tool, words, interface", [
    pytest.param("/usr/bin/wg-quick", ("up",), False, id="before up has acted"),
    pytest.param("/usr/sbin/ip", ("-4", "route", "show"), True, id="after up has acted"),
])
def test_a_disconnect_during_a_connect_wins_and_leaves_nothing(settled, tool, words, interface):
    gate = settled.world.recorder(tool).gate(*words)
    before = settled.world.state()
    stages = len(settled.alice.stages)
    settled.alice.connect("home", "wireGuard", settled.wireguard.profile())
    held = settled.world.wait_call(tool, *words)
    assert settled.world.interface_exists("quorvexvpn") == interface
    disconnect = settled.alice.call_async("Disconnect")
    settled.alice.wait_stage("disconnecting")
    assert held.ended is None
    gate.open()
    disconnect.result()
    settled.alice.wait_log("VPN tunnel disconnected.")
    assert settled.alice.stages[stages:] == ["preparing", "connecting", "disconnecting", "disconnected"]
    assert diff_states(before, settled.world.state()) == ""
    assert settled.traffic(FAR4) == all_as(DIRECT4)


def test_two_quick_disconnects_are_one(settled):
    before = settled.world.state()
    settled.connect()
    stages = len(settled.alice.stages)
    settled.alice.mark()
    first, second = settled.alice.call_async("Disconnect"), settled.alice.call_async("Disconnect")
    assert (first.result(), second.result()) == (None, None)
    settled.alice.wait_log("VPN tunnel disconnected.")
    assert settled.snapshot() == {"stage": "disconnected"}
    assert settled.alice.stages[stages:] == ["disconnecting", "disconnected"]
    assert diff_states(before, settled.world.state()) == ""


@pytest.fixture
def second_server(machine, monkeypatch) -> WireGuardServer:
    """A server of its own on a cable of its own; the same far addresses answer there."""
    peer = machine.world.peer("second")
    machine.world.link(peer, "10.98.0.1/24", "10.98.0.2/24", device="phys1", metric=200)
    peer.add_address(f"{FAR4}/32")
    peer.http_server(FAR4)
    # All hosts of a world share /run, so the second engine needs a name of its own there.
    monkeypatch.setattr(wireguard, "DEVICE", "wgs2")
    return WireGuardServer(peer, endpoint="10.98.0.2")


def test_a_second_connect_replaces_the_tunnel(machine, second_server):
    first_wire = machine.world.server.capture("phys0-peer")
    second_wire = second_server.peer.capture("phys1-peer")
    machine.connect()
    assert machine.world.http_get(f"http://{FAR4}/").body == TUNNEL4
    assert any(is_flow(line) for line in first_wire.packets())
    engines = machine.engines()
    machine.connect(second_server.profile(), name="work")
    assert machine.snapshot()["activeProfileId"] == "work"
    assert len(machine.engines()) == 1 and machine.engines() != engines
    silent_since = len(first_wire.packets())
    assert machine.world.http_get(f"http://{FAR4}/").body == TUNNEL4
    assert any(is_flow(line, SECOND_SERVER) for line in second_wire.packets())
    assert strangers(second_wire.packets(), SECOND_SERVER) == []
    late = [line for line in first_wire.packets()[silent_since:] if is_flow(line, SERVER)]
    assert late == [] and strangers(first_wire.packets()) == []
    apply = ["apply-wireguard", "10.8.0.1"]
    assert machine.dns_calls() == [apply, ["revert-wireguard"], apply]
    assert second_server.server_public in machine.world.path(CONFIG).read_text()


def test_a_second_connect_that_fails_leaves_no_tunnel_at_all(settled):
    """The ground is cleared for the new tunnel before anything can go wrong with it; this is known and stated."""
    before = settled.world.state()
    settled.connect()
    settled.alice.mark()
    settled.alice.connect("broken", "wireGuard", settled.wireguard.profile(address="not-an-address"))
    error = settled.alice.wait_stage("error").value
    assert (error["activeProfileId"], error["lastError"]) == ("broken", "WireGuard failed to connect.")
    assert diff_states(before, settled.world.state()) == ""
    assert settled.traffic(FAR4) == all_as(DIRECT4)
    assert not settled.summary().endswith("repair required")


@pytest.mark.slow
def test_connecting_again_and_again_keeps_the_service_as_small_as_it_was(settled):
    world, service = settled.world, settled.service
    for _ in range(3):
        settled.connect()
        settled.disconnect()
    await_idle(settled)
    before, descriptors, kilobytes = world.state(), service.fds(), own_kilobytes(service.host_pid)
    threads = len(service.threads())
    for _ in range(10):
        settled.connect(kill_switch=True)
        assert world.http_get(f"http://{FAR4}/").body == TUNNEL4
        settled.disconnect()
    world.poll(lambda: len(service.threads()) <= threads, what="no more threads than before")
    assert service.fds() == descriptors
    assert diff_states(before, world.state()) == ""
    assert own_kilobytes(service.host_pid) - kilobytes <= 256
    assert service.children() == []
