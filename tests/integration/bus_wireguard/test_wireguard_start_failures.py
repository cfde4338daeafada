# SPDX-License-Identifier: Apache-2.0
"""What a connect that fails says, what it runs afterwards and what it leaves: nothing."""

import signal

import pytest

from wireguard_flow import (
    ADD_INTERFACE, ADD_TUNNEL, ADMINISTRATOR_REPAIR, AMNEZIA_PROFILE, APPLY_DNS, BRING_UP,
    CLEAR_GROUND, DIRECTORY, IPV4_ROUTES, IPV6_ROUTES, KILL_SWITCH_FAILED, NOT_CLEANED_UP, PROFILE,
    REMOVE_KILL_SWITCH, STOP_TUNNEL, TAKE_DOWN, UP, failure)

pytestmark = pytest.mark.bus

UP_FAILED = "WireGuard failed to connect."
NO_INTERFACE = "WireGuard exited without creating the expected interface."
NO_FULL_ROUTE = "WireGuard did not install a full-tunnel route."
DNS_FAILED = "WireGuard connected but DNS setup failed."


def expect_clean(flow) -> None:
    assert flow.files() == []
    assert not flow.interface_exists()
    assert not flow.repair_required()


@pytest.mark.parametrize("fault", [
    pytest.param({"exit_status": 1}, id="exit status 1"),
    pytest.param({"exit_status": 124}, id="the exit status of a time-out"),
    pytest.param({"exit_status": 127}, id="exit status 127"),
    pytest.param({"die_by": signal.SIGKILL}, id="killed"),
])
def test_a_failing_up_without_an_interface_only_removes_the_file(flow, fault):
    flow.wg_quick.on("up", **fault)
    flow.start()
    assert flow.connect() == failure(UP_FAILED)
    assert flow.commands() == CLEAR_GROUND + [UP] + CLEAR_GROUND
    expect_clean(flow)


def test_a_failing_up_that_left_an_interface_is_taken_down(flow):
    flow.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1)
    flow.start()
    assert flow.connect() == failure(UP_FAILED)
    assert flow.commands() == CLEAR_GROUND + [UP] + TAKE_DOWN + CLEAR_GROUND
    expect_clean(flow)


def test_a_disconnect_after_a_failed_connect_finds_nothing_to_take_down(flow):
    flow.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1)
    flow.start()
    flow.connect()
    flow.commands()
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH]


def test_an_up_without_an_interface_is_a_failure(flow):
    flow.wg_quick.on("up")
    flow.start()
    assert flow.connect() == failure(NO_INTERFACE)
    assert flow.commands() == CLEAR_GROUND + [UP] + CLEAR_GROUND
    expect_clean(flow)


def test_a_tunnel_without_a_full_route_is_taken_down(flow):
    flow.wg_quick.on("up", shell=ADD_INTERFACE)
    flow.start()
    assert flow.connect() == failure(NO_FULL_ROUTE)
    start = CLEAR_GROUND + [UP, IPV4_ROUTES, IPV6_ROUTES] + TAKE_DOWN
    assert flow.commands() == start + CLEAR_GROUND
    expect_clean(flow)


def test_a_tunnel_whose_dns_cannot_be_set_is_taken_down(flow):
    flow.dns_helper.on("apply-wireguard", exit_status=1)
    flow.start()
    assert flow.connect(kill_switch=True) == failure(DNS_FAILED)
    assert flow.commands() == CLEAR_GROUND + BRING_UP + TAKE_DOWN + CLEAR_GROUND
    expect_clean(flow)


@pytest.mark.parametrize("config, up", [
    pytest.param(PROFILE, {"exit_status": 1}, id="up failed"),
    pytest.param(PROFILE, {}, id="no interface"),
    pytest.param(AMNEZIA_PROFILE, {}, id="no amnezia tools"),
])
def test_the_file_is_gone_before_the_recovery_begins(flow, config, up):
    flow.wg_quick.on("up", **up)
    flow.start()
    assert flow.connect_without_recovery(config) == []
    assert flow.world.path(DIRECTORY).exists()
    flow.settled("error")


def test_a_failure_is_told_in_one_log_entry_and_the_stages_in_order(flow):
    flow.wg_quick.on("up", exit_status=1)
    service = flow.start()
    flow.connect()
    assert flow.stages() == ["preparing", "connecting", "error"]
    assert flow.logs() == [("info", "Preparing WireGuard tunnel."),
                           ("error", "WireGuard connection failed.")]
    assert [line for line in service.journal if "WireGuard connection failed." in line]


