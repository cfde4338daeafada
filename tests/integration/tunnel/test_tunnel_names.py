# SPDX-License-Identifier: Apache-2.0
"""Servers that a profile names by host name, asked of a real name server, with every engine."""

import re
import time

import pytest

from engine_steps import ALL, PROCESS_ENGINES, by_engine, expect_tunnel, leaks, machine_with
from quorvex_world import NameServer, OpenVpnServer, SingBoxServer, WireGuardServer, XrayServer
from tunnel_steps import DIRECT4, FAR4, SECOND_ADDRESS, all_as

pytestmark = pytest.mark.tunnel

RESOLVER = "10.99.0.2"
# Beyond the server, so that questions to it take the tunnel once there is one; the other is on the cable itself.
FAR_RESOLVER = FAR4
NAMES = {"four.test": ["10.99.0.2"], "six.test": ["fd99::2"], "both.test": ["10.99.0.2", "fd99::2"],
         "several.test": ["10.99.0.2", SECOND_ADDRESS], "bare.test": [], "web.test": [FAR4]}
# The C library's own patience, much longer than the service's.
PATIENT = f"options timeout:20 attempts:3\nnameserver {RESOLVER}\n"


def machine_that_asks(world, kind, resolver: str = RESOLVER):
    several = {"listen": ("10.99.0.2", SECOND_ADDRESS, "fd99::2")} if kind is SingBoxServer else {}
    machine = machine_with(world, kind, **several)
    world.names = NameServer(world.server, resolver, NAMES)
    world.use_resolver(resolver)
    return machine


def warnings(machine) -> list[str]:
    return [line for line in machine.service.journal if "WARNING" in line]


def asked_for(world, name: str) -> set[str]:
    return {kind for kind, asked, _ in world.names.queries if asked == name}


@by_engine(ALL)
@pytest.mark.parametrize("name, resolver", [
    pytest.param("four.test", FAR_RESOLVER, id="IPv4"),
    pytest.param("six.test", FAR_RESOLVER, id="IPv6"),
    pytest.param("both.test", FAR_RESOLVER, id="both families"),
    pytest.param("several.test", FAR_RESOLVER, id="several addresses"),
    pytest.param("both.test", RESOLVER, id="a resolver on the cable"),
])
def test_a_named_server_is_found_and_its_tunnel_carries_traffic(world, kind, name, resolver):
    machine = machine_that_asks(world, kind, resolver)
    machine.connect(world.tunnel.profile(host=name))
    expect_tunnel(machine)
    assert asked_for(world, name) == {"A", "AAAA"}
    assert warnings(machine) == []
    machine.disconnect()
    assert machine.traffic(FAR4) == all_as(DIRECT4)


@by_engine(PROCESS_ENGINES)
def test_a_named_server_is_found_inside_the_closed_firewall_too(world, kind):
    machine = machine_that_asks(world, kind)
    machine.connect(world.tunnel.profile(host="both.test"), kill_switch=True)
    assert ("info", "Kill switch active for this tunnel.") in machine.alice.logs
    expect_tunnel(machine)
    ruleset = "\n".join(world.state().nftables)
    assert "ip daddr 10.99.0.2 accept" in ruleset and "ip6 daddr fd99::2 accept" in ruleset


@by_engine([SingBoxServer, XrayServer])
@pytest.mark.parametrize("name", ["no.test", "bare.test"])
def test_without_an_address_the_start_goes_on_with_one_warning(world, kind, name):
    """These two come up without a server; what would leave through them stays where it is."""
    machine = machine_that_asks(world, kind)
    machine.connect(world.tunnel.profile(host=name))
    (warning,) = warnings(machine)
    assert name in warning
    assert world.http_get(f"http://{FAR4}/", timeout=0.5).status == 0
    machine.disconnect()
    assert machine.traffic(FAR4) == all_as(DIRECT4)


@pytest.mark.slow
def test_wireguard_gives_up_on_a_name_without_an_address(world):
    """The tool itself asks once more; it is the one to say that there is no such server."""
    machine = machine_that_asks(world, WireGuardServer)
    machine.alice.connect("home", "wireGuard", world.tunnel.profile(host="no.test"))
    assert machine.alice.wait_stage("error", timeout=30).value["lastError"] == "WireGuard failed to connect."
    (warning,) = warnings(machine)
    assert "no.test" in warning
    assert machine.traffic(FAR4) == all_as(DIRECT4)


