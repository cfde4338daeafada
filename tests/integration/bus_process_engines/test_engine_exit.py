# SPDX-License-Identifier: Apache-2.0
"""An engine that dies while it is connected: who notices, when, and what stays."""

import os
import signal

import pytest

from engine_flow import OPENVPN, SING_BOX, names
from wireguard_flow import REMOVE_KILL_SWITCH, Hold, failure

pytestmark = pytest.mark.bus

# The service looks once a second.
NOTICED_WITHIN = 2.0


def await_the_news(flow, call) -> None:
    flow.world.wait(lambda: "error" in flow.stages(), what="the news of its end")
    error = flow.alice.wait_stage("error")
    assert error.time - flow.world.wait_ended(call).ended < NOTICED_WITHIN


def test_an_engine_that_dies_is_told_and_its_files_go(flow, engine):
    flow.start()
    flow.up(engine)
    flow.mark()
    call = flow.kill_engine(engine)
    await_the_news(flow, call)
    assert flow.snapshot() == failure(engine.died)
    assert flow.stages() == ["error"]
    assert flow.logs() == [("error", "The active VPN engine stopped unexpectedly.")]
    assert flow.files() == []
    assert flow.commands() == engine.clean_up
    assert flow.repair_required()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGSEGV])
def test_an_engine_that_ends_in_another_way_counts_the_same(flow, engine, number):
    flow.start()
    flow.up(engine)
    await_the_news(flow, flow.kill_engine(engine, number))
    assert flow.snapshot() == failure(engine.died)


def test_a_dead_engine_is_reaped(flow, engine):
    flow.start()
    flow.up(engine)
    call = flow.kill_engine(engine)
    await_the_news(flow, call)
    assert not os.path.exists(f"/proc/{call.host_pid}")


def test_the_kill_switch_stays_until_the_user_disconnects(flow, engine):
    flow.start()
    flow.up(engine, kill_switch=True)
    await_the_news(flow, flow.kill_engine(engine))
    assert flow.has_kill_switch()
    assert flow.commands() == engine.clean_up
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH]
    assert not flow.has_kill_switch()
    assert not flow.repair_required()


def test_a_file_that_stays_is_not_told(flow, engine):
    flow.start()
    flow.up(engine)
    flow.world.path(engine.config).unlink()
    flow.world.run(["mkdir", engine.config])
    await_the_news(flow, flow.kill_engine(engine))
    assert flow.snapshot() == failure(engine.died)
    assert flow.files() == names((engine.config,))


def test_a_dns_revert_that_fails_keeps_the_files_and_is_not_told(flow):
    flow.start()
    flow.up(OPENVPN)
    flow.dns_helper.on("revert", exit_status=1)
    await_the_news(flow, flow.kill_engine(OPENVPN))
    assert flow.snapshot() == failure(OPENVPN.died)
    assert flow.files() == names(OPENVPN.files)


def test_the_same_engine_can_come_up_after_it(flow, engine):
    flow.start()
    flow.up(engine, kill_switch=True)
    await_the_news(flow, flow.kill_engine(engine))
    assert flow.attempt(engine)["stage"] == "connected"
    assert not flow.has_kill_switch()
    assert not flow.repair_required()


def test_a_disconnect_right_after_the_end_is_an_ordinary_one(flow, engine):
    """Whether the once-a-second look or the disconnect comes first."""
    flow.start()
    flow.up(engine)
    flow.kill_engine(engine)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.files() == []
    assert not flow.repair_required()


def test_an_engine_that_dies_during_the_kill_switch_is_noticed_after_it(flow):
    flow.start()
    hold = Hold(flow, "nft", number=2)
    flow.begin(SING_BOX, kill_switch=True)
    hold.wait()
    call = flow.kill_engine(SING_BOX)
    flow.world.wait_ended(call)
    hold.release()
    flow.settled("error")
    assert flow.stages() == ["preparing", "connecting", "connected", "error"]
    assert flow.snapshot() == failure(SING_BOX.died)
    assert flow.has_kill_switch()
