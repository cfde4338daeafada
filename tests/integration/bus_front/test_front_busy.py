# SPDX-License-Identifier: Apache-2.0
"""One operation at a time: what Connect refuses while a worker runs, and how requests to disconnect fold into one."""

import pytest

from front_steps import (
    BRING_UP, BUSY, CLEAR_GROUND, EMPTY_REPLY, INVALID_PROFILE, NOT_AUTHORIZED, PROFILE, REMOVE_KILL_SWITCH,
    REVERT_OPENVPN_DNS, RUNTIME_UNAVAILABLE, TAKE_DOWN, XRAY_PROFILE, Front, log_signal, refusal, refused_connect,
    reply, snapshot_signal)

pytestmark = pytest.mark.bus


@pytest.fixture
def connecting(front) -> Front:
    """A service whose connect is held in `up`; released at the end of the test."""
    front.gate = front.wg_quick.gate("up")
    front.start()
    front.begin_connect("p1")
    front.world.wait_call("wg-quick", "up")
    return front


@pytest.fixture
def disconnecting(front) -> Front:
    """A service whose disconnect is held in `down`; released at the end of the test."""
    front.start()
    front.connected("p1")
    front.gate = front.wg_quick.gate("down")
    front.alice.call("Disconnect")
    front.world.wait_call("wg-quick", "down")
    return front


def test_of_two_connects_the_second_finds_the_service_busy(connecting):
    assert refused_connect(connecting.alice, "p2") == BUSY
    assert connecting.snapshot() == {"stage": "connecting", "activeProfileId": "p1"}
    assert len(connecting.workers()) == 1
    connecting.gate.open()
    assert connecting.settled("connected")["activeProfileId"] == "p1"
    assert connecting.stages() == ["preparing", "connecting", "connected"]
    assert connecting.commands() == CLEAR_GROUND + BRING_UP


def test_two_connects_sent_together_start_one(front):
    gate = front.wg_quick.gate("up")
    front.start()
    first = front.alice.connect_async("p1", "wireGuard", PROFILE)
    second = front.alice.connect_async("p2", "wireGuard", PROFILE)
    assert first.reply().text == "()"
    assert refusal(second) == BUSY
    gate.open()
    assert front.settled("connected")["activeProfileId"] == "p1"


def test_a_connect_finds_the_service_busy_with_a_disconnect(disconnecting):
    assert refused_connect(disconnecting.alice, "p2") == BUSY
    assert disconnecting.snapshot() == {"stage": "disconnecting", "activeProfileId": "p1"}
    disconnecting.gate.open()
    assert disconnecting.settled("disconnected") == {"stage": "disconnected"}
    assert disconnecting.stages() == ["disconnecting", "disconnected"]


@pytest.mark.parametrize("state", ["connecting", "disconnecting"])
def test_other_refusals_come_before_the_busy_one(request, state):
    front = request.getfixturevalue(state)
    assert refused_connect(front.bob) == NOT_AUTHORIZED
    assert refused_connect(front.alice, config="[Interface]\nbroken\n") == (
        INVALID_PROFILE, "The WireGuard configuration contains an invalid line.")
    assert refused_connect(front.alice, protocol="xray", config=XRAY_PROFILE) == (
        RUNTIME_UNAVAILABLE, "Xray runtime is missing. Repair the QuorvexVPN installation.")
    assert refused_connect(front.alice) == BUSY


def test_a_refused_connect_neither_cancels_nor_publishes(connecting):
    connecting.forget()
    for _ in range(3):
        assert refused_connect(connecting.alice) == BUSY
    assert connecting.signals() == []
    assert connecting.commands() == []
    connecting.gate.open()
    assert connecting.settled("connected")["stage"] == "connected"


def test_reading_and_keys_are_served_while_a_worker_runs(connecting):
    assert connecting.alice.call("GetRuntimeInfo")["wireGuardRuntimeDetected"] is True
    assert reply(connecting.bob, "RequestVpnPermission")[1] == "(false,)"
    assert set(connecting.alice.call("GenerateWireGuardKeyPair")) == {"privateKey", "publicKey"}
    assert connecting.snapshot()["stage"] == "connecting"


def test_a_disconnect_is_taken_while_a_connect_runs(connecting):
    assert reply(connecting.alice, "Disconnect") == EMPTY_REPLY
    assert connecting.snapshot() == {"stage": "disconnecting", "activeProfileId": "p1"}
    assert len(connecting.workers()) == 2
    assert refused_connect(connecting.alice) == BUSY
    connecting.gate.open()
    assert connecting.settled("disconnected") == {"stage": "disconnected"}


def test_disconnects_fold_into_the_one_that_runs(disconnecting):
    for _ in range(3):
        assert reply(disconnecting.alice, "Disconnect") == EMPTY_REPLY
    assert len(disconnecting.workers()) == 1
    disconnecting.gate.open()
    disconnecting.settled("disconnected")
    assert disconnecting.heard() == [
        snapshot_signal("disconnecting", "p1"), snapshot_signal("disconnected"),
        log_signal("info", "VPN tunnel disconnected.")]
    assert disconnecting.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN]


def test_disconnects_of_two_users_fold_into_one(disconnecting):
    assert reply(disconnecting.root, "Disconnect") == EMPTY_REPLY
    disconnecting.gate.open()
    disconnecting.settled("disconnected")
    assert disconnecting.stages() == ["disconnecting", "disconnected"]


def test_disconnects_during_a_connect_fold_into_one(connecting):
    for _ in range(3):
        assert reply(connecting.alice, "Disconnect") == EMPTY_REPLY
    assert len(connecting.workers()) == 2
    connecting.gate.open()
    connecting.settled("disconnected")
    assert connecting.stages() == ["preparing", "connecting", "disconnecting", "disconnected"]


def test_two_disconnects_sent_together_run_one_down(front):
    front.start()
    front.connected()
    gate = front.wg_quick.gate("down")
    both = [front.alice.call_async("Disconnect"), front.alice.call_async("Disconnect")]
    assert [one.reply().text for one in both] == ["()", "()"]
    gate.open()
    front.settled("disconnected")
    assert front.stages() == ["disconnecting", "disconnected"]
    assert len(front.world.calls("wg-quick", "down")) == 1


def test_a_disconnect_with_nothing_up_is_told_like_any_other(front):
    front.start()
    assert reply(front.alice, "Disconnect") == EMPTY_REPLY
    front.settled("disconnected")
    assert front.heard() == [
        snapshot_signal("disconnecting"), snapshot_signal("disconnected"),
        log_signal("info", "VPN tunnel disconnected.")]
    assert front.commands() == [REMOVE_KILL_SWITCH]


def test_a_disconnect_after_one_that_has_ended_runs_again(front):
    front.start()
    for _ in range(3):
        front.disconnect()
        assert front.stages() == ["disconnecting", "disconnected"]
        assert front.commands() == [REMOVE_KILL_SWITCH]


def test_a_disconnect_after_one_that_has_failed_runs_again(front):
    front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1, times=1)
    assert front.disconnect()["stage"] == "error"
    assert front.disconnect() == {"stage": "disconnected"}


def test_a_connect_over_a_connection_is_not_busy_and_takes_the_first_tunnel_down(front):
    front.start()
    front.connected("p1")
    assert front.connect("p2")["activeProfileId"] == "p2"
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REVERT_OPENVPN_DNS, *BRING_UP]


def test_a_connect_after_a_failed_one_is_not_busy(front):
    front.start()
    front.wg_quick.on("up", exit_status=1, times=1)
    assert front.connect()["stage"] == "error"
    assert front.connect()["stage"] == "connected"
