# SPDX-License-Identifier: Apache-2.0
"""The service ends while a tunnel is up, in order or not, and the next one finds what is left."""

import signal

import pytest

from quorvex_world import diff_states
from tunnel_steps import CONFIG, DIRECT4, FAR4, REPAIR_REQUIRED, TUNNEL4, Machine, all_as, is_flow

pytestmark = pytest.mark.tunnel

ADMINISTRATOR_REPAIR = (
    "The WireGuard interface exists without its private configuration; administrator repair is required.")


def started_again(machine: Machine) -> Machine:
    return Machine(machine.world, machine.world.start_service(), machine.alice)


@pytest.fixture
def before(machine):
    """The state without a service but with the private directory, which the first connect makes for good."""
    machine.connect()
    machine.disconnect()
    machine.service.stop()
    return machine.world.state()


@pytest.fixture
def connected(machine, before) -> Machine:
    """A machine with a tunnel and a kill switch."""
    again = started_again(machine)
    again.connect(kill_switch=True)
    assert again.traffic(FAR4) == all_as(TUNNEL4)
    return again


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_an_orderly_end_takes_the_tunnel_down_first(connected, before, number):
    connected.alice.mark()
    connected.service.signal(number)
    assert connected.service.wait() == 0
    assert connected.alice.stages[-2:] == ["disconnecting", "disconnected"]
    assert diff_states(before, connected.world.state()) == ""
    assert connected.traffic(FAR4) == all_as(DIRECT4)


def test_a_killed_service_leaves_its_tunnel_and_the_next_one_clears_it(connected, before):
    connected.service.kill()
    connected.service.wait()
    left = diff_states(before, connected.world.state())
    for item in ("links", "routes4", "rules4", "nftables", "processes", "runtime_files", "wireguard_files"):
        assert f"{item}: +" in left
    assert connected.world.path(CONFIG).exists()
    assert connected.traffic(FAR4) == all_as(TUNNEL4), "until somebody cleans up, traffic stays protected"
    helped = len(connected.dns_calls())
    again = started_again(connected)
    assert diff_states(before, connected.world.state()) == "processes: +/usr/libexec/quorvexvpn-service"
    assert connected.dns_calls()[helped:] == [["revert-wireguard"]]
    assert connected.traffic(FAR4) == all_as(DIRECT4)
    assert again.snapshot() == {"stage": "disconnected"}
    assert not again.summary().endswith(REPAIR_REQUIRED)
    assert again.service.stop() == 0
    assert diff_states(before, connected.world.state()) == ""


def test_after_a_recovery_a_connect_works_as_ever(connected):
    connected.service.kill()
    connected.service.wait()
    again = started_again(connected)
    again.connect()
    assert again.traffic(FAR4) == all_as(TUNNEL4)
    again.disconnect()
    assert again.traffic(FAR4) == all_as(DIRECT4)


def test_what_an_engine_left_that_died_with_the_service_is_cleared_too(connected, before):
    """Interface and routes go with the engine, so there is no tunnel to take down; wg-quick's rules and tables stay."""
    connected.service.kill()
    connected.service.wait()
    for engine in connected.engines():
        connected.world.run(["/bin/kill", "-KILL", str(engine)])
    connected.world.poll(lambda: not connected.world.interface_exists("quorvexvpn"), what="the interface to go")
    left = diff_states(before, connected.world.state())
    for item in ("rules4", "rules6", "nftables", "runtime_files", "wireguard_files"):
        assert f"{item}: +" in left
    again = started_again(connected)
    assert again.snapshot() == {"stage": "disconnected"}
    assert connected.traffic(FAR4) == all_as(DIRECT4)
    assert again.service.stop() == 0
    assert diff_states(before, connected.world.state()) == ""


def test_an_interface_without_its_file_is_left_to_the_administrator(machine, before):
    machine.world.run(["/usr/bin/ip", "tuntap", "add", "dev", "quorvexvpn", "mode", "tun"])
    by_hand = machine.world.state()
    again = started_again(machine)
    assert again.snapshot() == {"stage": "error", "lastError": ADMINISTRATOR_REPAIR}
    assert again.summary().endswith(REPAIR_REQUIRED)
    again.alice.mark()
    again.alice.connect("home", "wireGuard", again.wireguard.profile())
    error = again.alice.wait_stage("error").value
    assert error["lastError"] == ADMINISTRATOR_REPAIR + " The failed engine could not be fully cleaned up."
    assert again.service.stop() == 1
    assert diff_states(by_hand, machine.world.state()) == ""


def test_once_the_administrator_has_repaired_it_a_connect_works(machine, before):
    machine.world.run(["/usr/bin/ip", "tuntap", "add", "dev", "quorvexvpn", "mode", "tun"])
    again = started_again(machine)
    machine.world.run(["/usr/bin/ip", "link", "delete", "quorvexvpn"])
    again.connect()
    assert again.traffic(FAR4) == all_as(TUNNEL4)
    assert not again.summary().endswith(REPAIR_REQUIRED)


def test_an_end_during_a_connect_waits_for_it_and_leaves_nothing(machine, before):
    gate = machine.world.recorder("/usr/bin/wg-quick").gate("up")
    again = started_again(machine)
    wire = machine.world.server.capture("phys0-peer")
    again.alice.connect("home", "wireGuard", again.wireguard.profile())
    machine.world.wait_call("wg-quick", "up")
    stages = len(again.alice.stages)
    again.service.terminate()
    again.alice.wait_stage("disconnecting")
    gate.open()
    assert again.service.wait() == 0
    assert again.alice.stages[stages:] == ["disconnecting", "disconnected"]
    assert diff_states(before, machine.world.state()) == ""
    assert not any(is_flow(line) for line in wire.packets())
