# SPDX-License-Identifier: Apache-2.0
"""How a tunnel goes down: what runs, what a failure leaves and how the next attempt mends it."""

import pytest

from wireguard_flow import (
    ADMINISTRATOR_REPAIR, CONFIG, KILL_SWITCH_FAILED, REMOVE_KILL_SWITCH, REVERT_DNS, STOP_TUNNEL,
    stop_failure)

pytestmark = pytest.mark.bus

DOWN_FAILED = "WireGuard disconnect cleanup failed."
INTERFACE_STAYS = "WireGuard reported disconnect but its interface still exists."
DNS_STAYS = "WireGuard disconnected but DNS cleanup failed."


def expect_clean_disconnect(flow, commands: list[str]) -> None:
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == commands
    assert flow.files() == []
    assert not flow.interface_exists()
    assert not flow.repair_required()


def test_a_failing_down_keeps_the_file_so_that_the_next_disconnect_tries_again(flow):
    flow.start()
    flow.connected()
    flow.wg_quick.on("down", exit_status=1, times=1)
    assert flow.disconnect() == stop_failure(DOWN_FAILED)
    assert flow.commands() == STOP_TUNNEL
    assert flow.files() == ["quorvexvpn.conf"]
    assert flow.repair_required()
    assert ("error", "VPN disconnect cleanup failed.") in flow.logs()
    expect_clean_disconnect(flow, STOP_TUNNEL)


def test_a_failing_down_also_wins_over_a_failing_dns_revert(flow):
    flow.start()
    flow.connected()
    flow.dns_helper.on("revert-wireguard", exit_status=1)
    flow.wg_quick.on("down", exit_status=1, times=1)
    assert flow.disconnect() == stop_failure(DOWN_FAILED)


def test_a_down_is_not_believed_while_the_interface_is_there(flow):
    flow.start()
    flow.connected()
    flow.wg_quick.on("down", times=1)
    assert flow.disconnect() == stop_failure(INTERFACE_STAYS)
    assert flow.commands() == STOP_TUNNEL
    assert flow.files() == ["quorvexvpn.conf"]
    assert flow.repair_required()
    expect_clean_disconnect(flow, STOP_TUNNEL)


def test_a_failing_dns_revert_is_told_after_everything_else_is_done(flow):
    flow.start()
    flow.connected()
    flow.dns_helper.on("revert-wireguard", exit_status=1, times=1)
    assert flow.disconnect() == stop_failure(DNS_STAYS)
    assert flow.commands() == STOP_TUNNEL
    assert flow.files() == []
    assert not flow.interface_exists()
    assert flow.repair_required()
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


def test_a_file_that_cannot_be_unlinked_wins_over_a_failing_dns_revert(flow):
    """A mount point can be opened and cleared, but not unlinked."""
    flow.start()
    flow.connected()
    flow.world.run(["mount", "--bind", CONFIG, CONFIG])
    flow.dns_helper.on("revert-wireguard", exit_status=1, times=1)
    sentence = "Unable to remove private runtime data: Device or resource busy"
    assert flow.disconnect() == stop_failure(sentence)
    assert flow.commands() == STOP_TUNNEL
    assert flow.world.path(CONFIG).read_bytes().strip(b"\0") == b""
    assert not flow.interface_exists()
    flow.world.run(["umount", CONFIG])
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


def test_a_tunnel_that_somebody_took_down_leaves_only_the_file_to_remove(flow):
    flow.start()
    flow.connected()
    flow.remove_interface()
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


def test_a_tunnel_that_is_gone_with_its_file_needs_nothing(flow):
    flow.start()
    flow.connected()
    flow.remove_interface()
    flow.world.path(CONFIG).unlink()
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


def test_an_interface_without_its_file_is_left_to_the_administrator(flow):
    flow.start()
    flow.connected()
    flow.world.path(CONFIG).unlink()
    assert flow.disconnect() == stop_failure(ADMINISTRATOR_REPAIR)
    assert flow.commands() == [REMOVE_KILL_SWITCH]
    assert flow.interface_exists()
    assert flow.repair_required()
    flow.remove_interface()
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


