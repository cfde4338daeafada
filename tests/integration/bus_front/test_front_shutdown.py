# SPDX-License-Identifier: Apache-2.0
"""How a stop signal ends the service: its last words, the tunnel's end before the process's, and the exit status."""

import signal

import pytest

from front_steps import (
    BRING_UP, CLEAR_GROUND, DOWN, DOWN_FAILED, KILL_SWITCH_FAILED, LAST_STOPS, REMOVE_KILL_SWITCH, REVERT_DNS,
    STARTED, TAKE_DOWN, OwnerLog, snapshot_signal)
from quorvex_world import BUS_NAME

pytestmark = pytest.mark.bus

STOP_SIGNALS = [pytest.param(signal.SIGTERM, id="SIGTERM"), pytest.param(signal.SIGINT, id="SIGINT")]


def expect_last_words(front, *words: tuple[str, str]) -> None:
    front.world.wait(lambda: len(front.heard()) >= len(words), what="the last words")
    assert front.heard() == list(words)


def journal_without_start(service) -> list[str]:
    return [line for line in service.journal if not line.endswith(STARTED)]


@pytest.mark.parametrize("number", STOP_SIGNALS)
def test_a_stop_signal_ends_an_idle_service(front, number):
    service = front.start()
    service.signal(number)
    assert service.wait() == 0
    expect_last_words(front, snapshot_signal("disconnecting"), snapshot_signal("disconnected"))
    assert front.commands() == LAST_STOPS
    assert journal_without_start(service) == []


@pytest.mark.parametrize("number", STOP_SIGNALS)
def test_a_stop_signal_takes_the_tunnel_down_first(front, number):
    service = front.start()
    front.connected(kill_switch=True)
    service.signal(number)
    assert service.wait() == 0
    expect_last_words(front, snapshot_signal("disconnecting", "p1"), snapshot_signal("disconnected"))
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REMOVE_KILL_SWITCH]
    assert not front.world.interface_exists("quorvexvpn")
    assert front.world.state().nftables == []


def test_the_last_word_comes_before_the_name_is_given_up(front):
    service = front.start()
    log = OwnerLog(front.alice)
    before = len(front.alice.signals)
    assert service.stop() == 0
    front.world.wait(log.departures, what="the end of the name at the client")
    [(_, signals_before)] = log.departures()
    assert signals_before == before + 2


def test_disconnecting_is_said_before_anything_runs(front):
    service = front.start()
    front.connected()
    gate = front.nft.gate("-f")
    service.terminate()
    front.world.wait_call("nft", "-f", count=3)
    expect_last_words(front, snapshot_signal("disconnecting", "p1"))
    gate.open()
    assert service.wait() == 0


@pytest.mark.parametrize("second", STOP_SIGNALS)
@pytest.mark.parametrize("first", STOP_SIGNALS)
def test_a_second_stop_signal_neither_kills_nor_restarts_the_shutdown(front, first, second):
    service = front.start()
    front.connected()
    gate = front.wg_quick.gate("down")
    service.signal(first)
    front.world.wait_call("wg-quick", "down")
    for _ in range(2):
        service.signal(second)
        front.world.poll(lambda: not pending_signals(service), what="the delivery of the second signal")
    assert service.alive
    gate.open()
    assert service.wait() == 0
    expect_last_words(front, snapshot_signal("disconnecting", "p1"), snapshot_signal("disconnected"))
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REMOVE_KILL_SWITCH]


def pending_signals(service) -> int:
    with open(f"/proc/{service.host_pid}/status") as status:
        fields = dict(line.split(":", 1) for line in status)
    return int(fields["ShdPnd"], 16) | int(fields["SigPnd"], 16)


def test_a_hangup_keeps_its_default_action(front):
    # A test run under nohup passes its ignored SIGHUP on.
    service = front.start(wrapper=["/usr/bin/env", "--default-signal=HUP"])
    service.signal(signal.SIGHUP)
    assert service.wait() == -signal.SIGHUP
    front.world.wait(lambda: not front.alice.owners[BUS_NAME], what="the end of the name")
    assert front.heard() == []
    assert front.commands() == []


def test_a_down_that_fails_at_the_end_gives_status_1_and_its_sentence(front):
    service = front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1)
    assert service.stop() == 1
    expect_last_words(front, snapshot_signal("disconnecting", "p1"), snapshot_signal("error", error=DOWN_FAILED))
    # The end of the record tries once more.
    assert front.commands() == [REMOVE_KILL_SWITCH, REVERT_DNS, DOWN] * 2
    assert front.world.interface_exists("quorvexvpn")


