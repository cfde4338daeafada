# SPDX-License-Identifier: Apache-2.0
"""The bus name and the bus itself: a name that another one holds, a name that is never given away, a bus that dies."""

import pytest

from front_steps import CLEAR_GROUND, LAST_STOPS, NAME_LOST, REMOVE_KILL_SWITCH, STARTED, TAKE_DOWN, Front, Hold
from quorvex_world import BUS_NAME

pytestmark = pytest.mark.bus

# RequestName's flags and answers.
ALLOW_REPLACEMENT, REPLACE_EXISTING = 1, 2
PRIMARY_OWNER, IN_QUEUE, EXISTS = 1, 2, 3


def request_name(front: Front, flags: int) -> int:
    return front.bus("RequestName", "(su)", BUS_NAME, flags)


def expect_lost_name(service) -> None:
    """The exit status and the one warning that a lost name gives."""
    assert service.wait() == 1
    warnings = [line for line in service.journal if NAME_LOST in line]
    assert len(warnings) == 1
    assert "WARNING **" in warnings[0] and warnings[0].endswith(f": {NAME_LOST}")


@pytest.mark.parametrize("flags", [
    pytest.param(0, id="for good"),
    pytest.param(ALLOW_REPLACEMENT, id="though it may be replaced"),
])
def test_a_name_that_another_process_holds_ends_the_service(front, flags):
    assert request_name(front, flags) == PRIMARY_OWNER
    service = front.start_without_waiting()
    expect_lost_name(service)
    # The recovery, and then the engine is stopped as in any shutdown.
    assert front.commands() == CLEAR_GROUND + LAST_STOPS
    assert front.bus("GetNameOwner", "(s)", BUS_NAME) == front.root.unique_name


def test_a_service_without_its_name_has_spoken_on_the_bus_and_ends_in_order(front):
    request_name(front, 0)
    service = front.start_without_waiting()
    expect_lost_name(service)
    # No "disconnecting": that is the word of a stop signal.
    front.world.wait(lambda: len(front.signals()) == 2, what="both words")
    assert front.logs() == [("info", STARTED)]
    assert front.stages() == ["disconnected"]
    assert {one.sender for one in front.signals()} != {front.root.unique_name}


def test_a_service_that_found_the_name_taken_ends_although_the_name_falls_free(front):
    """Held in its last stop, it still has its connection when the other one leaves."""
    request_name(front, 0)
    hold = Hold(front, "nft", "-f", number=2)
    service = front.start_without_waiting()
    hold.wait()
    front.bus("ReleaseName", "(s)", BUS_NAME)
    hold.release()
    expect_lost_name(service)
    assert not front.name_has_owner()


def test_nobody_can_take_the_name_from_the_service(front):
    service = front.start()
    owner = front.bus("GetNameOwner", "(s)", BUS_NAME)
    assert request_name(front, REPLACE_EXISTING) == IN_QUEUE
    front.bus("ReleaseName", "(s)", BUS_NAME)
    assert front.bus("GetNameOwner", "(s)", BUS_NAME) == owner
    assert service.alive and front.snapshot() == {"stage": "disconnected"}


def test_a_second_service_leaves_the_first_one_and_its_name_alone(front):
    first = front.start()
    second = front.world.start_service(wait=False)
    expect_lost_name(second)
    assert first.alive
    assert front.snapshot() == {"stage": "disconnected"}


def test_the_death_of_the_bus_ends_an_idle_service(front):
    service = front.start()
    front.world.kill_bus()
    expect_lost_name(service)
    assert front.commands() == LAST_STOPS


def test_the_death_of_the_bus_takes_the_tunnel_down(front):
    front.start()
    front.connected(kill_switch=True)
    front.world.kill_bus()
    expect_lost_name(front.service)
    assert front.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REMOVE_KILL_SWITCH]
    assert not front.world.interface_exists("quorvexvpn")
    assert front.world.state().nftables == []


def test_the_last_words_without_a_bus_go_to_the_journal_as_a_warning(front):
    service = front.start()
    front.world.kill_bus()
    expect_lost_name(service)
    [line] = [line for line in service.journal if "Unable to emit" in line]
    assert "WARNING **" in line and ": Unable to emit SnapshotChanged: " in line
    assert not line.endswith(": ")


def test_the_death_of_the_bus_cancels_a_connect(front):
    gate = front.wg_quick.gate("up")
    service = front.start()
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    front.world.kill_bus()
    service.wait_journal(NAME_LOST)
    assert service.alive
    gate.open()
    expect_lost_name(service)
    assert len(front.world.calls("wg-quick", "down")) == 1
    assert not front.world.interface_exists("quorvexvpn")


def test_a_failed_stop_after_the_death_of_the_bus_still_gives_status_1(front):
    front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1)
    front.world.kill_bus()
    expect_lost_name(front.service)


def test_a_machine_without_a_bus_ends_the_service(make_world):
    with make_world(bus=False) as world:
        world.standard_tools()
        service = world.start_service(wait=False)
        expect_lost_name(service)
        assert not any(STARTED in line for line in service.journal)
        assert [" ".join(call.argv) for call in world.all_calls()] == CLEAR_GROUND + LAST_STOPS
