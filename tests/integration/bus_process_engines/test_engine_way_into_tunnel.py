# SPDX-License-Identifier: Apache-2.0
"""The routing rules that lead everything into sing-box's tunnel: when there are any, and what a fault with them does.
The rules are in the real kernel; the engine is a stand-in."""

import json
import os
import signal

import pytest

from engine_flow import OPENVPN, SING_BOX, SING_BOX_PROFILE, XRAY

pytestmark = pytest.mark.bus

ACTIVE = ("info", "Kill switch active for this tunnel.")
NOT_APPLIED = ("warning", "Kill switch could not be applied: The nftables leak-protection command failed.")


def rules(flow) -> list[str]:
    """Of both families, those of our priorities."""
    listed = [flow.world.run(["/usr/bin/ip", family, "rule"]).stdout for family in ("-4", "-6")]
    return [line for text in listed for line in text.splitlines() if line.startswith(("9099:", "9100:"))]


def with_mark(mark) -> str:
    profile = json.loads(SING_BOX_PROFILE)
    profile["inbounds"][0]["auto_redirect_output_mark"] = mark
    return json.dumps(profile)


OURS = ["9100:\tnot from all fwmark 0x2024 lookup 2022 proto 113"] * 2
# As long as nothing blocks them there, the machine's own networks stay where they are.
WITHOUT_KILL_SWITCH = ["9099:\tfrom all lookup main suppress_prefixlength 0 proto 113", OURS[0]] * 2


def test_it_comes_before_the_table_and_goes_with_it(flow):
    """Local networks go inside just before the table would block them outside."""
    look = flow.ip.gate("-4", "route")
    flow.start()
    flow.begin(SING_BOX, kill_switch=True)
    flow.world.wait_call("ip", "-4", "route")
    loading = flow.nft.gate("-f", "-")
    count = len(flow.world.calls("nft"))
    look.open()
    flow.world.wait_call("nft", count=count + 1)
    assert rules(flow) == OURS and not flow.has_kill_switch()
    loading.open()
    assert flow.settled("connected")["stage"] == "connected"
    assert ACTIVE in flow.logs() and rules(flow) == OURS
    flow.disconnect()
    assert rules(flow) == []


def test_it_has_the_mark_of_the_configuration(flow):
    flow.start()
    flow.connect(with_mark("0x77"), protocol="vless", kill_switch=True)
    assert rules(flow) == ["9100:\tnot from all fwmark 0x77 lookup 2022 proto 113"] * 2


def test_a_mark_that_cannot_be_read_leaves_the_traffic_blocked_and_says_so(flow):
    flow.start()
    flow.connect(with_mark("077"), protocol="vless", kill_switch=True)
    assert ACTIVE in flow.logs() and flow.has_kill_switch() and rules(flow) == []
    [warning] = [line for line in flow.world.service.journal if "Traffic stays blocked" in line]
    assert "the configuration's packet mark cannot be read" in warning


def test_a_table_that_cannot_be_loaded_leaves_the_local_networks_outside(flow):
    flow.nft.on("-f", "-", when=lambda call: "policy drop" in call.stdin, exit_status=1)
    flow.start()
    assert flow.attempt(SING_BOX, kill_switch=True)["stage"] == "connected"
    assert NOT_APPLIED in flow.logs()
    assert not flow.has_kill_switch() and rules(flow) == WITHOUT_KILL_SWITCH


@pytest.mark.parametrize("engine", [XRAY, OPENVPN], ids=lambda one: one.name)
def test_the_other_engines_need_none(flow, engine):
    flow.start()
    flow.attempt(engine, kill_switch=True)
    assert ACTIVE in flow.logs() and rules(flow) == []


def test_without_the_kill_switch_the_local_networks_stay_outside(flow):
    flow.start()
    flow.attempt(SING_BOX)
    assert rules(flow) == WITHOUT_KILL_SWITCH
    flow.disconnect()
    assert rules(flow) == []


def test_a_mark_that_cannot_be_read_leaves_earlier_connections_outside_and_says_so(flow):
    flow.start()
    flow.connect(with_mark("077"), protocol="vless")
    assert rules(flow) == []
    [warning] = [line for line in flow.world.service.journal if "Earlier connections go on outside" in line]
    assert "the configuration's packet mark cannot be read" in warning


@pytest.mark.parametrize("kill_switch", [True, False])
def test_they_go_when_the_engine_dies(flow, kill_switch):
    """What the kill switch blocks stays blocked; the rules would lead nowhere."""
    flow.start()
    flow.attempt(SING_BOX, kill_switch=kill_switch)
    os.kill(flow.running(SING_BOX).host_pid, signal.SIGKILL)
    flow.settled("error")
    assert rules(flow) == [] and flow.has_kill_switch() == kill_switch


def test_a_start_after_a_crash_removes_it(flow):
    service = flow.start()
    flow.attempt(SING_BOX, kill_switch=True)
    service.kill()
    service.wait()
    assert rules(flow) == OURS and flow.has_kill_switch()
    flow.start()
    assert rules(flow) == [] and not flow.has_kill_switch()
