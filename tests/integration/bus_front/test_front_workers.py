# SPDX-License-Identifier: Apache-2.0
"""The two workers: what each publishes and runs, how a connect is abandoned, and what a failure leaves behind."""

import time
from pathlib import Path

import pytest

from front_steps import (
    ADD_INTERFACE, BRING_UP, CLEAR_GROUND, DOWN_FAILED, KILL_SWITCH_FAILED, LAST_STOPS, NOT_CLEANED_UP,
    REMOVE_KILL_SWITCH, TAKE_DOWN, UP, Hold, log_signal, snapshot_signal)

pytestmark = pytest.mark.bus

APPLY_KILL_SWITCH = REMOVE_KILL_SWITCH
UP_FAILED = "WireGuard failed to connect."
KILL_SWITCH_ON = ("info", "Kill switch active for this tunnel.")
PREPARING = ("info", "Preparing WireGuard tunnel.")
CONNECTED = ("info", "WireGuard tunnel connected.")
DISCONNECTED = ("info", "VPN tunnel disconnected.")


def is_apply(call) -> bool:
    """Whether a call of nft loads a kill switch; taking one away has no chain."""
    return "chain" in call.stdin


def test_a_connect_clears_the_ground_and_brings_the_tunnel_up(front):
    front.start()
    assert front.connect()["stage"] == "connected"
    assert front.commands() == CLEAR_GROUND + BRING_UP
    assert not front.repair_required()


def test_a_kill_switch_is_loaded_when_the_tunnel_is_up(front):
    front.start()
    front.connect(kill_switch=True)
    assert front.commands() == CLEAR_GROUND + BRING_UP + [APPLY_KILL_SWITCH]
    assert front.logs() == [PREPARING, KILL_SWITCH_ON, CONNECTED]
    assert front.world.state().nftables[0].startswith("table inet quorvexvpn")


def test_a_kill_switch_is_loaded_before_the_connection_is_told(front):
    front.start()
    hold = Hold(front, "nft", "-f", number=2)
    front.begin_connect(kill_switch=True)
    hold.wait()
    assert front.snapshot() == {"stage": "connecting", "activeProfileId": "p1"}
    hold.release()
    assert front.settled("connected")["stage"] == "connected"


def test_a_kill_switch_that_nft_refuses_is_a_warning(front):
    front.start()
    front.nft.on("-f", when=is_apply, exit_status=1)
    assert front.connect(kill_switch=True)["stage"] == "connected"
    warning = ("warning", f"Kill switch could not be applied: {KILL_SWITCH_FAILED}")
    assert front.logs() == [PREPARING, warning, CONNECTED]
    assert front.world.interface_exists("quorvexvpn")
    assert not front.repair_required()


def test_a_kill_switch_without_nft_is_a_warning(front):
    front.start()
    front.world.remove_tool("/usr/sbin/nft")
    assert front.connect(kill_switch=True)["stage"] == "connected"
    warning = ("warning", "Kill switch could not be applied: "
               "nftables is unavailable. Repair the QuorvexVPN installation.")
    assert front.logs() == [PREPARING, warning, CONNECTED]


def test_a_disconnect_removes_the_kill_switch_first(front):
    front.start()
    front.connected(kill_switch=True)
    assert front.disconnect() == {"stage": "disconnected"}
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN]
    assert front.world.state().nftables == []
    assert front.logs() == [DISCONNECTED]


def test_a_failed_disconnect_keeps_its_sentence_and_names_no_profile(front):
    front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1)
    assert front.disconnect() == {"stage": "error", "lastError": DOWN_FAILED}
    assert front.logs() == [("error", "VPN disconnect cleanup failed.")]
    assert front.repair_required()


def test_a_failed_start_keeps_its_sentence_and_names_its_profile(front):
    front.start()
    front.wg_quick.on("up", exit_status=1)
    assert front.connect() == {"stage": "error", "activeProfileId": "p1", "lastError": UP_FAILED}
    assert front.commands() == [*CLEAR_GROUND, UP, *CLEAR_GROUND]
    assert front.logs() == [PREPARING, ("error", "WireGuard connection failed.")]
    assert not front.repair_required()


def test_a_failed_recovery_adds_its_sentence_to_that_of_the_start(front):
    front.start()
    front.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1)
    front.wg_quick.on("down", exit_status=1)
    snapshot = front.connect()
    assert snapshot == {"stage": "error", "activeProfileId": "p1", "lastError": UP_FAILED + NOT_CLEANED_UP}
    assert front.commands() == [*CLEAR_GROUND, UP, *TAKE_DOWN, REMOVE_KILL_SWITCH, *TAKE_DOWN]
    assert front.repair_required()


def test_a_recovery_that_fails_alone_discards_its_own_sentence(front):
    """The start fails in `up`; only the kill switch's removal after it fails."""
    front.start()
    front.wg_quick.on("up", exit_status=1)
    front.nft.on("-f", exit_status=1, when=lambda call: len(front.world.calls("wg-quick", "up")) == 1)
    assert front.connect()["lastError"] == UP_FAILED + NOT_CLEANED_UP
    assert front.logs()[-1] == ("error", "WireGuard connection failed.")


