# SPDX-License-Identifier: Apache-2.0
"""Which programs an engine needs, as GetRuntimeInfo tells it and Connect finds it."""

import pytest

from quorvex_world import BusError
from wireguard_flow import (
    AWG_DIRECTORY, DIRECTORY, DNS_HELPER, IP, NFT, PROFILE, RESOLVECTL, TIMEOUT, WG_QUICK, failure)

pytestmark = pytest.mark.bus

WG = "/usr/bin/wg"
OPENVPN = "/usr/sbin/openvpn"
SING_BOX = f"{AWG_DIRECTORY}/sing-box"
XRAY = f"{AWG_DIRECTORY}/xray"
GEO_IP, GEO_SITE = f"{AWG_DIRECTORY}/geoip.dat", f"{AWG_DIRECTORY}/geosite.dat"
ENGINES = ["singBox", "xray", "wireGuard", "openVpn"]


def put_all_engines(flow) -> None:
    for program in (SING_BOX, XRAY, OPENVPN):
        flow.world.stand_in(program)
    for data in (GEO_IP, GEO_SITE):
        flow.world.put_file(data, b"data")


def available(flow) -> list[str]:
    """The engines that the service finds, checked against both ways of telling it."""
    info = flow.alice.call("GetRuntimeInfo")
    found = [engine for engine in ENGINES if info[f"{engine}RuntimeDetected"]]
    names = ["Sing-box", "Xray", "WireGuard", "OpenVPN"]
    words = [f"{name} {'ready' if engine in found else 'missing'}"
             for name, engine in zip(names, ENGINES)]
    assert info["summary"] == "; ".join(words)
    assert info["nativeBridgeReady"] is (found == ENGINES)
    return found


def without(*engines: str) -> list[str]:
    return [engine for engine in ENGINES if engine not in engines]


def test_with_everything_installed_every_engine_is_ready(flow):
    put_all_engines(flow)
    flow.start()
    assert available(flow) == ENGINES


@pytest.mark.parametrize("path, left", [
    (SING_BOX, without("singBox")),
    (XRAY, without("xray")),
    (GEO_IP, without("xray")),
    (GEO_SITE, without("xray")),
    (WG_QUICK, without("wireGuard")),
    (WG, without("wireGuard")),
    (OPENVPN, without("openVpn")),
    (DNS_HELPER, without("wireGuard", "openVpn")),
    (RESOLVECTL, without("wireGuard", "openVpn")),
    (TIMEOUT, without("wireGuard", "openVpn")),
    (IP, []),
    (NFT, ENGINES),
], ids=lambda value: value if isinstance(value, str) else "")
def test_each_missing_program_takes_its_engines_with_it(flow, path, left):
    put_all_engines(flow)
    flow.start()
    flow.world.remove_tool(path)
    assert available(flow) == left


@pytest.mark.parametrize("path, left", [
    (SING_BOX, without("singBox")),
    (WG_QUICK, without("wireGuard")),
    (WG, without("wireGuard")),
    (DNS_HELPER, without("wireGuard", "openVpn")),
    (RESOLVECTL, without("wireGuard", "openVpn")),
    (TIMEOUT, without("wireGuard", "openVpn")),
    (GEO_IP, ENGINES),
], ids=lambda value: value if isinstance(value, str) else "")
def test_a_program_that_may_not_be_executed_is_a_missing_one(flow, path, left):
    put_all_engines(flow)
    flow.start()
    flow.world.chmod_tool(path, 0o644)
    assert available(flow) == left


@pytest.mark.parametrize("path", [GEO_IP, GEO_SITE])
def test_a_link_is_no_data_file(flow, path):
    put_all_engines(flow)
    flow.start()
    flow.world.path(path).rename(flow.world.path(f"{path}.kept"))
    flow.world.path(path).symlink_to(f"{path}.kept")
    assert available(flow) == without("xray")


@pytest.mark.parametrize("path", [WG_QUICK, WG, DNS_HELPER, RESOLVECTL, IP, TIMEOUT])
def test_a_connect_without_one_of_the_programs_is_refused_and_changes_nothing(flow, path):
    flow.start()
    flow.connected()
    flow.world.remove_tool(path)
    flow.mark()
    with pytest.raises(BusError) as refusal:
        flow.alice.connect("p2", "wireGuard", PROFILE)
    assert refusal.value.name == "org.quorvexvpn.Error.RuntimeUnavailable"
    assert refusal.value.message == (
        "WireGuard runtime is missing. Repair the QuorvexVPN installation.")
    snapshot = flow.snapshot()
    assert (snapshot["stage"], snapshot["activeProfileId"]) == ("connected", "p1")
    assert flow.commands() == []
    assert flow.stages() == []
    assert flow.interface_exists()


def test_an_engine_that_comes_back_is_found_without_a_restart(flow):
    flow.start()
    flow.world.chmod_tool(WG_QUICK, 0o644)
    assert "wireGuard" not in available(flow)
    flow.world.chmod_tool(WG_QUICK, 0o755)
    assert "wireGuard" in available(flow)
    assert flow.connect()["stage"] == "connected"


def test_a_helper_that_goes_away_while_up_runs_is_a_failure_of_dns(flow):
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    flow.world.remove_tool(DNS_HELPER)
    gate.open()
    assert flow.settled("error") == failure("WireGuard connected but DNS setup failed.")
    assert flow.files() == []
    assert flow.world.path(DIRECTORY).exists()
