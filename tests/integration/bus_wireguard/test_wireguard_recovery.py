# SPDX-License-Identifier: Apache-2.0
"""What a start of the service finds from an earlier run and how it clears it."""

import pytest

from wireguard_flow import (
    ADMINISTRATOR_REPAIR, AMNEZIA_PROFILE, AWG_DOWN, AWG_UP, BRING_UP, CLEAR_GROUND, CONFIG, DNS_HELPER,
    KILL_SWITCH_FAILED, NFT, NOT_CLEANED_UP, OPENVPN_CONFIG, OPENVPN_PID, OTHER_FILES, PROFILE,
    REMOVE_KILL_SWITCH, RESOLVECTL, REVERT_DNS, REVERT_OPENVPN_DNS, SING_BOX_CONFIG, STOP_TUNNEL, TAKE_DOWN,
    TIMEOUT, XRAY_CONFIG, base_name, failure, stop_failure)

pytestmark = pytest.mark.bus


def start(flow) -> list[str]:
    """Starts the service; returns what its recovery ran."""
    flow.world.start_service()
    return flow.commands()


def crash(flow) -> None:
    flow.world.service.kill()
    flow.world.service.wait()
    flow.commands()


def test_a_tunnel_left_by_a_crash_is_taken_down_at_the_next_start(flow):
    flow.start()
    flow.connected(kill_switch=True)
    crash(flow)
    assert flow.interface_exists()
    assert flow.files() == ["quorvexvpn.conf"]
    assert start(flow) == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REVERT_OPENVPN_DNS]
    assert flow.files() == []
    assert not flow.interface_exists()
    assert flow.snapshot() == {"stage": "disconnected"}
    assert not flow.repair_required()
    assert flow.connect()["stage"] == "connected"


def test_an_amnezia_tunnel_left_by_a_crash_is_taken_down_by_its_own_tool(flow):
    """Which tool brought it up is remembered in memory only; the configuration that it left tells."""
    flow.add_amnezia_tools()
    flow.start()
    flow.connect(AMNEZIA_PROFILE)
    assert AWG_UP in flow.commands()
    crash(flow)
    assert start(flow) == [REMOVE_KILL_SWITCH, REVERT_DNS, AWG_DOWN, REVERT_OPENVPN_DNS]
    assert flow.files() == []


def test_a_crash_while_up_runs_leaves_what_the_next_start_clears(flow):
    gate = flow.wg_quick.gate("up", after=True)
    flow.start()
    flow.begin_connect()
    call = flow.world.wait_call("wg-quick", "up")
    flow.world.poll(flow.interface_exists, what="the interface")
    crash(flow)
    gate.open()
    flow.world.wait_ended(call)
    assert start(flow) == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REVERT_OPENVPN_DNS]
    assert flow.files() == []
    assert not flow.interface_exists()


def test_a_file_without_its_interface_is_only_removed(flow):
    flow.put_private(CONFIG, PROFILE)
    assert start(flow) == CLEAR_GROUND
    assert flow.files() == []
    assert flow.snapshot() == {"stage": "disconnected"}


@pytest.mark.parametrize("path", OTHER_FILES, ids=base_name)
def test_each_file_of_another_engine_is_wiped_at_the_start(flow, path):
    flow.put_private(path, "secret\n")
    # A second name of the same file still shows what the wiping left of it.
    flow.world.run(["ln", path, "/run/second-name"])
    assert start(flow) == CLEAR_GROUND
    assert flow.files() == []
    assert flow.world.path("/run/second-name").read_bytes() == b"\0" * 7


def test_a_leftover_tunnel_goes_down_before_a_connect(flow):
    flow.start()
    flow.add_interface()
    flow.put_private(CONFIG)
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == STOP_TUNNEL + [REVERT_OPENVPN_DNS] + BRING_UP


def test_all_files_are_wiped_before_a_connect(flow):
    flow.start()
    for path in (CONFIG, *OTHER_FILES):
        flow.put_private(path)
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + BRING_UP
    assert flow.files() == ["quorvexvpn.conf"]


def test_a_failed_connect_wipes_them_too(flow):
    flow.start()
    gate = flow.wg_quick.gate("up")
    flow.wg_quick.on("up", exit_status=1)
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    for path in OTHER_FILES:
        flow.put_private(path)
    gate.open()
    assert flow.settled("error") == failure("WireGuard failed to connect.")
    assert flow.files() == []


@pytest.mark.parametrize("tool", [DNS_HELPER, RESOLVECTL])
@pytest.mark.parametrize("fault", ["missing", "not executable"])
def test_openvpn_dns_is_reverted_only_with_both_tools(flow, tool, fault):
    flow.put_private(OPENVPN_CONFIG)
    flow.put_private(OPENVPN_PID)
    if fault == "missing":
        flow.world.remove_tool(tool)
    else:
        flow.world.chmod_tool(tool, 0o644)
    assert start(flow) == [REMOVE_KILL_SWITCH]
    assert flow.files() == []
    assert flow.snapshot() == {"stage": "disconnected"}


