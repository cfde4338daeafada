# SPDX-License-Identifier: Apache-2.0
"""Tools that hang: when they are stopped, and that a hanging tool is no more than a failing one."""

import pytest

from wireguard_flow import (
    ADD_INTERFACE, BRING_UP, CLEAR_GROUND, IPV4_ROUTES, IPV6_ROUTES, KILL_SWITCH_FAILED,
    STOP_TUNNEL, TAKE_DOWN, UP, failure, stop_failure)

pytestmark = [pytest.mark.bus, pytest.mark.slow]

# How much later than its limit a loaded machine may see the end of a tool.
SLACK = 3.0


def expect_duration(flow, limit: float, name: str, *words: str) -> None:
    """The first such call ended by force, at its limit and not before."""
    call = flow.world.calls(name, *words)[0]
    flow.world.wait_ended(call)
    assert call.status is None
    assert limit - 0.1 <= call.ended - call.began <= limit + SLACK


@pytest.mark.parametrize("ignore_term, limit", [
    pytest.param(False, 12, id="ends at the first signal"),
    pytest.param(True, 15, id="has to be killed"),
])
def test_a_hanging_up_is_stopped_and_cleaned_up(flow, ignore_term, limit):
    flow.wg_quick.on("up", shell=ADD_INTERFACE, hang=True, ignore_term=ignore_term)
    flow.start()
    assert flow.connect() == failure("WireGuard failed to connect.")
    expect_duration(flow, limit, "wg-quick", "up")
    assert flow.commands() == CLEAR_GROUND + [UP] + TAKE_DOWN + CLEAR_GROUND
    assert flow.files() == []
    assert not flow.interface_exists()
    assert not flow.repair_required()


@pytest.mark.parametrize("ignore_term, limit", [
    pytest.param(False, 12, id="ends at the first signal"),
    pytest.param(True, 15, id="has to be killed"),
])
def test_a_hanging_down_is_a_failing_one(flow, ignore_term, limit):
    flow.start()
    flow.connected()
    flow.wg_quick.on("down", hang=True, ignore_term=ignore_term, times=1)
    assert flow.disconnect() == stop_failure("WireGuard disconnect cleanup failed.")
    expect_duration(flow, limit, "wg-quick", "down")
    assert flow.files() == ["quorvexvpn.conf"]
    flow.commands()
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == STOP_TUNNEL


def test_a_hanging_dns_helper_is_a_failing_one_at_the_start_of_a_tunnel(flow):
    flow.dns_helper.on("apply-wireguard", hang=True)
    flow.start()
    assert flow.connect() == failure("WireGuard connected but DNS setup failed.")
    expect_duration(flow, 12, "quorvexvpn-dns", "apply-wireguard")
    assert flow.commands() == CLEAR_GROUND + BRING_UP + TAKE_DOWN + CLEAR_GROUND


def test_a_hanging_dns_helper_is_a_failing_one_at_the_end_of_a_tunnel(flow):
    flow.start()
    flow.connected()
    flow.dns_helper.on("revert-wireguard", hang=True)
    assert flow.disconnect() == stop_failure("WireGuard disconnected but DNS cleanup failed.")
    expect_duration(flow, 12, "quorvexvpn-dns", "revert-wireguard")
    assert flow.commands() == STOP_TUNNEL


def test_a_hanging_revert_of_openvpn_dns_holds_up_the_start_of_the_service_for_its_limit_only(flow):
    flow.dns_helper.on("revert", hang=True)
    flow.world.start_service()
    expect_duration(flow, 12, "quorvexvpn-dns", "revert")
    assert flow.snapshot() == stop_failure("Unable to revert OpenVPN DNS state.")


@pytest.mark.parametrize("ignore_term, limit", [
    pytest.param(False, 3, id="ends at the first signal"),
    pytest.param(True, 4, id="has to be killed"),
])
def test_a_hanging_ip_shows_no_full_route(flow, ignore_term, limit):
    flow.ip.on("-4", stdout="default dev quorvexvpn\n", hang=True, ignore_term=ignore_term)
    flow.start()
    assert flow.connect() == failure("WireGuard did not install a full-tunnel route.")
    expect_duration(flow, limit, "ip", "-4")
    assert flow.commands()[-4:] == TAKE_DOWN + CLEAR_GROUND


def test_an_ip_that_hangs_for_ipv6_shows_no_full_route(flow):
    flow.ip.on("-4", stdout="")
    flow.ip.on("-6", stdout="default dev quorvexvpn\n", hang=True)
    flow.start()
    assert flow.connect() == failure("WireGuard did not install a full-tunnel route.")
    expect_duration(flow, 3, "ip", "-6")
    start = CLEAR_GROUND + [UP, IPV4_ROUTES, IPV6_ROUTES] + TAKE_DOWN
    assert flow.commands() == start + CLEAR_GROUND


@pytest.mark.parametrize("ignore_term, limit", [
    pytest.param(False, 5, id="ends at the first signal"),
    pytest.param(True, 6, id="has to be killed"),
])
def test_a_hanging_nft_does_not_keep_the_tunnel_up(flow, ignore_term, limit):
    flow.start()
    flow.connected()
    first = len(flow.world.calls("nft"))
    flow.nft.on("-f", "-", hang=True, ignore_term=ignore_term, times=1)
    assert flow.disconnect() == stop_failure(KILL_SWITCH_FAILED)
    call = flow.world.wait_ended(flow.world.calls("nft")[first])
    assert limit - 0.1 <= call.ended - call.began <= limit + SLACK
    assert flow.commands() == STOP_TUNNEL
    assert flow.files() == []


def test_an_nft_that_never_reads_its_script_is_stopped_all_the_same(flow):
    flow.start()
    flow.nft.on("-f", "-", hang=True, read_stdin=False, times=1)
    assert flow.disconnect() == stop_failure(KILL_SWITCH_FAILED)


def test_the_bus_is_served_while_a_tool_hangs(flow):
    flow.wg_quick.on("up", hang=True)
    flow.start()
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    assert flow.snapshot() == {"stage": "connecting", "activeProfileId": "p1"}
    assert flow.alice.call("GetRuntimeInfo")["wireGuardRuntimeDetected"] is True
    assert flow.world.calls("wg-quick", "up")[0].ended is None
