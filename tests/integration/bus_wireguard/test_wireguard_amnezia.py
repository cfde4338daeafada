# SPDX-License-Identifier: Apache-2.0
"""AmneziaWG: which tool brings a tunnel up and down, in which environment; missing tools.

The tools are stand-ins: they are not part of any distribution.
"""

import pytest

from wireguard_flow import (
    ADD_INTERFACE, AMNEZIA_PROFILE, APPLY_DNS, AWG, AWG_DOWN, AWG_ENGINE, AWG_QUICK, AWG_UP,
    BRING_UP, CLEAR_GROUND, CONFIG, DOWN, IPV4_ROUTES, REMOVE_KILL_SWITCH, REVERT_DNS, STOP_TUNNEL,
    TAKE_DOWN, environment_of, failure, profile, stop_failure, without_dns)

pytestmark = pytest.mark.bus

TOOLS_MISSING = ("This server needs the AmneziaWG tools, which are missing. "
                 "Repair the QuorvexVPN installation.")
AWG_BRING_UP = [AWG_UP, IPV4_ROUTES, APPLY_DNS]
AWG_TAKE_DOWN = [REVERT_DNS, AWG_DOWN]


@pytest.fixture
def awg_quick(flow):
    return flow.add_amnezia_tools()


@pytest.mark.parametrize("protocol", ["amneziawg", "wireGuard"])
def test_a_profile_with_amnezia_keys_goes_up_and_down_by_awg_quick(flow, awg_quick, protocol):
    flow.start()
    assert flow.connect(AMNEZIA_PROFILE, protocol=protocol)["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + AWG_BRING_UP
    assert flow.world.path(CONFIG).read_bytes() == without_dns(AMNEZIA_PROFILE)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN]
    assert flow.files() == []


def test_a_profile_without_such_keys_uses_wg_quick_whatever_its_protocol(flow, awg_quick):
    flow.start()
    assert flow.connect(protocol="amneziawg")["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + BRING_UP


@pytest.mark.parametrize("key", [
    "Jc", "Jmin", "Jmax", "S1", "S2", "S3", "S4", "H1", "H2", "H3", "H4", "I1", "I2", "I3", "I4",
    "I5", "HeaderProtectionKey", "ContentPaddingAddition", "RekeyAfterTime", "RekeyTimeout",
    "RejectAfterTime", "KeepaliveTimeout", "MaxHandshakeAttempts", "RandomTrailers",
    "DisableCookies"])
def test_each_amnezia_key_asks_for_awg_quick(flow, awg_quick, key):
    flow.start()
    flow.connect(profile(f"{key} = 1"))
    assert flow.commands() == CLEAR_GROUND + AWG_BRING_UP


def test_awg_quick_gets_its_own_path_and_user_space_engine_and_nothing_else(flow, awg_quick):
    """The values of the service's environment are replaced; every other variable is inherited."""
    service = flow.start(env={"PATH": "/opt/bin:/usr/bin", "QUORVEX_MARK": "kept",
                              "WG_QUICK_USERSPACE_IMPLEMENTATION": "/opt/other"})
    inherited = environment_of(service)
    flow.connected(AMNEZIA_PROFILE)
    flow.disconnect()
    expected = inherited | {
        "PATH": "/usr/libexec/quorvexvpn:/usr/sbin:/usr/bin",
        "WG_QUICK_USERSPACE_IMPLEMENTATION": "/usr/libexec/quorvexvpn/amneziawg-go"}
    assert expected["QUORVEX_MARK"] == "kept"
    calls = flow.world.calls("awg-quick")
    assert [call.argv[1] for call in calls] == ["up", "down"]
    assert [call.env for call in calls] == [expected, expected]
    others = [call for call in flow.world.all_calls() if call.name != "awg-quick"]
    assert all(call.env == inherited for call in others)


@pytest.mark.parametrize("tool", [AWG_QUICK, AWG, AWG_ENGINE])
@pytest.mark.parametrize("fault", ["missing", "not executable"])
def test_without_one_of_the_tools_nothing_runs_and_no_file_stays(flow, awg_quick, tool, fault):
    if fault == "missing":
        flow.world.remove_tool(tool)
    else:
        flow.world.chmod_tool(tool, 0o644)
    flow.start()
    assert flow.connect(AMNEZIA_PROFILE) == failure(TOOLS_MISSING)
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND
    assert flow.files() == []
    assert not flow.repair_required()


def test_the_tools_are_no_matter_for_availability(flow):
    flow.start()
    info = flow.alice.call("GetRuntimeInfo")
    assert info["wireGuardRuntimeDetected"] is True
    assert flow.connect()["stage"] == "connected"


def test_a_shutdown_takes_an_amnezia_tunnel_down_by_awg_quick(flow, awg_quick):
    service = flow.start()
    flow.connected(AMNEZIA_PROFILE)
    assert service.stop() == 0
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN, REMOVE_KILL_SWITCH]
    assert flow.files() == []