@pytest.mark.slow
def test_openvpn_is_given_thirty_seconds_to_find_its_server(world):
    machine = machine_that_asks(world, OpenVpnServer)
    machine.alice.connect("home", "openVpn", world.tunnel.profile(host="no.test"))
    error = machine.alice.wait_stage("error", timeout=60).value["lastError"]
    assert error == "OpenVPN did not establish its TUN interface in time."
    (warning,) = warnings(machine)
    assert "no.test" in warning
    assert not world.path(OpenVpnServer.config).exists()


def test_openvpn_finds_the_second_server_when_the_first_has_no_address(world):
    machine = machine_that_asks(world, OpenVpnServer)
    machine.connect(world.tunnel.profile(host="no.test", more_hosts=("four.test",)))
    expect_tunnel(machine)
    (warning,) = warnings(machine)
    assert "no.test" in warning


@by_engine(ALL)
def test_a_silent_resolver_holds_up_neither_a_disconnect_nor_any_other_call(world, kind):
    machine = machine_with(world, kind)
    world.server.dns_server(RESOLVER, {}, silent=True)
    world.put_file("/etc/resolv.conf", PATIENT)
    wire = world.server.capture("phys0-peer", "udp port 53")
    machine.alice.connect("home", kind.protocol, world.tunnel.profile(host="silent.test"))
    wire.wait_packet("A? silent.test")
    until = time.monotonic() + 1
    while time.monotonic() < until:
        for method in ("GetConnectionSnapshot", "GetRuntimeInfo", "GetCapabilities", "GetNetworkPath"):
            began = time.monotonic()
            machine.alice.call(method)
            assert time.monotonic() - began < 0.5, method
    assert machine.snapshot()["stage"] == "connecting"
    began = time.monotonic()
    machine.disconnect()
    assert time.monotonic() - began < 3
    assert machine.snapshot() == {"stage": "disconnected"}
    assert machine.traffic(FAR4) == all_as(DIRECT4)


def test_a_silent_resolver_is_asked_for_four_names_at_a_time(world):
    """Those that nobody waits for any more included: more of them would hold up what the kill switch needs."""
    names = [f"n{number}.test" for number in range(12)]
    machine = machine_with(world, OpenVpnServer)
    world.server.dns_server(RESOLVER, {}, silent=True)
    world.put_file("/etc/resolv.conf", PATIENT)
    wire = world.server.capture("phys0-peer", "udp port 53")
    for _ in range(2):
        machine.alice.connect("home", "openVpn", world.tunnel.profile(host=names[0], more_hosts=tuple(names[1:])))
        wire.wait_packet(f"A? {names[3]}")
        machine.disconnect()
    assert set(re.findall(r"A\? (\S+\.test)", "\n".join(wire.stop()))) == set(names[:4])


@by_engine(ALL)
def test_whoever_asks_for_the_servers_own_name_through_the_tunnel_gets_an_answer(world, kind):
    machine = machine_that_asks(world, kind, FAR_RESOLVER)
    machine.connect(world.tunnel.profile(host="four.test"))
    for user in ("alice", "root"):
        began = time.monotonic()
        answer = world.run(["/usr/bin/getent", "ahostsv4", "four.test"], user=user).stdout
        assert answer.startswith("10.99.0.2 ")
        assert time.monotonic() - began < 1.5
    expect_tunnel(machine)


@by_engine(ALL)
def test_questions_for_names_take_the_tunnel(world, kind):
    machine = machine_that_asks(world, kind, FAR_RESOLVER)
    wire = world.server.capture("phys0-peer")
    ask = ["/usr/bin/getent", "ahostsv4", "web.test"]
    assert world.run(ask).stdout.startswith(FAR4)
    in_the_clear = len(wire.packets())
    assert any("A? web.test." in line for line in leaks(wire.packets(), world.tunnel))
    machine.connect()
    assert world.run(ask).stdout.startswith(FAR4)
    assert leaks(wire.packets()[in_the_clear:], world.tunnel) == []
    assert {asker for _, name, asker in world.names.queries if name == "web.test"} == {DIRECT4, kind.seen_as4}
