# SPDX-License-Identifier: Apache-2.0
"""Where packets go while a tunnel is up: what the far server sees, and what a capture on the cable sees."""

from dataclasses import dataclass

import pytest

from tunnel_steps import (
    DIRECT4, DIRECT6, FAR4, FAR6, SERVER, TUNNEL4, TUNNEL6, all_as, is_flow, strangers)

pytestmark = pytest.mark.tunnel

KINDS = ("ICMP echo request", ".80: ", ".7: ")
KINDS6 = ("ICMP6, echo request", ".80: ", ".7: ")


@dataclass
class Routes:
    """What a profile routes, and as whom the far server then sees the client."""

    allowed_ips: str
    ipv4_as: str
    ipv6_as: str


ROUTES = [
    pytest.param(Routes("0.0.0.0/0", TUNNEL4, DIRECT6), id="IPv4 alone"),
    pytest.param(Routes("::/0", DIRECT4, TUNNEL6), id="IPv6 alone"),
    pytest.param(Routes("0.0.0.0/0, ::/0", TUNNEL4, TUNNEL6), id="both families"),
]


def expect_every_kind(packets: list[str], far: str, kinds: tuple[str, ...]) -> None:
    """The capture's positive control: each kind of traffic to `far` is in it."""
    for kind in kinds:
        assert any(far in line and kind in line for line in packets), f"no {kind!r} to {far} in\n" + "\n".join(packets)


def expect_traffic_in_the_clear(machine, wire) -> int:
    """Without a tunnel the capture sees everything; returns how many packets that were."""
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    assert machine.traffic(FAR6) == all_as(DIRECT6)
    packets = wire.packets()
    expect_every_kind(packets, FAR4, KINDS)
    expect_every_kind(packets, FAR6, KINDS6)
    assert not any(is_flow(line) for line in packets)
    return len(packets)


@pytest.mark.parametrize("routes", ROUTES)
def test_only_the_flow_to_the_server_shows_on_the_wire(machine, routes):
    wire = machine.world.server.capture("phys0-peer")
    before = expect_traffic_in_the_clear(machine, wire)
    machine.connect(machine.wireguard.profile(allowed_ips=routes.allowed_ips))
    assert machine.traffic(FAR4) == all_as(routes.ipv4_as)
    assert machine.traffic(FAR6) == all_as(routes.ipv6_as)
    packets = wire.packets()[before:]
    assert any(is_flow(line) for line in packets)
    # A family that the profile does not route goes on as before: that is the profile's wish, not a leak.
    outside = {far for far, source in ((FAR4, routes.ipv4_as), (FAR6, routes.ipv6_as))
               if source in (DIRECT4, DIRECT6)}
    leaked = [line for line in strangers(packets) if not any(far in line for far in outside)]
    assert leaked == []
    for far, kinds in ((FAR4, KINDS), (FAR6, KINDS6)):
        if far in outside:
            expect_every_kind(packets, far, kinds)


def test_the_server_and_the_client_shake_hands(machine):
    assert machine.wireguard.handshake_age() is None
    machine.connect()
    machine.traffic(FAR4)
    assert machine.wireguard.handshake_age() < 10
    received, sent = machine.wireguard.transfer()
    assert received > 0 and sent > 0


def test_inside_the_tunnel_every_packet_bears_the_tunnels_addresses(machine):
    inside = machine.world.server.capture("wgs")
    machine.connect()
    machine.traffic(FAR4)
    machine.traffic(FAR6)
    packets = inside.packets()
    expect_every_kind(packets, FAR4, KINDS)
    expect_every_kind(packets, FAR6, KINDS6)
    requests = [line for line in packets if f"> {FAR4}" in line or f"> {FAR6}" in line]
    assert [line for line in requests if not line.startswith((f"IP {TUNNEL4}", f"IP6 {TUNNEL6}"))] == []


def test_a_server_with_an_ipv6_address_carries_the_tunnel_as_well(machine):
    wire = machine.world.server.capture("phys0-peer")
    before = expect_traffic_in_the_clear(machine, wire)
    machine.connect(machine.wireguard.profile().replace("10.99.0.2:51820", "[fd99::2]:51820"))
    assert machine.traffic(FAR4) == all_as(TUNNEL4)
    assert machine.traffic(FAR6) == all_as(TUNNEL6)
    packets = wire.packets()[before:]
    assert any(is_flow(line, "fd99::2.51820") for line in packets)
    assert strangers(packets, "fd99::2.51820") == []


def test_datagrams_larger_than_the_tunnels_mtu_pass_in_pieces_and_inside(machine):
    wire = machine.world.server.capture("phys0-peer")
    text = "x" * 4000
    assert machine.world.udp_exchange(FAR4, 7, text) == f"{DIRECT4} {text}"
    before = len(strangers(wire.packets()))
    assert before >= 2
    machine.connect()
    assert machine.world.udp_exchange(FAR4, 7, text) == f"{TUNNEL4} {text}"
    assert len(strangers(wire.packets())) == before


def test_every_user_of_the_machine_goes_through_the_tunnel(machine):
    machine.connect()
    seen = {user: machine.world.http_get(f"http://{FAR4}/", user=user).body for user in ("alice", "bob", "root")}
    assert seen == dict.fromkeys(("alice", "bob", "root"), TUNNEL4)


def test_the_dns_helper_gets_the_profiles_servers_in_its_order(machine):
    machine.connect(machine.wireguard.profile(dns="10.8.0.9, fd08::1 ,10.8.0.1"))
    assert machine.dns_calls() == [["apply-wireguard", "10.8.0.9", "fd08::1", "10.8.0.1"]]
    machine.disconnect()
    assert machine.dns_calls()[1:] == [["revert-wireguard"]]


def test_what_counts_as_a_stranger_is_everything_but_the_flow_and_the_neighbours():
    """The tests above rest on this sieve, so it is shown to let leaks through."""
    flow = [f"IP 10.99.0.1.40000 > {SERVER}: UDP, length 148", f"IP {SERVER} > 10.99.0.1.40000: UDP, length 92"]
    noise = ["ARP, Request who-has 10.99.0.2 tell 10.99.0.1, length 28",
             "IP6 fd99::1 > ff02::1:ff00:2: ICMP6, neighbor solicitation, who has fd99::2, length 32",
             "IP6 fe80::1 > ff02::16: HBH ICMP6, multicast listener report v2, 1 group record(s), length 28"]
    leaks = [f"IP 10.99.0.1.40000 > {FAR4}.7: UDP, length 5", f"IP 10.99.0.1 > {FAR4}: ICMP echo request, id 1, seq 1",
             "IP 10.99.0.1.40000 > 10.99.0.2.518201: UDP, length 5", f"IP 10.99.0.1.4000 > {SERVER}: Flags [S], seq 1",
             f"IP6 fd99::1 > {FAR6}: ICMP6, echo request, id 1, seq 1, length 64"]
    assert strangers(flow + noise + leaks) == leaks