def test_a_link_in_place_of_the_file_is_no_configuration(flow):
    flow.start()
    flow.connected()
    config = flow.world.path(CONFIG)
    config.unlink()
    flow.world.put_file("/run/elsewhere.conf", b"not ours\n")
    config.symlink_to("/run/elsewhere.conf")
    assert flow.disconnect() == stop_failure(ADMINISTRATOR_REPAIR)
    assert flow.commands() == [REMOVE_KILL_SWITCH]
    assert config.is_symlink()
    assert flow.world.path("/run/elsewhere.conf").read_bytes() == b"not ours\n"


def test_a_stop_while_idle_takes_a_leftover_tunnel_down(flow):
    flow.start()
    flow.add_interface()
    flow.put_private(CONFIG)
    expect_clean_disconnect(flow, STOP_TUNNEL)


def test_a_stop_while_idle_removes_a_leftover_file(flow):
    flow.start()
    flow.put_private(CONFIG)
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


def test_a_stop_leaves_the_files_of_the_other_engines_alone(flow):
    flow.start()
    flow.put_private("/run/quorvexvpn/sing-box.json")
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.files() == ["sing-box.json"]


def test_a_kill_switch_that_stays_is_told_when_the_tunnel_went_down(flow):
    flow.start()
    flow.connected()
    flow.nft.on("-f", "-", exit_status=1, times=1)
    assert flow.disconnect() == stop_failure(KILL_SWITCH_FAILED)
    assert flow.commands() == STOP_TUNNEL
    assert flow.files() == []
    assert not flow.interface_exists()
    assert flow.repair_required()
    expect_clean_disconnect(flow, [REMOVE_KILL_SWITCH])


@pytest.mark.parametrize("down, sentence", [
    pytest.param({"exit_status": 1}, DOWN_FAILED, id="down failed"),
    pytest.param({}, INTERFACE_STAYS, id="interface stays"),
])
def test_a_tunnel_that_stays_is_told_before_a_kill_switch_that_stays(flow, down, sentence):
    flow.start()
    flow.connected()
    flow.nft.on("-f", "-", exit_status=1, times=1)
    flow.wg_quick.on("down", times=1, **down)
    assert flow.disconnect() == stop_failure(sentence)
    assert flow.commands() == STOP_TUNNEL


def test_a_failing_stop_at_shutdown_is_published_and_makes_the_exit_status_one(flow):
    service = flow.start()
    flow.connected()
    flow.wg_quick.on("down", exit_status=1)
    flow.mark()
    assert service.stop() == 1
    flow.world.wait(lambda: flow.stages() == ["disconnecting", "error"], what="the last word")
    assert flow.alice.snapshots[-1] == stop_failure(DOWN_FAILED)
    # The second attempt is the engine owner's own, when it is destroyed.
    assert flow.commands() == STOP_TUNNEL * 2
    assert flow.files() == ["quorvexvpn.conf"]


def test_the_end_of_the_bus_takes_the_tunnel_down(flow):
    service = flow.start()
    flow.connected()
    flow.world.kill_bus()
    assert service.wait() == 1
    assert flow.commands() == STOP_TUNNEL + [REMOVE_KILL_SWITCH]
    assert flow.files() == []
    assert not flow.interface_exists()


def test_a_second_disconnect_folds_into_the_first(flow):
    flow.start()
    flow.connected()
    gate = flow.wg_quick.gate("down")
    flow.begin_disconnect()
    flow.world.wait_call("wg-quick", "down")
    flow.alice.call("Disconnect")
    gate.open()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert flow.commands() == STOP_TUNNEL
    assert flow.stages() == ["disconnecting", "disconnected"]


def test_the_dns_helper_is_asked_before_the_tunnel_goes(flow):
    flow.start()
    flow.connected()
    gate = flow.dns_helper.gate("revert-wireguard")
    flow.begin_disconnect()
    flow.world.wait_call("quorvexvpn-dns", "revert-wireguard")
    assert flow.interface_exists()
    assert flow.world.calls("wg-quick", "down") == []
    gate.open()
    assert flow.settled("disconnected") == {"stage": "disconnected"}


def test_a_missing_dns_helper_is_a_failing_one(flow):
    flow.start()
    flow.connected()
    flow.world.remove_tool("/usr/libexec/quorvexvpn-dns")
    assert flow.disconnect() == stop_failure(DNS_STAYS)
    assert REVERT_DNS not in flow.commands()
    assert flow.files() == []
