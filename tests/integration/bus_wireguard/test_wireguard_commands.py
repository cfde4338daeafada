# SPDX-License-Identifier: Apache-2.0
"""The commands of start-up, connect, disconnect and shutdown: order, content, surroundings."""

import os

import pytest

from quorvex_world.procfs import argv_of
from wireguard_flow import (
    APPLY_DNS, APPLY_KILL_SWITCH, BRING_UP, CLEAR_GROUND, CONFIG, DOWN, IPV4_ROUTES, PROFILE,
    REMOVAL_SCRIPT, REMOVE_KILL_SWITCH, REVERT_DNS, REVERT_OPENVPN_DNS, STOP_TUNNEL, UP,
    environment_of, without_dns)

pytestmark = pytest.mark.bus


def test_a_start_on_a_clean_machine_only_clears_the_ground(flow):
    flow.world.start_service()
    assert flow.commands() == CLEAR_GROUND
    assert flow.snapshot() == {"stage": "disconnected"}
    assert not flow.repair_required()
    assert not flow.world.path("/run/quorvexvpn").exists()


def test_a_connect_clears_the_ground_then_brings_up_checks_the_route_and_hands_over_dns(flow):
    flow.start()
    snapshot = flow.connect()
    assert (snapshot["stage"], snapshot["activeProfileId"]) == ("connected", "p1")
    assert flow.commands() == CLEAR_GROUND + BRING_UP
    assert flow.files() == ["quorvexvpn.conf"]
    assert flow.interface_exists()


def test_a_kill_switch_is_loaded_last(flow):
    flow.start()
    flow.connect(kill_switch=True)
    assert flow.commands() == CLEAR_GROUND + BRING_UP + [APPLY_KILL_SWITCH]
    scripts = [call.stdin for call in flow.world.calls("nft")]
    assert scripts[1:] == [REMOVAL_SCRIPT, KILL_SWITCH_SCRIPT]


KILL_SWITCH_SCRIPT = """table inet quorvexvpn
delete table inet quorvexvpn
table inet quorvexvpn {
  chain output {
    type filter hook output priority 0; policy drop;
    oifname "lo" accept
    oifname "quorvexvpn" accept
    meta l4proto ipv6-icmp accept
    udp dport { 67, 68, 546, 547 } accept
    ip daddr { 203.0.113.9 } accept
  }
}
"""


def test_a_disconnect_removes_the_kill_switch_then_dns_then_the_tunnel(flow):
    flow.start()
    flow.connected(kill_switch=True)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == STOP_TUNNEL
    assert flow.world.calls("nft")[-1].stdin == REMOVAL_SCRIPT
    assert flow.files() == []
    assert not flow.interface_exists()


def test_a_disconnect_without_a_tunnel_only_removes_the_kill_switch(flow):
    flow.start()
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == [REMOVE_KILL_SWITCH]


def test_a_second_connect_takes_the_first_tunnel_down_before_it_brings_up_its_own(flow):
    flow.start()
    flow.connected()
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == STOP_TUNNEL + CLEAR_GROUND[1:] + BRING_UP
    assert flow.files() == ["quorvexvpn.conf"]


def test_a_shutdown_while_connected_takes_the_tunnel_down_and_checks_once_more(flow):
    service = flow.start()
    flow.connected()
    assert service.stop() == 0
    # The engine's owner stops it once more when it is destroyed, with only the kill switch left.
    assert flow.commands() == STOP_TUNNEL + [REMOVE_KILL_SWITCH]
    assert flow.files() == []


def test_the_service_connects_again_after_a_failure(flow):
    flow.start()
    flow.wg_quick.on("up", exit_status=1, times=1)
    assert flow.connect()["stage"] == "error"
    flow.commands()
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + BRING_UP


def test_each_command_runs_under_its_own_time_limit(flow):
    limits = watch(flow, lambda call: argv_of(call.ancestors[0][0])[:-len(call.argv)])
    flow.start()
    flow.connected(kill_switch=True)
    flow.disconnect()
    status = ["/usr/bin/timeout", "--signal=TERM", "--kill-after=3s", "12s"]
    capture = ["/usr/bin/timeout", "--signal=TERM", "--kill-after=1s", "3s"]
    firewall = ["/usr/bin/timeout", "--signal=TERM", "--kill-after=1s", "5s"]
    assert limits == {
        UP: status, DOWN: status, APPLY_DNS: status, REVERT_DNS: status, REVERT_OPENVPN_DNS: status,
        IPV4_ROUTES: capture, REMOVE_KILL_SWITCH: firewall}


def test_no_shell_stands_between_the_service_and_a_command(flow):
    ancestors = watch(flow, lambda call: [name for _, name in call.ancestors])
    flow.start()
    flow.connected()
    flow.disconnect()
    # `timeout` and the service; the kernel keeps 15 bytes of a name.
    assert set(map(tuple, ancestors.values())) == {("timeout", "quorvexvpn-serv")}


def test_each_command_inherits_the_environment_of_the_service_unchanged(flow):
    service = flow.start(env={"PATH": "/usr/sbin:/usr/bin:/bin", "QUORVEX_MARK": "kept"})
    flow.connected(kill_switch=True)
    flow.disconnect()
    environment = environment_of(service)
    assert environment["QUORVEX_MARK"] == "kept"
    assert {call.name for call in flow.world.all_calls()} == set(flow.tools) - {"wg", "resolvectl"}
    assert all(call.env == environment for call in flow.world.all_calls())


def test_the_output_of_a_command_is_kept_out_of_the_journal(flow):
    flow.wg_quick.on("up", shell="echo so-it-says; echo so-it-complains >&2; exit 1")
    service = flow.start()
    assert flow.connect()["stage"] == "error"
    assert not [line for line in service.journal if "so-it-" in line]


def test_a_command_gets_null_devices_and_none_of_the_descriptors_of_the_service(flow):
    # Looked at in `timeout`, since the stand-in itself holds other ones.
    descriptors = watch(flow, lambda call: open_files(call.ancestors[0][0]))
    flow.start()
    flow.connected()
    flow.disconnect()
    silent = ["/dev/null", "/dev/null", "/dev/null"]
    assert descriptors == {
        UP: silent, DOWN: silent, APPLY_DNS: silent, REVERT_DNS: silent, REVERT_OPENVPN_DNS: silent,
        IPV4_ROUTES: ["/dev/null", "pipe", "/dev/null"],
        REMOVE_KILL_SWITCH: ["pipe", "/dev/null", "/dev/null"]}


def open_files(host_pid: int) -> list[str]:
    folder = f"/proc/{host_pid}/fd"
    numbers = sorted(os.listdir(folder), key=int)
    return [os.readlink(f"{folder}/{number}").partition(":")[0] for number in numbers]


def watch(flow, look) -> dict:
    """Looks at each call while it is held: what /proc shows is gone a moment later."""
    seen = {}

    def note(call) -> bool:
        # A predicate that never applies: the call waits for the answer and then does its usual.
        seen[" ".join(call.argv)] = look(call)
        return False

    for tool in flow.tools.values():
        tool.on(when=note)
    return seen


def test_the_configuration_lies_where_wg_quick_finds_it_by_the_name_of_the_interface(flow):
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect()
    call = flow.world.wait_call("wg-quick", "up")
    assert flow.world.path(call.argv[2]).read_bytes() == without_dns(PROFILE)
    assert os.path.basename(CONFIG).removesuffix(".conf") == "quorvexvpn"
    gate.open()
    assert flow.settled("connected")["stage"] == "connected"
