# SPDX-License-Identifier: Apache-2.0
"""From the start of the process to the owned name: what runs first, what is said, and what a crash leaves to do."""

import pytest

from front_steps import (
    ADD_INTERFACE, CONFIG, DOWN_FAILED, KILL_SWITCH_FAILED, REMOVE_KILL_SWITCH, REPAIR_REQUIRED, REVERT_OPENVPN_DNS,
    STARTED, TAKE_DOWN, OwnerLog, log_signal, reply, snapshot_signal, snapshot_text)
from quorvex_world import BUS_NAME

pytestmark = pytest.mark.bus

ADMINISTRATOR_REPAIR = (
    "The WireGuard interface exists without its private configuration; administrator repair is required.")


def expect_the_error_waited(front, sentence: str) -> None:
    """The first answers tell it; no signal did, for there was no bus when it happened."""
    assert reply(front.alice, "GetConnectionSnapshot")[1] == snapshot_text("error", error=sentence)
    assert front.heard() == [log_signal("info", STARTED)]
    assert len(front.service.journal) == 1
    assert front.repair_required()
    front.forget()
    front.alice.call("Initialize")
    assert front.heard() == [snapshot_signal("error", error=sentence)]


def test_recovery_comes_before_the_bus(front):
    names = front.bus("ListNames")
    gate = front.nft.gate("-f")
    service = front.start_without_waiting()
    front.world.wait_call("nft", "-f")
    assert front.bus("ListNames") == names
    assert "gdbus" not in service.threads().values()
    assert service.journal == []
    gate.open()
    front.alice.wait_log(STARTED)
    assert front.commands() == [REMOVE_KILL_SWITCH, REVERT_OPENVPN_DNS]


def test_a_clean_machine_is_disconnected_and_needs_no_repair(front):
    front.start(forget=False)
    assert reply(front.alice, "GetConnectionSnapshot")[1] == snapshot_text("disconnected")
    assert front.heard() == [log_signal("info", STARTED)]
    assert not front.repair_required()


def test_the_service_says_that_it_has_started_before_it_owns_its_name(front):
    log = OwnerLog(front.alice)
    service = front.start(forget=False)
    [(owner, signals_before)] = front.world.wait(log.arrivals, what="the owner's name at the client")
    [started] = front.signals()
    assert (started.name, started.value["message"]) == ("LogEmitted", STARTED)
    assert (owner, signals_before) == (started.sender, 1)
    assert owner == front.bus("GetNameOwner", "(s)", BUS_NAME)
    assert len(service.journal) == 1
    assert service.journal[0].startswith("** Message: ") and service.journal[0].endswith(f": {STARTED}")


def test_an_interface_without_its_file_is_an_error_from_the_start(front):
    front.world.run(["/bin/sh", "-c", ADD_INTERFACE])
    service = front.start(forget=False)
    expect_the_error_waited(front, ADMINISTRATOR_REPAIR)
    assert service.alive


def test_a_kill_switch_that_stays_is_an_error_from_the_start(front):
    front.nft.on("-f", exit_status=1)
    front.start(forget=False)
    expect_the_error_waited(front, KILL_SWITCH_FAILED)
    # The recovery ended with its first failure.
    assert front.world.calls("quorvexvpn-dns") == []


def test_a_failed_recovery_shows_in_the_summary_and_a_disconnect_mends_it(front):
    front.nft.on("-f", exit_status=1, times=1)
    front.start(forget=False)
    assert front.alice.call("GetRuntimeInfo")["summary"] == (
        "Sing-box missing; Xray missing; WireGuard ready; OpenVPN missing" + REPAIR_REQUIRED)
    assert front.disconnect() == {"stage": "disconnected"}
    assert not front.repair_required()


def test_a_failed_recovery_does_not_stand_in_the_way_of_a_connect(front):
    front.nft.on("-f", exit_status=1, times=1)
    front.start(forget=False)
    assert front.connect()["stage"] == "connected"
    assert not front.repair_required()


def test_what_a_killed_service_left_is_taken_down_before_the_next_one_answers(front):
    front.start()
    front.connected()
    front.service.kill()
    front.service.wait()
    front.world.wait(lambda: not front.root.owners[BUS_NAME], what="the bus to notice")
    front.start(forget=False)
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REVERT_OPENVPN_DNS]
    assert reply(front.alice, "GetConnectionSnapshot")[1] == snapshot_text("disconnected")
    assert not front.repair_required()
    assert not front.world.path(CONFIG).exists()
    assert not front.world.interface_exists("quorvexvpn")


def test_what_a_killed_service_left_and_cannot_be_taken_down_is_an_error_from_the_start(front):
    front.start()
    front.connected()
    front.service.kill()
    front.service.wait()
    front.world.wait(lambda: not front.root.owners[BUS_NAME], what="the bus to notice")
    front.wg_quick.on("down", exit_status=1)
    front.start(forget=False)
    expect_the_error_waited(front, DOWN_FAILED)


def test_arguments_are_ignored(front):
    # $0 is the service; the shell becomes it.
    front.start(forget=False, wrapper=["/bin/sh", "-c", 'exec "$0" --help --replace /etc/passwd'])
    assert front.snapshot() == {"stage": "disconnected"}
    assert [line.endswith(f": {STARTED}") for line in front.service.journal] == [True]
