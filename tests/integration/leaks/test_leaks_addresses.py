# SPDX-License-Identifier: Apache-2.0
"""Server addresses that the firewall cannot read, and a server that answers from another one than was asked."""

import pytest

from engine_steps import expect_tunnel, need
from leak_steps import leak_machine
from leak_wire import ACTIVE, SERVERS, closed_times
from quorvex_world import OpenVpnServer, WireGuardServer
from tunnel_steps import FAR4, all_as, nothing

pytestmark = pytest.mark.tunnel

# The two spellings of one address; GLib and the engines read both, nft only the second.
ODD, PLAIN = "2001:db8::192.0.2.1", "2001:db8::c000:201"
REFUSED = ("warning", "Kill switch could not be applied: The nftables leak-protection command failed.")
SERVER, ANOTHER = SERVERS


def tables(world) -> list[str]:
    return [line for line in world.state().nftables if line.startswith("table ")]


def test_rules_that_nft_refuses_leave_the_tunnel_up_and_everything_else_as_it_was(world):
    need(WireGuardServer)
    machine = leak_machine(world, WireGuardServer)
    world.server.add_address(f"{PLAIN}/128")
    machine.connect()
    without = tables(world)
    machine.disconnect()
    machine.alice.mark()
    machine.connect(world.tunnel.profile(host=ODD), kill_switch=True)
    assert REFUSED in machine.alice.logs and ("info", ACTIVE) not in machine.alice.logs
    assert machine.snapshot()["stage"] == "connected"
    assert tables(world) == without
    expect_tunnel(machine)
    machine.disconnect()
    machine.await_all()


def test_beside_an_address_that_nft_reads_the_odd_one_is_written_so_that_it_does(world):
    need(OpenVpnServer)
    machine = leak_machine(world, OpenVpnServer)
    machine.connect(world.tunnel.profile(host=SERVER, more_hosts=(ODD,)), kill_switch=True)
    machine.alice.wait_log(ACTIVE)
    ruleset = closed_times(world)[-1].ruleset
    assert f"ip daddr {{ {SERVER} }} accept" in ruleset and f"ip6 daddr {{ {PLAIN} }} accept" in ruleset
    expect_tunnel(machine)
    machine.rounds()
    assert machine.leaks() == []


def answer_from_another_address(world) -> None:
    """Each packet of the tunnel's leaves the server with another source than the client knows."""
    world.server.run(["/media/sbin/nft", "-f", "-"], input=f"""
table ip another {{
  chain source {{
    type filter hook output priority 0;
    ip saddr {SERVER} udp sport {world.tunnel.port} ip saddr set {ANOTHER}
  }}
}}""")


def move_server(machine) -> None:
    """Connected already; from now on the server answers from its other address."""
    expect_tunnel(machine)
    answer_from_another_address(machine.world)
    # The answers of this exchange may already come from there.
    machine.traffic(FAR4, timeout=1)


def test_wireguard_follows_a_server_that_answers_from_another_address(world):
    need(WireGuardServer)
    machine = leak_machine(world, WireGuardServer)
    machine.connect()
    move_server(machine)
    assert machine.traffic(FAR4) == all_as(WireGuardServer.seen_as4)
    assert f"{ANOTHER}:" in endpoints(world)


def test_wireguard_behind_the_closed_firewall_follows_into_silence_until_the_next_connect(world):
    """The table holds the addresses that the profile names, and the engine may not go where it would."""
    need(WireGuardServer)
    machine = leak_machine(world, WireGuardServer)
    wire = world.server.capture("phys0-peer", f"udp and dst host {ANOTHER}")
    machine.connect(kill_switch=True)
    move_server(machine)
    machine.rounds()
    assert machine.traffic(FAR4, timeout=1) == nothing()
    assert f"{ANOTHER}:" in endpoints(world)
    assert wire.packets() == [] and machine.leaks() == []
    world.server.run(["/media/sbin/nft", "delete", "table", "ip", "another"])
    machine.connect(kill_switch=True)
    expect_tunnel(machine)


def test_openvpn_takes_no_answer_from_another_address(world):
    need(OpenVpnServer)
    machine = leak_machine(world, OpenVpnServer)
    wire = world.server.capture("phys0-peer", f"udp and dst host {ANOTHER}")
    machine.connect(kill_switch=True)
    move_server(machine)
    machine.rounds()
    assert machine.traffic(FAR4, timeout=1) == nothing()
    assert wire.packets() == [] and machine.leaks() == []


def endpoints(world) -> str:
    return world.run(["/media/bin/wg", "show", WireGuardServer.interface, "endpoints"]).stdout
