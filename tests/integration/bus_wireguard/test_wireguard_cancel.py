# SPDX-License-Identifier: Apache-2.0
"""A Disconnect or a shutdown in the middle of a connect: how far it goes and what it tells."""

import pytest

from wireguard_flow import (
    ADD_INTERFACE, APPLY_DNS, BRING_UP, CLEAR_GROUND, REMOVE_KILL_SWITCH, STOP_TUNNEL, TAKE_DOWN,
    UP, Hold, stop_failure)

pytestmark = pytest.mark.bus


def cancel_at(flow, gate, name: str, *words: str, kill_switch: bool = False) -> None:
    """Begins a connect, disconnects while the call is held, and lets it go on."""
    flow.begin_connect(kill_switch=kill_switch)
    flow.world.wait_call(name, *words)
    flow.alice.call("Disconnect")
    gate.open()


def expect_only_the_disconnect_was_published(flow) -> None:
    assert flow.stages() == ["preparing", "connecting", "disconnecting", "disconnected"]
    assert flow.logs() == [("info", "Preparing WireGuard tunnel."),
                           ("info", "VPN tunnel disconnected.")]
    assert flow.files() == []
    assert not flow.interface_exists()
    assert not flow.repair_required()


def test_a_disconnect_while_the_ground_is_cleared_writes_and_starts_nothing(flow):
    flow.start()
    hold = Hold(flow, "quorvexvpn-dns", "revert")
    flow.begin_connect()
    hold.wait()
    flow.alice.call("Disconnect")
    hold.release()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    assert not flow.world.path("/run/quorvexvpn").exists()
    expect_only_the_disconnect_was_published(flow)


@pytest.mark.parametrize("tool, words", [
    pytest.param("wg-quick", ("up",), id="while up runs"),
    pytest.param("ip", ("-4", "route"), id="while the route is checked"),
    pytest.param("quorvexvpn-dns", ("apply-wireguard",), id="while dns is set"),
])
def test_a_disconnect_after_up_has_begun_waits_for_the_whole_tunnel(flow, tool, words):
    gate = flow.tools[tool].gate(*words)
    flow.start()
    cancel_at(flow, gate, tool, *words, kill_switch=True)
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    # The start takes its tunnel down, the recovery finds nothing, the disconnect neither.
    start = CLEAR_GROUND + BRING_UP + TAKE_DOWN
    assert flow.commands() == start + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    expect_only_the_disconnect_was_published(flow)


def test_the_client_sees_disconnecting_at_once_while_up_still_runs(flow):
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    flow.alice.call("Disconnect")
    assert flow.snapshot() == {"stage": "disconnecting", "activeProfileId": "p1"}
    gate.open()
    flow.settled("disconnected")


def test_an_up_that_fails_after_a_disconnect_publishes_nothing(flow):
    gate = flow.wg_quick.gate("up")
    flow.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1)
    flow.start()
    cancel_at(flow, gate, "wg-quick", "up")
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.commands() == CLEAR_GROUND + [UP] + TAKE_DOWN + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    expect_only_the_disconnect_was_published(flow)


def test_a_cancelled_tunnel_that_cannot_be_cleaned_up_shows_only_as_a_repair(flow):
    """Clean-up and recovery fail; the disconnect after them is held, so that what is then shows."""
    flow.start()
    flow.wg_quick.on("down", exit_status=1, times=2)
    gate = flow.dns_helper.gate("apply-wireguard")
    hold = Hold(flow, "nft", number=3)
    cancel_at(flow, gate, "quorvexvpn-dns", "apply-wireguard")
    hold.wait()
    assert flow.repair_required()
    assert flow.snapshot() == {"stage": "disconnecting", "activeProfileId": "p1"}
    assert flow.files() == ["quorvexvpn.conf"]
    start = CLEAR_GROUND + BRING_UP + TAKE_DOWN
    assert flow.commands() == start + STOP_TUNNEL + [REMOVE_KILL_SWITCH]
    hold.release()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.commands() == TAKE_DOWN
    expect_only_the_disconnect_was_published(flow)


def test_a_cancelled_tunnel_that_never_goes_down_is_told_by_the_disconnect(flow):
    flow.start()
    flow.wg_quick.on("down", exit_status=1)
    gate = flow.wg_quick.gate("up")
    cancel_at(flow, gate, "wg-quick", "up")
    assert flow.settled("error") == stop_failure("WireGuard disconnect cleanup failed.")
    assert flow.stages() == ["preparing", "connecting", "disconnecting", "error"]
    errors = [message for level, message in flow.logs() if level == "error"]
    assert errors == ["VPN disconnect cleanup failed."]
    assert flow.commands() == CLEAR_GROUND + BRING_UP + TAKE_DOWN + STOP_TUNNEL * 2


def test_a_shutdown_while_up_runs_waits_for_it_and_takes_the_tunnel_down(flow):
    gate = flow.wg_quick.gate("up")
    service = flow.start()
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    service.terminate()
    flow.world.wait(lambda: "disconnecting" in flow.stages(), what="the shutdown")
    assert service.alive
    gate.open()
    assert service.wait() == 0
    last_stop = [REMOVE_KILL_SWITCH] * 2
    assert flow.commands() == CLEAR_GROUND + BRING_UP + TAKE_DOWN + CLEAR_GROUND + last_stop
    flow.world.wait(lambda: "disconnected" in flow.stages(), what="the last word")
    assert flow.stages() == ["preparing", "connecting", "disconnecting", "disconnected"]
    assert flow.files() == []
    assert not flow.interface_exists()


def test_a_disconnect_at_the_kill_switch_comes_too_late_to_cancel(flow):
    """The engine is up by then: the connect is published, and then the disconnect takes it down."""
    flow.start()
    hold = Hold(flow, "nft", number=2)
    flow.begin_connect(kill_switch=True)
    hold.wait()
    flow.alice.call("Disconnect")
    hold.release()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.stages() == [
        "preparing", "connecting", "disconnecting", "connected", "disconnected"]
    assert flow.commands() == CLEAR_GROUND + BRING_UP + [REMOVE_KILL_SWITCH] * 2 + TAKE_DOWN
    assert flow.files() == []


def test_a_connect_after_a_cancelled_one_succeeds(flow):
    gate = flow.dns_helper.gate("apply-wireguard")
    flow.start()
    cancel_at(flow, gate, "quorvexvpn-dns", "apply-wireguard")
    flow.settled("disconnected")
    flow.commands()
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + BRING_UP
    assert flow.world.calls("quorvexvpn-dns", "apply-wireguard")[-1].argv == APPLY_DNS.split()
