# SPDX-License-Identifier: Apache-2.0
"""The signals of each operation: exact contents, order and times, for everybody on the bus; and their journal."""

import time

import pytest

from front_steps import (
    DOWN_FAILED, KILL_SWITCH_FAILED, OPENVPN_PROFILE, PROFILE, SING_BOX_PROFILE, STARTED, XRAY_PROFILE, log_signal,
    snapshot_signal)
from quorvex_world import INTERFACE, OBJECT_PATH

pytestmark = pytest.mark.bus

CONNECT = [
    snapshot_signal("preparing", "p1"),
    log_signal("info", "Preparing WireGuard tunnel."),
    snapshot_signal("connecting", "p1"),
    snapshot_signal("connected", "p1"),
    log_signal("info", "WireGuard tunnel connected."),
]
DISCONNECT = [
    snapshot_signal("disconnecting", "p1"),
    snapshot_signal("disconnected"),
    log_signal("info", "VPN tunnel disconnected."),
]


def now() -> int:
    return time.time_ns() // 1_000_000


def test_a_connect_and_a_disconnect_tell_their_stages_and_log_entries_in_order(front):
    front.start()
    front.connect()
    assert front.heard() == CONNECT
    front.disconnect()
    assert front.heard() == DISCONNECT


def test_a_kill_switch_is_told_before_the_tunnel_is_called_connected(front):
    front.start()
    front.connect(kill_switch=True)
    kill_switch = log_signal("info", "Kill switch active for this tunnel.")
    assert front.heard() == [*CONNECT[:3], kill_switch, *CONNECT[3:]]


def test_a_kill_switch_that_fails_is_a_warning_and_the_connection_stands(front):
    front.start()
    front.nft.on("-f", when=lambda call: "chain" in call.stdin, exit_status=1)
    front.connect(kill_switch=True)
    warning = log_signal("warning", f"Kill switch could not be applied: {KILL_SWITCH_FAILED}")
    assert front.heard() == [*CONNECT[:3], warning, *CONNECT[3:]]
    assert front.world.interface_exists("quorvexvpn")


def test_a_failed_start_is_an_error_with_its_details_in_the_snapshot_alone(front):
    front.start()
    front.wg_quick.on("up", exit_status=1)
    front.connect()
    assert front.heard() == [
        *CONNECT[:3],
        snapshot_signal("error", "p1", "WireGuard failed to connect."),
        log_signal("error", "WireGuard connection failed."),
    ]


def test_a_failed_disconnect_is_an_error_of_no_profile(front):
    front.start()
    front.connected()
    front.wg_quick.on("down", exit_status=1)
    front.disconnect()
    assert front.heard() == [
        DISCONNECT[0],
        snapshot_signal("error", error=DOWN_FAILED),
        log_signal("error", "VPN disconnect cleanup failed."),
    ]


def test_a_disconnect_after_an_error_keeps_the_profile_but_not_the_error(front):
    front.start()
    front.wg_quick.on("up", exit_status=1)
    front.connect("home")
    front.disconnect()
    assert front.heard()[:2] == [snapshot_signal("disconnecting", "home"), snapshot_signal("disconnected")]


def test_a_connect_over_a_connection_goes_straight_to_the_next_profile(front):
    front.start()
    front.connected("first")
    front.connect("second")
    assert front.heard() == [
        snapshot_signal("preparing", "second"), log_signal("info", "Preparing WireGuard tunnel."),
        snapshot_signal("connecting", "second"), snapshot_signal("connected", "second"),
        log_signal("info", "WireGuard tunnel connected.")]


@pytest.mark.parametrize("name, protocol, config, sentence", [
    ("Sing-box", "vless", SING_BOX_PROFILE, "Sing-box exited during startup."),
    ("Xray", "xray", XRAY_PROFILE, "Xray did not establish its TUN interface in time."),
    ("OpenVPN", "openVpn", OPENVPN_PROFILE, "OpenVPN did not establish its TUN interface in time."),
], ids=["Sing-box", "Xray", "OpenVPN"])
def test_log_entries_name_the_engine(front, name, protocol, config, sentence):
    """The engines are stand-ins that end at once."""
    for program in ("/usr/libexec/quorvexvpn/sing-box", "/usr/libexec/quorvexvpn/xray", "/usr/sbin/openvpn"):
        front.world.stand_in(program)
    for data in ("geoip.dat", "geosite.dat"):
        front.world.put_file(f"/usr/libexec/quorvexvpn/{data}", b"data")
    front.start()
    front.connect(config=config, protocol=protocol)
    assert front.heard() == [
        snapshot_signal("preparing", "p1"), log_signal("info", f"Preparing {name} tunnel."),
        snapshot_signal("connecting", "p1"), snapshot_signal("error", "p1", sentence),
        log_signal("error", f"{name} connection failed.")]


