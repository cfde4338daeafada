# SPDX-License-Identifier: Apache-2.0
"""The look-up of a server's name before the start: what it waits for, and what ends it.

The name server is real as far as the machine can tell, but answers what a test wants, or never.
"""

import time

import pytest

from quorvex_world import BusError
from wireguard_flow import BRING_UP, CLEAR_GROUND, PROFILE

pytestmark = pytest.mark.bus

NAMED = PROFILE.replace("203.0.113.9:", "vpn.test:")
LIMIT = 5.0
# The stub resolver of the C library gives up long after the service does.
PATIENT_RESOLVER = "options timeout:20 attempts:3\nnameserver 10.99.0.2\n"


@pytest.fixture
def server(flow):
    server = flow.world.peer("server")
    flow.world.link(server, "10.99.0.1/24", "10.99.0.2/24")
    return server


@pytest.fixture
def silence(flow, server):
    """A name server that takes every question and never answers."""
    server.dns_server("10.99.0.2", {}, silent=True)
    flow.world.put_file("/etc/resolv.conf", PATIENT_RESOLVER)
    return server.capture("phys0-peer", "udp port 53")


def warnings(flow) -> list[str]:
    return [line for line in flow.world.service.journal if "WARNING" in line]


def test_a_name_is_asked_for_before_the_engine_starts(flow, server):
    server.dns_server("10.99.0.2", {"vpn.test": ["10.99.0.2"]})
    flow.world.use_resolver("10.99.0.2")
    wire = server.capture("phys0-peer", "udp port 53")
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect(NAMED)
    flow.world.wait_call("wg-quick", "up")
    wire.wait_packet("A? vpn.test")
    gate.open()
    assert flow.settled("connected")["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + BRING_UP
    assert warnings(flow) == []


def test_a_literal_address_asks_nobody(flow, silence):
    flow.start()
    flow.connected()
    assert silence.stop() == []


def test_a_name_that_does_not_exist_is_a_warning_and_the_start_goes_on(flow, server):
    server.dns_server("10.99.0.2", {})
    flow.world.use_resolver("10.99.0.2")
    flow.start()
    began = time.monotonic()
    assert flow.connect(NAMED)["stage"] == "connected"
    assert time.monotonic() - began < LIMIT
    [warning] = warnings(flow)
    assert "vpn.test" in warning
    assert "p1" not in warning


def test_two_names_without_an_answer_are_two_warnings(flow, server):
    server.dns_server("10.99.0.2", {})
    flow.world.use_resolver("10.99.0.2")
    second = "\n[Peer]\nPublicKey = 3xXnKHhEyRGlTKcaDUlWqIAMSeFtLi/1nTYpIYIKkHo=\n"
    flow.start()
    config = NAMED + second + "Endpoint = two.test:1\nAllowedIPs = 10.0.0.0/8\n"
    assert flow.connect(config)["stage"] == "connected"
    assert [name in line for name, line in zip(("vpn.test", "two.test"), warnings(flow))] == [
        True, True]


def test_a_silent_name_server_holds_the_start_up_for_five_seconds(flow, silence):
    flow.start()
    began = time.monotonic()
    assert flow.connect(NAMED)["stage"] == "connected"
    assert LIMIT <= time.monotonic() - began < LIMIT + 3
    [warning] = warnings(flow)
    assert "vpn.test" in warning and "no answer within 5 seconds" in warning


def named_peers(count: int) -> str:
    return "".join(f"\n[Peer]\nPublicKey = 3xXnKHhEyRGlTKcaDUlWqIAMSeFtLi/1nTYpIYIKkHo=\n"
                   f"Endpoint = n{number}.test:1\nAllowedIPs = 10.0.{number}.0/24\n" for number in range(count))


def test_many_names_without_an_answer_hold_the_start_up_no_longer(flow, silence):
    flow.start()
    began = time.monotonic()
    assert flow.connect(NAMED + named_peers(40))["stage"] == "connected"
    assert LIMIT <= time.monotonic() - began < LIMIT + 3
    assert len(warnings(flow)) == 9
    assert "The addresses of 33 more VPN servers are not known." in warnings(flow)[-1]


def test_no_more_than_64_names_are_asked_for(flow, server):
    server.dns_server("10.99.0.2", {})
    flow.world.use_resolver("10.99.0.2")
    wire = server.capture("phys0-peer", "udp dst port 53")
    flow.start()
    assert flow.connect(NAMED + named_peers(99))["stage"] == "connected"
    asked = {line.split("A? ")[1].split()[0] for line in wire.stop() if " A? " in line}
    assert len(asked) == 64
    assert "The addresses of 92 more VPN servers are not known." in warnings(flow)[-1]


def test_a_name_with_a_control_byte_is_not_asked_for_and_forges_no_line(flow, silence):
    flow.start()
    config = PROFILE.replace("203.0.113.9:", "a\x0bquorvexvpn-service.FORGED:")
    flow.connect(config)
    assert silence.stop() == []
    assert not any("FORGED" in line for line in flow.world.service.journal)


def test_a_disconnect_ends_the_look_up_and_nothing_starts(flow, silence):
    flow.start()
    flow.begin_connect(NAMED)
    silence.wait_packet("vpn.test")
    began = time.monotonic()
    flow.alice.call("Disconnect")
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert time.monotonic() - began < 1.5
    assert flow.world.calls("wg-quick") == []
    assert flow.files() == []


def test_a_shutdown_ends_the_look_up(flow, silence):
    service = flow.start()
    flow.begin_connect(NAMED)
    silence.wait_packet("vpn.test")
    began = time.monotonic()
    assert service.stop() == 0
    assert time.monotonic() - began < 2
    assert flow.world.calls("wg-quick") == []


def test_the_bus_is_answered_during_the_look_up(flow, silence):
    flow.start()
    flow.begin_connect(NAMED)
    silence.wait_packet("vpn.test")
    for method in ("GetConnectionSnapshot", "GetRuntimeInfo", "GetCapabilities", "GetNetworkPath", "Initialize",
                   "RequestVpnPermission", "GenerateWireGuardKeyPair"):
        began = time.monotonic()
        flow.alice.call(method)
        assert time.monotonic() - began < 0.5, method
    began = time.monotonic()
    with pytest.raises(BusError) as refusal:
        flow.alice.connect("p2", "wireGuard", NAMED)
    assert refusal.value.name.endswith("Busy") and time.monotonic() - began < 0.5
    assert flow.snapshot()["stage"] == "connecting"


def test_abandoned_look_ups_hold_up_neither_a_connect_nor_the_kill_switch(flow, silence):
    """The resolver's threads still wait by then, and nft is fed by others of the same kind."""
    flow.start()
    for _ in range(3):
        flow.begin_connect(NAMED + named_peers(20))
        silence.wait_packet("vpn.test")
        began = time.monotonic()
        flow.alice.call("Disconnect")
        flow.settled("disconnected")
        assert time.monotonic() - began < 1.5
    began = time.monotonic()
    flow.connected(kill_switch=True)
    assert ("info", "Kill switch active for this tunnel.") in flow.logs()
    assert flow.disconnect() == {"stage": "disconnected"}
    assert time.monotonic() - began < 3


# The look-up of the kill switch, after the tunnel is up.

DEAD_AND_GOOD = "nameserver 192.0.2.77\nnameserver 10.99.0.2\n"


def test_the_kill_switch_waits_as_long_as_the_resolver_does(flow, server):
    """A first name server that is dead costs the C library five seconds; the second one knows the answer."""
    server.dns_server("10.99.0.2", {"vpn.test": ["10.99.0.2"]})
    flow.world.put_file("/etc/resolv.conf", DEAD_AND_GOOD)
    flow.world.run(["/media/bin/ip", "route", "add", "192.0.2.77/32", "dev", "phys0"])
    flow.start()
    assert flow.connect(NAMED, kill_switch=True)["stage"] == "connected"
    assert ("info", "Kill switch active for this tunnel.") in flow.logs()
    [script] = [call.stdin for call in flow.world.calls("nft", "-f") if "daddr" in call.stdin]
    assert "ip daddr { 10.99.0.2 } accept" in script


def test_a_disconnect_ends_the_look_up_of_the_kill_switch(flow, server):
    answering = server.dns_server("10.99.0.2", {"vpn.test": ["10.99.0.2"]})
    flow.world.put_file("/etc/resolv.conf", PATIENT_RESOLVER)
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect(NAMED, kill_switch=True)
    flow.world.wait_call("wg-quick", "up")
    answering.kill()
    answering.wait()
    server.dns_server("10.99.0.2", {}, silent=True)
    wire = server.capture("phys0-peer", "udp port 53")
    gate.open()
    wire.wait_packet("vpn.test")
    began = time.monotonic()
    flow.alice.call("GetConnectionSnapshot")
    assert time.monotonic() - began < 0.5
    flow.alice.call("Disconnect")
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert time.monotonic() - began < 3