def test_a_start_over_ground_that_cannot_be_cleared_fails_with_that_sentence(front):
    front.start()
    front.nft.on("-f", exit_status=1)
    assert front.connect()["lastError"] == KILL_SWITCH_FAILED + NOT_CLEANED_UP
    assert front.world.calls("wg-quick") == []


def test_a_disconnect_while_up_runs_lets_the_connect_publish_nothing_more(front):
    gate = front.wg_quick.gate("up")
    front.start()
    front.begin_connect(kill_switch=True)
    front.world.wait_call("wg-quick", "up")
    front.alice.call("Disconnect")
    gate.open()
    assert front.settled("disconnected") == {"stage": "disconnected"}
    assert front.heard() == [
        snapshot_signal("preparing", "p1"), log_signal(*PREPARING), snapshot_signal("connecting", "p1"),
        snapshot_signal("disconnecting", "p1"), snapshot_signal("disconnected"), log_signal(*DISCONNECTED)]
    # The start takes its own tunnel down, the recovery follows, then the disconnect.
    assert front.commands() == CLEAR_GROUND + BRING_UP + TAKE_DOWN + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    assert not front.repair_required()


def test_a_start_that_fails_after_a_disconnect_publishes_no_error(front):
    gate = front.wg_quick.gate("up")
    front.wg_quick.on("up", exit_status=1)
    front.start()
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    front.alice.call("Disconnect")
    gate.open()
    assert front.settled("disconnected") == {"stage": "disconnected"}
    assert "error" not in front.stages()
    assert front.logs() == [PREPARING, DISCONNECTED]


def test_a_recovery_that_fails_after_a_disconnect_shows_as_a_repair_alone(front):
    """Seen between the connect's end and the disconnect, which is held at its first command."""
    gate = front.wg_quick.gate("up")
    front.wg_quick.on("up", exit_status=1)
    front.start()
    front.nft.on("-f", exit_status=1, times=1, when=lambda call: len(front.world.calls("wg-quick", "up")) == 1)
    hold = Hold(front, "nft", "-f", number=3)
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    front.alice.call("Disconnect")
    gate.open()
    hold.wait()
    assert front.repair_required()
    assert front.snapshot() == {"stage": "disconnecting", "activeProfileId": "p1"}
    hold.release()
    assert front.settled("disconnected") == {"stage": "disconnected"}
    assert not front.repair_required()


def test_a_connect_after_a_cancelled_one_is_not_cancelled(front):
    gate = front.wg_quick.gate("up")
    front.start()
    front.begin_connect("p1")
    front.world.wait_call("wg-quick", "up")
    front.alice.call("Disconnect")
    gate.open()
    front.settled("disconnected")
    assert front.connect("p2")["activeProfileId"] == "p2"


def test_the_service_goes_on_answering_while_a_worker_has_the_engine(front):
    """Past the second in which its own look at the engine falls."""
    front.wg_quick.gate("up")
    front.start()
    front.begin_connect()
    begun = front.world.wait_call("wg-quick", "up").began
    while time.monotonic() < begun + 1.5:
        assert front.snapshot() == {"stage": "connecting", "activeProfileId": "p1"}


class SlowThreads:
    """Holds each new thread of the service at its first step, far longer than anything here takes."""

    def __init__(self, front):
        if "libtsan" in Path(f"/proc/{front.service.host_pid}/maps").read_text():
            pytest.skip("the thread sanitizer makes the creator of a thread wait for its first step")
        self._tracer = front.world.spawn([
            "strace", "-f", "-p", str(front.service.pid), "-o", "/dev/null", "-e", "trace=set_robust_list",
            "-e", "inject=set_robust_list:delay_enter=20000000"])
        self._tracer.wait_line("attached with")

    def release(self) -> None:
        self._tracer.terminate()
        self._tracer.wait()


def test_a_disconnect_before_the_connect_has_begun_leaves_nothing_of_it(front):
    front.start()
    threads = SlowThreads(front)
    front.begin_connect(kill_switch=True)
    front.alice.call("Disconnect")
    assert front.stages() == ["preparing", "disconnecting"]
    threads.release()
    assert front.settled("disconnected") == {"stage": "disconnected"}
    assert front.heard() == [
        snapshot_signal("preparing", "p1"), log_signal(*PREPARING), snapshot_signal("disconnecting", "p1"),
        snapshot_signal("disconnected"), log_signal(*DISCONNECTED)]
    assert front.commands() == [REMOVE_KILL_SWITCH]
    assert not front.world.path("/run/quorvexvpn").exists()


def test_a_shutdown_before_the_connect_has_begun_leaves_nothing_of_it(front):
    service = front.start()
    threads = SlowThreads(front)
    front.begin_connect()
    service.terminate()
    front.alice.wait_stage("disconnecting")
    threads.release()
    assert service.wait() == 0
    front.wait_stages("preparing", "disconnecting", "disconnected")
    assert front.logs() == [PREPARING]
    assert front.commands() == LAST_STOPS


def test_a_connect_that_was_only_late_still_connects(front):
    """The other half: the hold alone abandons nothing."""
    front.start()
    threads = SlowThreads(front)
    front.begin_connect()
    assert front.snapshot() == {"stage": "preparing", "activeProfileId": "p1"}
    threads.release()
    assert front.settled("connected")["stage"] == "connected"