def test_a_kill_switch_that_stays_at_the_end_gives_status_1_and_its_sentence(front):
    service = front.start()
    front.nft.on("-f", exit_status=1)
    assert service.stop() == 1
    expect_last_words(front, snapshot_signal("disconnecting"), snapshot_signal("error", error=KILL_SWITCH_FAILED))
    assert front.commands() == LAST_STOPS


def test_the_second_attempt_of_the_end_can_still_take_the_tunnel_down(front):
    """The status tells that the stop failed all the same."""
    service = front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1, times=1)
    assert service.stop() == 1
    assert not front.world.interface_exists("quorvexvpn")


def test_a_failed_start_is_no_failure_of_the_end(front):
    service = front.start()
    front.wg_quick.on("up", exit_status=1)
    assert front.connect()["stage"] == "error"
    assert service.stop() == 0


def test_a_failed_recovery_is_no_failure_of_the_end(front):
    front.nft.on("-f", exit_status=1, times=1)
    service = front.start()
    assert service.stop() == 0
    expect_last_words(front, snapshot_signal("disconnecting"), snapshot_signal("disconnected"))


def test_a_connect_in_flight_is_waited_for_and_publishes_nothing(front):
    gate = front.wg_quick.gate("up")
    service = front.start()
    front.begin_connect(kill_switch=True)
    front.world.wait_call("wg-quick", "up")
    service.terminate()
    front.alice.wait_stage("disconnecting")
    assert front.commands() == CLEAR_GROUND + BRING_UP[:1]
    gate.open()
    assert service.wait() == 0
    front.wait_stages("preparing", "connecting", "disconnecting", "disconnected")
    assert front.logs() == [("info", "Preparing WireGuard tunnel.")]
    assert front.commands() == BRING_UP[1:] + TAKE_DOWN + CLEAR_GROUND + LAST_STOPS
    assert not front.world.interface_exists("quorvexvpn")


def test_a_disconnect_in_flight_is_waited_for_and_told(front):
    service = front.start()
    front.connected()
    gate = front.wg_quick.gate("down")
    front.alice.call("Disconnect")
    front.world.wait_call("wg-quick", "down")
    service.terminate()
    front.world.wait(lambda: front.stages() == ["disconnecting"] * 2, what="the shutdown")
    gate.open()
    assert service.wait() == 0
    front.wait_stages("disconnecting", "disconnecting", "disconnected", "disconnected")
    assert front.logs() == [("info", "VPN tunnel disconnected.")]
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN] + LAST_STOPS


def test_a_failed_disconnect_in_flight_is_mended_by_the_last_stop(front):
    service = front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1, times=1)
    gate = front.wg_quick.gate("down")
    front.alice.call("Disconnect")
    front.world.wait_call("wg-quick", "down")
    service.terminate()
    front.world.wait(lambda: front.stages() == ["disconnecting"] * 2, what="the shutdown")
    gate.open()
    assert service.wait() == 0
    front.wait_stages("disconnecting", "disconnecting", "error", "disconnected")


def test_the_end_never_hangs_on_a_worker_that_ends_at_the_same_time(front):
    """The worker's end and the shutdown's look at it fall together in every possible order sooner or later."""
    for cycle in range(20):
        service = front.start()
        front.begin_connect()
        if cycle % 2:
            front.world.wait_call("ip", "-4", count=len(front.world.calls("ip", "-4")) + 1)
        service.terminate()
        assert service.wait(10) == 0
        assert not front.world.interface_exists("quorvexvpn")


@pytest.mark.slow
@pytest.mark.parametrize("stubborn", [False, True], ids=["ends by SIGTERM", "ignores SIGTERM"])
def test_a_hung_up_delays_the_end_only_by_its_time_limit(front, stubborn):
    front.wg_quick.on("up", hang=True, ignore_term=stubborn)
    service = front.start()
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    assert service.stop(timeout=25) == 0
    front.wait_stages("preparing", "connecting", "disconnecting", "disconnected")


@pytest.mark.slow
def test_a_hung_kill_switch_removal_delays_the_end_only_by_its_time_limit(front):
    service = front.start()
    front.nft.on("-f", hang=True)
    # Five seconds for the last stop and as many for the end of the record.
    assert service.stop(timeout=20) == 1
    front.wait_stages("disconnecting", "error")