def test_everybody_hears_the_same_and_from_the_one_object(front):
    front.start()
    listeners = [front.alice, front.bob, front.world.client("nobody")]
    for client in listeners[1:]:
        client.call("GetConnectionSnapshot")
        front.mark(client)
    front.connect()
    front.alice.call("Disconnect")
    for client in listeners:
        client.wait_log("VPN tunnel disconnected.")
        assert front.heard(client) == CONNECT + DISCONNECT
        senders = {(one.sender, one.path, one.interface) for one in front.signals(client)}
        assert senders == {(front.bus("GetNameOwner", "(s)", "org.quorvexvpn.Service1"), OBJECT_PATH, INTERFACE)}


def test_every_dictionary_travels_as_one_argument(front):
    front.start()
    front.connect()
    front.alice.call("Initialize")
    front.alice.wait_signal("NetworkPathChanged")
    assert {one.signature for one in front.alice.signals} == {"(a{sv})"}
    assert {one.name for one in front.alice.signals} == {"SnapshotChanged", "LogEmitted", "NetworkPathChanged"}


def test_the_time_of_the_connection_is_now_and_stays(front):
    front.start()
    before = now()
    first = front.connect()
    assert before <= first["connectedAtEpochMillis"] <= now()
    assert front.snapshot() == first
    [told] = [one.value for one in front.signals() if one.value.get("stage") == "connected"]
    assert told == first


def test_the_time_of_each_log_entry_is_now(front):
    front.start()
    before = now()
    front.connect()
    front.disconnect()
    times = [one.value["timestamp"] for one in front.alice.signals if one.name == "LogEmitted"]
    assert len(times) == 4
    assert times[1:] == sorted(times[1:])
    assert before <= times[1] and times[-1] <= now()


@pytest.mark.parametrize("profile_id", ["a", "Zürich – ✓", 'quo"ted', "x" * 256], ids=["one letter", "UTF-8", "quote",
                                                                                    "256 bytes"])
def test_the_profile_s_id_comes_back_as_it_was(front, profile_id):
    front.start()
    front.connect(profile_id)
    ids = [one.value["activeProfileId"] for one in front.signals() if one.name == "SnapshotChanged"]
    assert ids == [profile_id] * 3
    assert front.snapshot()["activeProfileId"] == profile_id


def test_each_log_entry_stands_in_the_journal_alone_and_always_as_a_message(front):
    """Whatever the entry's level; and nothing else is written."""
    service = front.start()
    front.nft.on("-f", when=lambda call: "chain" in call.stdin, exit_status=1)
    front.connect(kill_switch=True)
    front.wg_quick.on("down", exit_status=1, times=1)
    front.disconnect()
    front.disconnect()
    entries = front.logs()
    messages = [
        STARTED, "Preparing WireGuard tunnel.", f"Kill switch could not be applied: {KILL_SWITCH_FAILED}",
        "WireGuard tunnel connected.", "VPN disconnect cleanup failed.", "VPN tunnel disconnected."]
    assert entries[-1] == ("info", messages[-1])
    front.world.wait(lambda: len(service.journal) == len(messages), what="the whole journal")
    for line, message in zip(service.journal, messages):
        assert line.startswith("** Message: ") and line.endswith(f": {message}")


def test_a_client_that_comes_late_can_learn_everything_from_initialize(front):
    front.start()
    front.connect()
    late = front.world.client("bob", new=True)
    late.call("Initialize")
    assert late.wait_signal("SnapshotChanged").value == front.snapshot()
    late.close()


def test_a_profile_never_shows_in_a_signal_or_in_the_journal(front):
    service = front.start()
    front.connect()
    front.disconnect()
    secret = PROFILE.splitlines()[1].partition(" = ")[2]
    assert secret in PROFILE
    assert not any(secret in one.text for one in front.alice.signals)
    assert not any(secret in line for line in service.journal)
