# SPDX-License-Identifier: Apache-2.0
"""How a process engine goes down, what a failure leaves and what it tells."""

import signal
import time

import pytest

from engine_flow import OPENVPN, SING_BOX, names
from wireguard_flow import (
    DNS_HELPER, KILL_SWITCH_FAILED, OPENVPN_PID, REMOVE_KILL_SWITCH, RESOLVECTL, stop_failure)

pytestmark = pytest.mark.bus

REVERT_FAILED = "Unable to revert OpenVPN DNS state."
STAYS = "Unable to open private runtime data for removal: Is a directory"
# How long an engine has between the polite signal and the other one.
PATIENCE = 8.0
SLACK = 2.0


# Its program is a script: a stand-in leaves the signal alone or dies of it.
SLOW_TO_END = """#!/bin/sh
[ "$1" = check ] && exit 0
trap 'echo asked >/run/asked; read line </run/may-end; exit 0' TERM
%s
# A shell runs its trap only between two commands, and during this one.
sleep 60 & wait $!
"""


def test_an_engine_is_asked_to_end_and_its_files_go_when_it_has(flow, engine):
    flow.world.run(["mkfifo", "/run/may-end"])
    flow.world.put_file(engine.program, SLOW_TO_END % engine.come_up, mode=0o755)
    flow.start()
    flow.connected(engine.profile, protocol=engine.protocol)
    flow.begin_disconnect()
    flow.world.poll(flow.world.path("/run/asked").exists, what="the signal")
    assert flow.files() == names(engine.files)
    with open(flow.world.path("/run/may-end"), "w") as way_out:
        way_out.write("go\n")
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.files() == []


@pytest.mark.slow
class TestAnEngineThatWillNotEnd:
    @pytest.fixture(autouse=True)
    def stubborn(self, flow, engine):
        flow.behave(engine, shell=engine.come_up, hang=True, ignore_term=True)
        flow.start()
        flow.up(engine)

    def test_is_killed_and_told(self, flow, engine):
        began = time.monotonic()
        assert flow.disconnect() == stop_failure(engine.forced)
        assert PATIENCE <= time.monotonic() - began < PATIENCE + SLACK
        assert flow.commands() == engine.stop
        assert flow.files() == []
        assert not flow.engine_lives(engine)
        assert ("error", "VPN disconnect cleanup failed.") in flow.logs()
        assert flow.repair_required()
        # The engine is forgotten all the same.
        assert flow.disconnect() == {"stage": "disconnected"}
        assert flow.commands() == [REMOVE_KILL_SWITCH]
        assert not flow.repair_required()

    def test_is_told_rather_than_its_file_that_stays(self, flow, engine):
        flow.world.path(engine.config).unlink()
        flow.world.run(["mkdir", engine.config])
        flow.nft.on("-f", "-", exit_status=1, times=1)
        assert flow.disconnect() == stop_failure(engine.forced)

    def test_makes_the_exit_status_of_a_shutdown_one(self, flow, engine):
        assert flow.world.service.stop() == 1
        assert not flow.engine_lives(engine)
        assert flow.files() == []

    def test_keeps_the_next_engine_from_coming_up_once(self, flow, engine):
        later = OPENVPN if engine is SING_BOX else SING_BOX
        assert flow.attempt(later)["lastError"] == engine.forced
        assert not flow.world.calls(later.program)
        assert flow.attempt(later)["stage"] == "connected"


@pytest.mark.slow
def test_a_frozen_engine_is_killed_too(flow, engine):
    flow.start()
    flow.up(engine)
    flow.kill_engine(engine, signal.SIGSTOP)
    assert flow.disconnect() == stop_failure(engine.forced)
    assert not flow.engine_lives(engine)
    assert flow.files() == []


def test_a_file_that_stays_is_told(flow, engine):
    flow.start()
    flow.up(engine)
    flow.world.path(engine.config).unlink()
    flow.world.run(["mkdir", engine.config])
    assert flow.disconnect() == stop_failure(STAYS)
    assert not flow.engine_lives(engine)
    assert flow.repair_required()


def test_a_kill_switch_that_stays_is_told_when_the_engine_has_ended(flow, engine):
    flow.start()
    flow.up(engine)
    flow.nft.on("-f", "-", exit_status=1, times=1)
    assert flow.disconnect() == stop_failure(KILL_SWITCH_FAILED)
    assert flow.commands() == engine.stop
    assert not flow.engine_lives(engine)
    assert flow.files() == []


def test_a_dns_revert_that_fails_keeps_openvpns_files(flow):
    flow.start()
    flow.up(OPENVPN)
    flow.dns_helper.on("revert", exit_status=1, times=1)
    flow.nft.on("-f", "-", exit_status=1, times=1)
    # The engine's message wins over the kill switch's.
    assert flow.disconnect() == stop_failure(REVERT_FAILED)
    assert not flow.engine_lives(OPENVPN)
    assert flow.files() == names(OPENVPN.files)
    assert flow.repair_required()
    # They are the next start's or connect's to clear; there is no engine to stop any more.
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.files() == names(OPENVPN.files)
    flow.up(SING_BOX)
    assert flow.files() == names(SING_BOX.files)


@pytest.mark.parametrize("tool", [RESOLVECTL, DNS_HELPER])
def test_without_both_dns_tools_openvpns_files_just_go(flow, tool):
    flow.start()
    flow.up(OPENVPN)
    flow.world.remove_tool(tool)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH]
    assert flow.files() == []


def test_a_pid_file_that_cannot_be_removed_is_ignored(flow):
    flow.start()
    flow.up(OPENVPN)
    flow.world.path(OPENVPN_PID).unlink()
    flow.world.run(["mkdir", OPENVPN_PID])
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.files() == ["openvpn.pid"]


def test_a_link_in_the_place_of_the_pid_file_is_unlinked_and_not_followed(flow):
    flow.start()
    flow.up(OPENVPN)
    flow.world.put_file("/run/elsewhere", b"not ours\n")
    flow.world.path(OPENVPN_PID).unlink()
    flow.world.path(OPENVPN_PID).symlink_to("/run/elsewhere")
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.files() == []
    assert flow.world.path("/run/elsewhere").read_bytes() == b"not ours\n"


def test_an_engine_is_not_looked_for_by_its_interface(flow, engine):
    """What somebody else does to the interface does not concern the stop."""
    flow.start()
    flow.up(engine)
    flow.remove_interface_of(engine)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == engine.stop


def test_the_end_of_the_bus_takes_the_engine_down(flow, engine):
    service = flow.start()
    flow.up(engine)
    flow.world.kill_bus()
    assert service.wait() == 1
    assert not flow.engine_lives(engine)
    assert flow.files() == []
