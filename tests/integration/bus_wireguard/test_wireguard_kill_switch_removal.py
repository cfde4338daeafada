# SPDX-License-Identifier: Apache-2.0
"""The removal of the kill switch, with the real nft where nothing is to fail."""

import signal

import pytest

from wireguard_flow import (
    BRING_UP, CLEAR_GROUND, KILL_SWITCH_FAILED, NFT, REMOVAL_SCRIPT, REMOVE_KILL_SWITCH,
    REVERT_OPENVPN_DNS, TAKE_DOWN, TIMEOUT, stop_failure)

pytestmark = pytest.mark.bus

CANNOT_RUN = "Unable to run the nftables leak-protection command."
UNAVAILABLE = "nftables is unavailable. Repair the QuorvexVPN installation."
OTHER_TABLE = "table inet bystander {\n}\n"


def tables(flow) -> list[str]:
    # The program itself, so that the look is not among the recorded calls.
    return flow.world.run([flow.nft.real, "list", "tables"]).stdout.splitlines()


def load(flow, script: str) -> None:
    flow.world.run([flow.nft.real, "-f", "-"], input=script)


def test_the_table_is_there_while_connected_and_gone_afterwards(flow):
    flow.start()
    load(flow, OTHER_TABLE)
    flow.connected(kill_switch=True)
    assert tables(flow) == ["table inet bystander", "table inet quorvexvpn"]
    assert flow.disconnect() == {"stage": "disconnected"}
    assert tables(flow) == ["table inet bystander"]


def test_a_table_left_by_a_crash_is_removed_at_the_next_start(flow):
    load(flow, "table inet quorvexvpn {\n}\n" + OTHER_TABLE)
    flow.world.start_service()
    assert tables(flow) == ["table inet bystander"]
    assert flow.commands() == CLEAR_GROUND


def test_a_connect_without_a_kill_switch_removes_the_former_one(flow):
    flow.start()
    flow.connected(kill_switch=True)
    flow.connected()
    assert tables(flow) == []


def test_every_removal_gets_the_same_script(flow):
    flow.world.start_service()
    flow.connected()
    flow.disconnect()
    flow.wg_quick.on("up", exit_status=1)
    flow.connect()
    calls = flow.world.calls("nft")
    # The start, the connect, the disconnect, the second connect and the recovery after it.
    assert [(call.argv, call.stdin) for call in calls] == [([NFT, "-f", "-"], REMOVAL_SCRIPT)] * 5


def test_the_kill_switch_goes_before_the_tunnel(flow):
    flow.start()
    flow.connected(kill_switch=True)
    gate = flow.nft.gate("-f", "-")
    flow.begin_disconnect()
    flow.world.wait_call("nft", count=4)
    assert flow.interface_exists()
    assert flow.commands() == [REMOVE_KILL_SWITCH]
    gate.open()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.commands() == TAKE_DOWN


@pytest.mark.parametrize("fault", ["missing", "not executable"])
def test_without_nft_nothing_is_run_and_nothing_fails(flow, fault):
    if fault == "missing":
        flow.world.remove_tool(NFT)
    else:
        flow.world.chmod_tool(NFT, 0o644)
    flow.world.start_service()
    assert flow.connect()["stage"] == "connected"
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REVERT_OPENVPN_DNS, REVERT_OPENVPN_DNS, *BRING_UP, *TAKE_DOWN]


def test_without_nft_a_kill_switch_that_was_asked_for_is_a_warning(flow):
    flow.world.remove_tool(NFT)
    flow.start()
    assert flow.connect(kill_switch=True)["stage"] == "connected"
    assert ("warning", f"Kill switch could not be applied: {UNAVAILABLE}") in flow.logs()
    assert flow.commands() == CLEAR_GROUND[1:] + BRING_UP


def test_nft_that_goes_away_while_connected_does_not_hinder_the_disconnect(flow):
    flow.start()
    flow.connected(kill_switch=True)
    flow.world.remove_tool(NFT)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == TAKE_DOWN


@pytest.mark.parametrize("fault", [
    pytest.param({"exit_status": 1}, id="status 1"),
    pytest.param({"exit_status": 124}, id="the status of a time-out"),
    pytest.param({"die_by": signal.SIGKILL}, id="killed"),
    pytest.param({"die_by": signal.SIGSEGV}, id="crashed"),
    pytest.param({"exit_status": 3, "stderr": "complaint", "stdout": "remark"}, id="with words"),
])
def test_each_failure_of_nft_is_told_in_the_same_words(flow, fault):
    service = flow.start()
    flow.nft.on("-f", "-", times=1, **fault)
    assert flow.disconnect() == stop_failure(KILL_SWITCH_FAILED)
    assert flow.repair_required()
    assert not [line for line in service.journal if "complaint" in line or "remark" in line]
    assert flow.disconnect() == {"stage": "disconnected"}
    assert not flow.repair_required()


def test_what_nft_says_is_no_matter_when_it_succeeds(flow):
    flow.start()
    flow.nft.on("-f", "-", stdout="Error: odd\n" * 20_000, stderr="Error: odd\n" * 20_000)
    assert flow.disconnect() == {"stage": "disconnected"}


def test_without_the_timeout_command_nft_cannot_be_run(flow):
    flow.start()
    flow.world.remove_tool(TIMEOUT)
    assert flow.disconnect() == stop_failure(CANNOT_RUN)
    assert flow.commands() == []


def test_an_nft_that_is_no_program_fails(flow):
    flow.start()
    flow.world.put_file(NFT, "\x7fELF", mode=0o755)
    assert flow.disconnect() == stop_failure(KILL_SWITCH_FAILED)


def test_a_kill_switch_that_cannot_be_loaded_is_a_warning_and_the_tunnel_stays(flow):
    flow.start()
    flow.nft.on("-f", "-", exit_status=1, when=lambda call: "chain" in call.stdin)
    assert flow.connect(kill_switch=True)["stage"] == "connected"
    assert flow.logs() == [
        ("info", "Preparing WireGuard tunnel."),
        ("warning", f"Kill switch could not be applied: {KILL_SWITCH_FAILED}"),
        ("info", "WireGuard tunnel connected.")]
    assert tables(flow) == []
    assert flow.disconnect() == {"stage": "disconnected"}