def test_a_plain_profile_after_an_amnezia_one_is_plain_again(flow, awg_quick):
    flow.start()
    flow.connected(AMNEZIA_PROFILE)
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN, CLEAR_GROUND[1], *BRING_UP]
    flow.disconnect()
    assert flow.commands() == STOP_TUNNEL


def test_an_amnezia_profile_after_a_plain_one_takes_that_down_by_wg_quick(flow, awg_quick):
    flow.start()
    flow.connected()
    assert flow.connect(AMNEZIA_PROFILE)["stage"] == "connected"
    assert flow.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, CLEAR_GROUND[1], *AWG_BRING_UP]


def test_an_up_of_awg_quick_that_fails_half_way_is_taken_down_by_awg_quick(flow, awg_quick):
    awg_quick.on("up", shell=ADD_INTERFACE, exit_status=1)
    flow.start()
    assert flow.connect(AMNEZIA_PROFILE) == failure("WireGuard failed to connect.")
    assert flow.commands() == CLEAR_GROUND + [AWG_UP] + AWG_TAKE_DOWN + CLEAR_GROUND
    assert flow.files() == []


def leave_a_tunnel(flow) -> None:
    flow.commands()
    flow.add_interface()
    flow.put_private(CONFIG)


def test_a_failed_up_of_awg_quick_is_remembered_until_something_goes_down(flow, awg_quick):
    """An interface that appears late, after `up` gave up, is still awg-quick's."""
    awg_quick.on("up", exit_status=1)
    flow.start()
    flow.connect(AMNEZIA_PROFILE)
    leave_a_tunnel(flow)
    flow.disconnect()
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN]
    leave_a_tunnel(flow)
    flow.disconnect()
    assert flow.commands() == STOP_TUNNEL


def test_a_failed_up_of_wg_quick_forgets_an_earlier_awg_quick(flow, awg_quick):
    awg_quick.on("up", exit_status=1)
    flow.wg_quick.on("up", exit_status=1)
    flow.start()
    flow.connect(AMNEZIA_PROFILE)
    flow.connect()
    leave_a_tunnel(flow)
    flow.disconnect()
    assert flow.commands() == STOP_TUNNEL


def test_a_failing_down_of_awg_quick_is_tried_again_by_awg_quick(flow, awg_quick):
    flow.start()
    flow.connected(AMNEZIA_PROFILE)
    awg_quick.on("down", exit_status=1, times=1)
    assert flow.disconnect() == stop_failure("WireGuard disconnect cleanup failed.")
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN]
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN]


def test_a_down_that_succeeds_ends_the_memory_even_if_the_interface_stays(flow, awg_quick):
    flow.start()
    flow.connected(AMNEZIA_PROFILE)
    awg_quick.on("down", times=1)
    assert flow.disconnect()["stage"] == "error"
    flow.commands()
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH, REVERT_DNS, DOWN]


def test_a_connect_that_lacks_its_tools_is_no_use_of_awg_quick(flow, awg_quick):
    flow.start()
    flow.world.remove_tool(AWG_ENGINE)
    assert flow.connect(AMNEZIA_PROFILE) == failure(TOOLS_MISSING)
    leave_a_tunnel(flow)
    flow.disconnect()
    assert flow.commands() == STOP_TUNNEL


def test_nor_does_it_forget_an_earlier_use(flow, awg_quick):
    awg_quick.on("up", exit_status=1)
    flow.start()
    flow.connect(AMNEZIA_PROFILE)
    flow.world.remove_tool(AWG_ENGINE)
    assert flow.connect(AMNEZIA_PROFILE) == failure(TOOLS_MISSING)
    flow.commands()
    leave_a_tunnel(flow)
    flow.disconnect()
    assert flow.commands() == [REMOVE_KILL_SWITCH, *AWG_TAKE_DOWN]
