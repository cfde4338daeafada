# SPDX-License-Identifier: Apache-2.0
"""What is somebody else's stays, also where it looks like the service's own or came while a tunnel stood."""

import json

import pytest

from bystander import INSTALLED, IP, SING_BOX_TUN
from engine_steps import by_engine
from leftover_events import crash, engine_killed, service_killed
from leftover_steps import KINDS, late_scene, scene, with_added
from quorvex_world import OpenVpnServer, SingBoxServer, WireGuardServer, XrayServer
from tunnel_steps import BEHIND_GATEWAY

pytestmark = pytest.mark.tunnel

by_event = pytest.mark.parametrize("event", [
    pytest.param(engine_killed, id="engine killed"), pytest.param(service_killed, id="service killed")])
OWN_ROUTE = [BEHIND_GATEWAY, "via", "10.99.0.2", "dev", "phys0"]


@by_event
@by_engine(KINDS)
def test_who_came_while_the_tunnel_stood_is_left_alone(world, kind, event):
    one = late_scene(world, kind, kill_switch=True)
    one.up()
    one.bystander_comes()
    event(one)
    one.expect_as_before()


def test_a_route_to_the_server_that_was_there_before_stays(world):
    """OpenVPN adds the same one for itself; whose it is can be told by who was first."""
    one = scene(world, OpenVpnServer, kill_switch=False)
    world.run([IP, "route", "add", *OWN_ROUTE])
    one.before = world.state()
    one.up()
    engine_killed(one)
    one.expect_as_before()
    one.up()
    crash(one)
    one.restart()
    one.expect_as_before()
    assert any(line.startswith(f"{BEHIND_GATEWAY} via") for line in world.state().routes4)


@by_engine([OpenVpnServer, SingBoxServer, XrayServer])
def test_an_interface_of_the_tunnels_name_is_left_to_whoever_made_it(world, kind):
    """It would pass for the new tunnel: a connect that saw it would be a lie."""
    one = scene(world, kind, kill_switch=True)
    world.run([IP, "tuntap", "add", "dev", kind.interface, "mode", "tun"])
    one.before = world.state()
    one.alice.connect("home", one.world.tunnel.protocol, one.world.tunnel.profile(), kill_switch=True)
    error = one.alice.wait_stage("error").value["lastError"]
    assert error == f"Another program holds the tunnel interface {kind.interface}."
    assert "connected" not in one.alice.stages
    one.expect_as_before()
    world.run([IP, "link", "delete", kind.interface])
    one.before = world.state()
    one.expect_next_connect()


def test_anothers_full_tunnel_stays_when_ours_dies(world):
    """Its rules are of the same form as ours, and like ours they came after our connect had begun."""
    one = late_scene(world, WireGuardServer, kill_switch=True)
    one.up()
    connected = world.state()
    world.put_file("/etc/wireguard/other.conf", one.wireguard.profile(dns=None), mode=0o600)
    world.run(["/usr/bin/wg-quick", "up", "other"])
    one.before = with_added(one.before, connected, world.state())
    assert sum("suppress_prefixlength 0" in line for line in one.before.rules4) == 1
    engine_killed(one)
    assert one.difference() == ""


def test_the_table_that_another_sing_box_put_in_the_place_of_ours_stays(world):
    """Each takes the table of that name for its own when it starts; so the last one to start has it, and needs it."""
    one = late_scene(world, SingBoxServer, kill_switch=False)
    one.up()
    other = start_redirecting(world)
    theirs = table_and_rules(world)
    assert "other0" in theirs and SingBoxServer.interface not in theirs
    engine_killed(one)
    assert other.alive and table_and_rules(world) == theirs
    assert SingBoxServer.interface not in world.run(["/media/bin/ip", "rule"]).stdout


def start_redirecting(world):
    (tun,) = SING_BOX_TUN["inbounds"]
    file = "/run/somebody/redirecting.json"
    world.put_file(file, json.dumps({**SING_BOX_TUN, "inbounds": [{**tun, "auto_redirect": True}]}))
    process = world.spawn([f"{INSTALLED}/sing-box", "run", "-c", file, "--disable-color"])
    process.wait_line("sing-box started")
    return process


def table_and_rules(world) -> str:
    """Without the sets of the machine's own addresses, which follow what there is."""
    state = world.state()
    chains = state.nftables[state.nftables.index("\tchain output {"):]
    return "\n".join([*chains, *(line for line in state.rules4 + state.rules6 if "2122" in line)])
