# SPDX-License-Identifier: Apache-2.0
"""A Disconnect or a shutdown while a process engine comes up: seen within one pause of the wait."""

import time

import pytest

from engine_flow import SING_BOX
from wireguard_flow import CLEAR_GROUND, REMOVE_KILL_SWITCH, Hold

pytestmark = pytest.mark.bus

# The pause between two looks, and what a busy machine may add.
SEEN_WITHIN = 0.5 + 0.5
PATIENCE = 8.0


@pytest.fixture
def waiting(flow, engine):
    """The engine runs, shows no tunnel and has a second name for its file."""
    flow.behave(engine, shell=f"ln {engine.config} /run/second-name", hang=True)
    flow.start()
    flow.begin(engine)
    flow.wait_run(engine)
    flow.world.poll(flow.world.path("/run/second-name").exists, what="the second name")
    return flow


def expect_only_the_disconnect_was_published(flow, engine) -> None:
    assert flow.stages() == ["preparing", "connecting", "disconnecting", "disconnected"]
    assert flow.logs() == [("info", f"Preparing {engine.name} tunnel."),
                           ("info", "VPN tunnel disconnected.")]
    assert flow.files() == []
    assert not flow.repair_required()


def test_a_disconnect_during_the_wait_stops_the_engine_within_half_a_second(waiting, engine):
    flow = waiting
    began = time.monotonic()
    flow.alice.call("Disconnect")
    assert flow.world.wait_ended(flow.running(engine)).ended - began < SEEN_WITHIN
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    start = CLEAR_GROUND + engine.launch + engine.clean_up
    assert flow.commands() == start + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    expect_only_the_disconnect_was_published(flow, engine)


def test_the_file_of_a_cancelled_engine_is_wiped_and_not_only_unlinked(waiting, engine):
    flow = waiting
    second = flow.world.path("/run/second-name")
    size = second.stat().st_size
    assert size > 0 and b"\0" not in second.read_bytes()
    flow.alice.call("Disconnect")
    flow.settled("disconnected")
    assert second.read_bytes() == b"\0" * size


def test_a_shutdown_during_the_wait_does_the_same(waiting, engine):
    flow = waiting
    assert flow.world.service.stop() == 0
    assert not flow.engine_lives(engine)
    start = CLEAR_GROUND + engine.launch + engine.clean_up
    assert flow.commands() == start + CLEAR_GROUND + [REMOVE_KILL_SWITCH] * 2
    assert flow.files() == []


def test_a_disconnect_while_the_ground_is_cleared_writes_and_runs_nothing(flow, engine):
    flow.start()
    hold = Hold(flow, "quorvexvpn-dns", "revert")
    flow.begin(engine)
    hold.wait()
    flow.alice.call("Disconnect")
    hold.release()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    assert not flow.world.path("/run/quorvexvpn").exists()
    expect_only_the_disconnect_was_published(flow, engine)


def test_a_disconnect_while_the_check_runs_is_seen_before_the_first_look(flow):
    """The engine has been run by then, and is stopped before it could show anything."""
    flow.behave(SING_BOX, shell=SING_BOX.add_interface, hang=True)
    gate = flow.tools["sing-box"].gate("check")
    flow.start()
    flow.begin(SING_BOX)
    flow.world.wait_call("sing-box", "check")
    flow.alice.call("Disconnect")
    gate.open()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    # It may be stopped before it has even reported that it was run; nothing looks at its tunnel.
    shown = [line for line in flow.commands() if line != SING_BOX.run]
    assert shown == CLEAR_GROUND + SING_BOX.launch[:1] + CLEAR_GROUND + [REMOVE_KILL_SWITCH]
    expect_only_the_disconnect_was_published(flow, SING_BOX)


def test_a_disconnect_during_the_last_look_comes_too_late_to_cancel(flow, engine):
    """The engine is up, and is stopped as one that was."""
    words = engine.look[-1].split()[1:]
    gate = flow.ip.gate(*words)
    flow.start()
    flow.begin(engine)
    flow.world.wait_call("ip", *words)
    flow.world.poll(lambda: flow.has_routes(engine), what="the routes of the engine")
    flow.alice.call("Disconnect")
    gate.open()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    up = CLEAR_GROUND + engine.launch + list(engine.look)
    assert flow.launches(engine) == up + engine.stop + [REMOVE_KILL_SWITCH]
    expect_only_the_disconnect_was_published(flow, engine)


@pytest.mark.slow
def test_a_cancelled_engine_that_will_not_end_is_killed(flow, engine):
    """Nobody is told: the connect was withdrawn, and the disconnect finds nothing to do."""
    flow.behave(engine, hang=True, ignore_term=True)
    flow.start()
    flow.begin(engine)
    call = flow.wait_run(engine)
    began = time.monotonic()
    flow.alice.call("Disconnect")
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert PATIENCE <= flow.world.wait_ended(call).ended - began < PATIENCE + SEEN_WITHIN + 1
    expect_only_the_disconnect_was_published(flow, engine)


def test_a_connect_after_a_cancelled_one_succeeds(waiting, engine):
    flow = waiting
    flow.alice.call("Disconnect")
    flow.settled("disconnected")
    flow.behave(engine, shell=engine.come_up, hang=True)
    assert flow.attempt(engine)["stage"] == "connected"