@pytest.mark.parametrize("sentence, up, others", [
    pytest.param(UP_FAILED, {"shell": ADD_INTERFACE, "exit_status": 1}, {}, id="up failed"),
    pytest.param(NO_FULL_ROUTE, {"shell": ADD_INTERFACE}, {}, id="no full route"),
    pytest.param(DNS_FAILED, {"shell": ADD_TUNNEL}, {"apply-wireguard": 1}, id="dns failed"),
    pytest.param(DNS_FAILED, {"shell": ADD_TUNNEL}, {"apply-wireguard": 1, "revert-wireguard": 1},
                 id="revert too"),
])
def test_a_clean_up_that_fails_changes_no_sentence_but_is_added_to_it(flow, sentence, up, others):
    """`down` fails in the start's own clean-up and in the recovery, so file and interface stay."""
    flow.wg_quick.on("up", **up)
    flow.wg_quick.on("down", exit_status=1, times=2)
    for verb, status in others.items():
        flow.dns_helper.on(verb, exit_status=status)
    flow.start()
    assert flow.connect() == failure(sentence + NOT_CLEANED_UP)
    assert flow.commands()[-5:] == TAKE_DOWN + STOP_TUNNEL
    assert flow.files() == ["quorvexvpn.conf"]
    assert flow.repair_required()


def test_a_recovery_that_succeeds_at_the_second_attempt_is_not_mentioned(flow):
    flow.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1)
    flow.wg_quick.on("down", exit_status=1, times=1)
    flow.start()
    assert flow.connect() == failure(UP_FAILED)
    start = CLEAR_GROUND + [UP] + TAKE_DOWN
    assert flow.commands() == start + STOP_TUNNEL + CLEAR_GROUND[1:]
    expect_clean(flow)


def test_an_interface_without_its_file_stops_a_connect_before_anything_is_written(flow):
    flow.start()
    flow.add_interface()
    assert flow.connect() == failure(ADMINISTRATOR_REPAIR + NOT_CLEANED_UP)
    assert flow.commands() == [REMOVE_KILL_SWITCH, REMOVE_KILL_SWITCH]
    assert flow.files() == []
    assert flow.interface_exists()
    assert flow.repair_required()


def test_a_connect_succeeds_once_the_administrator_has_removed_the_interface(flow):
    flow.start()
    flow.add_interface()
    flow.connect()
    flow.remove_interface()
    assert flow.connect()["stage"] == "connected"
    assert not flow.repair_required()


def test_a_kill_switch_that_cannot_be_removed_stops_a_connect(flow):
    flow.start()
    flow.nft.on("-f", "-", exit_status=1, times=2)
    assert flow.connect() == failure(KILL_SWITCH_FAILED + NOT_CLEANED_UP)
    assert flow.commands() == [REMOVE_KILL_SWITCH, REMOVE_KILL_SWITCH]
    assert flow.repair_required()


def test_a_kill_switch_that_goes_at_the_second_attempt_leaves_only_the_sentence(flow):
    flow.start()
    flow.nft.on("-f", "-", exit_status=1, times=1)
    assert flow.connect() == failure(KILL_SWITCH_FAILED)
    assert flow.commands() == [REMOVE_KILL_SWITCH] + CLEAR_GROUND
    assert not flow.repair_required()


def test_a_tunnel_that_cannot_be_taken_down_stops_the_next_connect(flow):
    flow.start()
    flow.connected()
    flow.wg_quick.on("down", exit_status=1, times=2)
    assert flow.connect() == failure("WireGuard disconnect cleanup failed." + NOT_CLEANED_UP)
    assert flow.commands() == STOP_TUNNEL * 2
    assert flow.files() == ["quorvexvpn.conf"]


def test_without_the_timeout_command_nothing_can_be_taken_down_and_the_file_stays(flow):
    """The command goes away while `up` runs, as in a package upgrade gone wrong."""
    gate = flow.wg_quick.gate("up", after=True)
    flow.start()
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    flow.world.poll(flow.interface_exists, what="the interface")
    flow.world.remove_tool("/usr/bin/timeout")
    gate.open()
    assert flow.settled("error") == failure(NO_FULL_ROUTE + NOT_CLEANED_UP)
    assert flow.commands() == CLEAR_GROUND + [UP]
    assert flow.files() == ["quorvexvpn.conf"]
    assert flow.repair_required()


@pytest.mark.parametrize("fault", [
    pytest.param("kill -TERM $$", id="killed"),
    pytest.param("exit 3", id="status 3"),
])
def test_the_dns_helper_may_fail_in_any_way(flow, fault):
    flow.dns_helper.on("apply-wireguard", shell=fault)
    flow.start()
    assert flow.connect() == failure(DNS_FAILED)
    assert APPLY_DNS in flow.commands()


def test_a_failed_connect_takes_the_former_tunnel_with_it(flow):
    flow.start()
    flow.connected()
    flow.wg_quick.on("up", exit_status=1)
    assert flow.connect() == failure(UP_FAILED)
    assert flow.commands() == STOP_TUNNEL + CLEAR_GROUND[1:] + [UP] + CLEAR_GROUND
    expect_clean(flow)
