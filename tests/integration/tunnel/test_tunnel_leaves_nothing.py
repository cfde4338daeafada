# SPDX-License-Identifier: Apache-2.0
"""What is left of a tunnel once it is down, and of a request that was refused: nothing."""

import pytest

from quorvex_world import BusError, diff_states
from tunnel_steps import (
    DIRECT4, DIRECT6, FAR4, FAR6, FIRST_CONNECT_LEAVES, TUNNEL4, all_as, is_flow, strangers)

pytestmark = pytest.mark.tunnel


def test_after_a_disconnect_the_machine_is_as_it_was(machine):
    fresh = machine.world.state()
    files = machine.files()
    machine.connect()
    during = diff_states(fresh, machine.world.state())
    for item in ("links", "addresses", "routes4", "routes6", "rules4", "rules6", "nftables", "processes",
                 "runtime_files", "wireguard_files"):
        assert f"{item}: +" in during, f"the comparison does not see what a tunnel changes in {item}:\n{during}"
    machine.disconnect()
    assert diff_states(fresh, machine.world.state()) == FIRST_CONNECT_LEAVES
    assert machine.files() == sorted([*files, "/run/quorvexvpn"])
    assert machine.traffic(FAR4) == all_as(DIRECT4)
    assert machine.traffic(FAR6) == all_as(DIRECT6)


def test_after_the_first_connect_not_even_a_directory_comes_to_it(machine):
    machine.connect()
    machine.disconnect()
    settled, files = machine.world.state(), machine.files()
    machine.connect(machine.wireguard.profile(allowed_ips="::/0"))
    assert machine.traffic(FAR6).http is not None
    machine.disconnect()
    assert diff_states(settled, machine.world.state()) == ""
    assert machine.files() == files


def test_wg_quick_itself_leaves_one_kernel_setting_behind(machine):
    """Known and harmless: net.ipv4.conf.all.src_valid_mark stays 1 after every `wg-quick down`, by hand as well."""
    assert machine.world.state().src_valid_mark == 0
    machine.connect()
    machine.disconnect()
    assert machine.world.state().src_valid_mark == 1


def test_a_refused_user_changes_nothing_and_sends_nothing(machine):
    wire = machine.world.server.capture("phys0-peer")
    before, files = machine.world.state(), machine.files()
    wg_quick = machine.world.recorder("/usr/bin/wg-quick")
    with pytest.raises(BusError) as refusal:
        machine.world.client("bob").connect("home", "wireGuard", machine.wireguard.profile(), kill_switch=True)
    assert refusal.value.name == "org.quorvexvpn.Error.NotAuthorized"
    with pytest.raises(BusError) as refusal:
        machine.world.client("bob").call("Disconnect")
    assert refusal.value.name == "org.quorvexvpn.Error.NotAuthorized"
    assert machine.snapshot() == {"stage": "disconnected"}
    assert (diff_states(before, machine.world.state()), machine.files()) == ("", files)
    assert machine.world.state().src_valid_mark == 0
    assert machine.world.calls(wg_quick.path) == [] and machine.dns_calls() == []
    assert machine.alice.stages == []
    assert strangers(wire.packets()) == [] and not any(is_flow(line) for line in wire.packets())


def test_a_refused_user_cannot_take_anothers_tunnel_down(machine):
    machine.connect()
    before = machine.world.state()
    with pytest.raises(BusError):
        machine.world.client("bob").call("Disconnect")
    with pytest.raises(BusError):
        machine.world.client("bob").connect("other", "wireGuard", machine.wireguard.profile())
    assert machine.snapshot()["stage"] == "connected"
    assert diff_states(before, machine.world.state()) == ""
    assert machine.traffic(FAR4) == all_as(TUNNEL4)