def test_a_revert_of_openvpn_dns_that_fails_keeps_its_files(flow):
    flow.put_private(OPENVPN_CONFIG)
    flow.put_private(OPENVPN_PID)
    flow.put_private(SING_BOX_CONFIG)
    flow.put_private(XRAY_CONFIG)
    flow.dns_helper.on("revert", exit_status=1)
    assert start(flow) == CLEAR_GROUND
    assert flow.files() == ["openvpn.ovpn", "openvpn.pid"]
    assert flow.world.path(OPENVPN_CONFIG).read_bytes() == b"leftover\n"
    assert flow.snapshot() == stop_failure("Unable to revert OpenVPN DNS state.")
    assert flow.repair_required()


def test_a_revert_of_openvpn_dns_that_fails_stops_a_connect(flow):
    flow.start()
    flow.dns_helper.on("revert", exit_status=1)
    assert flow.connect() == failure("Unable to revert OpenVPN DNS state." + NOT_CLEANED_UP)
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND
    assert flow.files() == []


def test_an_interface_without_its_file_shows_in_the_first_snapshot(flow):
    flow.add_interface()
    flow.put_private(SING_BOX_CONFIG)
    assert start(flow) == [REMOVE_KILL_SWITCH]
    assert flow.snapshot() == stop_failure(ADMINISTRATOR_REPAIR)
    info = flow.alice.call("GetRuntimeInfo")
    assert info["summary"] == ("Sing-box missing; Xray missing; WireGuard ready; OpenVPN missing"
                               "; cleanup repair required")
    # The recovery stops at its first failure.
    assert flow.files() == ["sing-box.json"]
    assert flow.interface_exists()


def test_the_error_of_the_start_is_told_again_by_initialize(flow):
    flow.add_interface()
    start(flow)
    flow.mark()
    flow.alice.call("Initialize")
    flow.world.wait(lambda: flow.stages(), what="the snapshot")
    assert flow.alice.snapshots[-1] == stop_failure(ADMINISTRATOR_REPAIR)


def test_a_connect_that_fails_on_it_too_names_the_same_reason(flow):
    flow.add_interface()
    start(flow)
    assert flow.connect() == failure(ADMINISTRATOR_REPAIR + NOT_CLEANED_UP)
    assert flow.commands() == [REMOVE_KILL_SWITCH] * 2


def test_a_failing_down_at_the_start_leaves_the_tunnel_for_a_disconnect(flow):
    flow.add_interface()
    flow.put_private(CONFIG)
    flow.wg_quick.on("down", exit_status=1, times=1)
    assert start(flow) == STOP_TUNNEL
    assert flow.snapshot() == stop_failure("WireGuard disconnect cleanup failed.")
    assert flow.repair_required()
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == STOP_TUNNEL
    assert not flow.repair_required()


def test_a_kill_switch_that_stays_at_the_start_keeps_only_the_tunnel_from_staying(flow):
    flow.add_interface()
    flow.put_private(CONFIG)
    flow.put_private(XRAY_CONFIG)
    flow.nft.on("-f", "-", exit_status=1, times=1)
    assert start(flow) == STOP_TUNNEL
    assert flow.snapshot() == stop_failure(KILL_SWITCH_FAILED)
    assert flow.files() == ["xray.json"]
    assert not flow.interface_exists()


@pytest.mark.parametrize("gone, sentence, ran", [
    pytest.param((TIMEOUT,), "Unable to run the nftables leak-protection command.", [],
                 id="timeout"),
    pytest.param((TIMEOUT, NFT), "Unable to revert OpenVPN DNS state.", [], id="timeout and nft"),
    pytest.param((NFT,), None, [REVERT_OPENVPN_DNS], id="nft"),
    pytest.param((TIMEOUT, NFT, RESOLVECTL), None, [], id="timeout, nft and resolvectl"),
])
def test_missing_tools_at_the_start(flow, gone, sentence, ran):
    for tool in gone:
        flow.world.remove_tool(tool)
    assert start(flow) == ran
    assert flow.snapshot() == (stop_failure(sentence) if sentence else {"stage": "disconnected"})
    assert flow.repair_required() == bool(sentence)


def test_a_successful_connect_ends_the_need_for_repair(flow):
    flow.dns_helper.on("revert", exit_status=1, times=1)
    start(flow)
    assert flow.repair_required()
    assert flow.connect()["stage"] == "connected"
    assert not flow.repair_required()
