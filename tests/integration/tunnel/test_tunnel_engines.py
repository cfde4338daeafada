# SPDX-License-Identifier: Apache-2.0
"""Every engine with a real server: up, traffic, the wire, down, and the engine's sudden end."""

import signal
import time

import pytest

from engine_steps import (
    ALL, FULL_ROUTES, PROCESS_ENGINES, by_engine, engine_process, expect_tunnel, is_to_server, leaks, machine_with)
from quorvex_world import OpenVpnServer, SingBoxServer, WireGuardServer, diff_states
from tunnel_steps import DIRECT4, DIRECT6, FAR4, FAR6, FIRST_CONNECT_LEAVES, REPAIR_REQUIRED, all_as

pytestmark = pytest.mark.tunnel

# An engine's death is looked for once a second.
NOTICED_WITHIN = 2.0


def routes(machine) -> list[str]:
    shown = machine.world.run(["/usr/bin/ip", "-4", "route", "show", "table", "all"]).stdout
    return shown.splitlines()


@by_engine(ALL)
def test_a_connect_goes_through_its_stages_and_ends_with_interface_and_full_route(world, kind):
    machine = machine_with(world, kind)
    machine.connect()
    assert machine.alice.stages == ["preparing", "connecting", "connected"]
    assert machine.alice.logs == [("info", f"Preparing {kind.engine} tunnel."),
                                  ("info", f"{kind.engine} tunnel connected.")]
    assert world.interface_exists(kind.interface)
    for wanted in FULL_ROUTES[kind.engine]:
        assert any(line.startswith(wanted) for line in routes(machine)), routes(machine)
    assert world.path(kind.config).stat().st_mode & 0o777 == 0o600


@by_engine(ALL)
def test_traffic_of_both_families_arrives_from_the_tunnel_or_the_server(world, kind):
    machine = machine_with(world, kind)
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    assert machine.traffic(FAR6) == all_as(DIRECT6)
    machine.connect()
    expect_tunnel(machine)


@by_engine([OpenVpnServer, WireGuardServer])
def test_a_ping_reaches_the_far_side_itself(world, kind):
    """The other two engines answer pings on the client, so a reply says nothing about them."""
    machine = machine_with(world, kind)
    machine.connect()
    inside = world.server.capture("any", f"icmp and host {FAR4}", fence_from=(world.server.name, "lo"))
    assert machine.traffic(FAR4).ping
    assert any(f"IP {kind.seen_as4} > {FAR4}: ICMP echo request" in line for line in inside.packets())


@by_engine(ALL)
@pytest.mark.parametrize("endpoint", ["10.99.0.2", "fd99::2"], ids=["IPv4 server", "IPv6 server"])
def test_only_packets_to_the_server_show_on_the_wire(world, kind, endpoint):
    machine = machine_with(world, kind, endpoint=endpoint)
    wire = world.server.capture("phys0-peer")
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    assert machine.traffic(FAR6) == all_as(DIRECT6)
    in_the_clear = len(wire.packets())
    assert len(leaks(wire.packets(), world.tunnel)) >= 20, "the capture does not see what a leak would be"
    machine.connect()
    expect_tunnel(machine)
    packets = wire.packets()[in_the_clear:]
    assert any(is_to_server(line, world.tunnel) for line in packets)
    assert leaks(packets, world.tunnel) == []


@by_engine(ALL)
def test_after_a_disconnect_the_machine_is_as_it_was(world, kind):
    machine = machine_with(world, kind)
    fresh, files = world.state(), machine.files()
    machine.connect()
    expect_tunnel(machine)
    during = diff_states(fresh, world.state())
    for item in ("links", "addresses", "routes4", "routes6", "processes", "runtime_files"):
        assert f"{item}: +" in during, f"the comparison does not see what a tunnel changes in {item}:\n{during}"
    machine.disconnect()
    assert diff_states(fresh, world.state()) == FIRST_CONNECT_LEAVES
    assert machine.files() == sorted([*files, "/run/quorvexvpn"])
    assert machine.traffic(FAR4) == all_as(DIRECT4)


@by_engine(PROCESS_ENGINES)
def test_an_orderly_end_of_the_service_takes_the_engine_down_too(world, kind):
    machine = machine_with(world, kind)
    before = world.state()
    machine.connect(kill_switch=True)
    assert machine.service.stop() == 0
    left = diff_states(before, world.state()).splitlines()
    assert left == ["processes: -/usr/libexec/quorvexvpn-service", FIRST_CONNECT_LEAVES]
    assert machine.traffic(FAR4) == all_as(DIRECT4)


@by_engine(PROCESS_ENGINES)
def test_the_death_of_an_engine_is_noticed_and_its_file_is_gone(world, kind):
    machine = machine_with(world, kind)
    machine.connect()
    engine = engine_process(machine)
    machine.alice.mark()
    killed = time.monotonic()
    world.run(["/bin/kill", "-KILL", str(engine["pid"])])
    error = machine.alice.wait_stage("error")
    assert error.time - killed < NOTICED_WITHIN
    assert error.value == {"stage": "error", "activeProfileId": "home",
                           "lastError": f"{kind.engine} stopped unexpectedly."}
    machine.alice.wait_log("The active VPN engine stopped unexpectedly.", level="error")
    assert not world.path(kind.config).exists()
    assert machine.summary().endswith(REPAIR_REQUIRED)


@by_engine(PROCESS_ENGINES)
def test_after_the_death_of_an_engine_a_connect_works_as_ever(world, kind):
    machine = machine_with(world, kind)
    machine.connect()
    machine.alice.mark()
    world.run(["/bin/kill", "-KILL", str(engine_process(machine)["pid"])])
    machine.alice.wait_stage("error")
    machine.connect()
    expect_tunnel(machine)
    assert not machine.summary().endswith(REPAIR_REQUIRED)


@pytest.mark.parametrize("options", [
    pytest.param({"tls_crypt": True}, id="with a shared key around TLS"),
    pytest.param({"transport": "tcp"}, id="over TCP"),
])
def test_openvpn_connects_in_its_other_ways(world, options):
    machine = machine_with(world, OpenVpnServer, **options)
    machine.connect()
    expect_tunnel(machine)


def test_the_text_that_sing_box_runs_on_passes_its_own_check(world):
    """The same check as the service's before the start; a broken text shows that it does look."""
    machine = machine_with(world, SingBoxServer)
    machine.connect()
    check = ["/usr/libexec/quorvexvpn/sing-box", "check", "-c"]
    assert world.run([*check, SingBoxServer.config]).stderr == ""
    broken = world.path(SingBoxServer.config).read_text().replace('"quorvex-tun"', '"quorvex-tun","nonsense":1', 1)
    world.put_file("/run/world/broken.json", broken)
    assert world.run([*check, "/run/world/broken.json"], check=False).status == 1


@by_engine(PROCESS_ENGINES)
def test_an_engine_that_is_told_to_end_by_somebody_else_is_noticed_too(world, kind):
    machine = machine_with(world, kind)
    machine.connect()
    machine.alice.mark()
    world.run(["/bin/kill", f"-{signal.SIGTERM.name[3:]}", str(engine_process(machine)["pid"])])
    assert machine.alice.wait_stage("error").value["lastError"] == f"{kind.engine} stopped unexpectedly."
