# SPDX-License-Identifier: Apache-2.0
"""How Connect reads its dictionary and in which order it refuses; a refusal changes nothing."""

import pytest

from front_steps import (
    INVALID_PROFILE, OPENVPN_PROFILE, PROFILE, RUNTIME_UNAVAILABLE, SING_BOX_PROFILE, XRAY_PROFILE, Front, refused,
    refused_connect)
from quorvex_world import Variant

pytestmark = pytest.mark.bus

BAD_ID = (INVALID_PROFILE, "The profile identifier is invalid.")
BAD_SIZE = (INVALID_PROFILE, "The VPN configuration is empty or too large.")
BAD_PROTOCOL = (INVALID_PROFILE, "This Linux build does not recognize the selected VPN protocol.")
NO_HOOKS = (INVALID_PROFILE, "WireGuard hook and SaveConfig directives are not permitted.")
HOOKED = PROFILE.replace("DNS =", "PostUp = id\nDNS =")


def unavailable(name: str) -> tuple[str, str]:
    return RUNTIME_UNAVAILABLE, f"{name} runtime is missing. Repair the QuorvexVPN installation."


def expect_refused(front: Front, answer: tuple[str, str], error: tuple[str, str]) -> None:
    """Refused with that error, and nothing ran, was published or changed."""
    assert answer == error
    assert front.snapshot() == {"stage": "disconnected"}
    assert front.commands() == []
    assert front.signals() == []
    assert len(front.service.journal) == 1
    assert not front.world.path("/run/quorvexvpn").exists()


@pytest.mark.parametrize("key, error", [("id", BAD_ID), ("protocol", BAD_PROTOCOL), ("rawConfig", BAD_SIZE)],
                         ids=["id", "protocol", "rawConfig"])
@pytest.mark.parametrize("value", [
    None, Variant("i", 1), Variant("b", True), Variant("ay", list(PROFILE.encode())), Variant("as", ["p1"]),
    Variant("o", "/p1"), Variant("v", Variant("s", "p1")),
], ids=["missing", "a number", "a boolean", "bytes", "a list", "a path", "a variant"])
def test_a_text_that_is_none_counts_as_empty(shared_front, key, error, value):
    words = {"id": "p1", "protocol": "wireGuard", "rawConfig": PROFILE}
    profile = {**words, key: value} if value else {name: word for name, word in words.items() if name != key}
    expect_refused(shared_front, refused(shared_front.alice, "Connect", profile), error)


def test_an_empty_dictionary_lacks_its_id_first(shared_front):
    expect_refused(shared_front, refused(shared_front.alice, "Connect", {}), BAD_ID)


@pytest.mark.parametrize("arguments, error", [
    (("", "no such", ""), BAD_ID),
    (("p1", "no such", ""), BAD_SIZE),
    (("p1", "no such", "x"), BAD_PROTOCOL),
    (("p1", "wireGuard", HOOKED), NO_HOOKS),
    (("p1", " wireGuard", PROFILE), BAD_PROTOCOL),
    (("x" * 257, "wireGuard", PROFILE), BAD_ID),
    (("tab\t", "wireGuard", PROFILE), BAD_ID),
], ids=["id before all", "size before protocol", "protocol", "rules", "no trimming", "257 bytes", "a tab"])
def test_the_first_broken_rule_is_told(shared_front, arguments, error):
    expect_refused(shared_front, refused_connect(shared_front.alice, *arguments), error)


def test_every_listed_protocol_selects_an_engine(shared_front):
    protocols = shared_front.alice.call("GetCapabilities")["supportedProtocols"]
    answers = {name: refused_connect(shared_front.alice, "p1", name, "x") for name in protocols}
    assert {error for error, _ in answers.values()} == {INVALID_PROFILE}
    assert BAD_PROTOCOL not in answers.values()
    assert len(answers) == 15
    expect_refused(shared_front, answers["wireGuard"], answers["amneziawg"])


@pytest.mark.parametrize("protocol, config, name", [
    ("vless", SING_BOX_PROFILE, "Sing-box"),
    ("VLESS", SING_BOX_PROFILE, "Sing-box"),
    ("SINGBOX", SING_BOX_PROFILE, "Sing-box"),
    ("singBox", SING_BOX_PROFILE, "Sing-box"),
    ("xray", XRAY_PROFILE, "Xray"),
    ("openVpn", OPENVPN_PROFILE, "OpenVPN"),
    ("OPENVPN-UDP", OPENVPN_PROFILE, "OpenVPN"),
])
def test_an_engine_that_is_not_installed_is_named(shared_front, protocol, config, name):
    shared_front.world.path("/usr/sbin/openvpn").unlink(missing_ok=True)
    expect_refused(shared_front, refused_connect(shared_front.alice, "p1", protocol, config), unavailable(name))


def test_an_invalid_profile_is_told_before_a_missing_engine(shared_front):
    shared_front.world.path("/usr/sbin/openvpn").unlink(missing_ok=True)
    answer = refused_connect(shared_front.alice, "p1", "openVpn", "client\n")
    expect_refused(shared_front, answer, (
        INVALID_PROFILE, "OpenVPN profiles require client mode, a remote, and TUN—not TAP."))


def test_a_refusal_leaves_a_running_connection_alone(front):
    front.start()
    front.connected()
    before = front.snapshot()
    assert refused_connect(front.alice, config=HOOKED) == NO_HOOKS
    assert refused_connect(front.alice, protocol="xray", config=XRAY_PROFILE) == unavailable("Xray")
    assert front.snapshot() == before
    assert front.commands() == []
    assert front.signals() == []


def test_a_refusal_leaves_an_error_where_it_was(front):
    front.start()
    front.wg_quick.on("up", exit_status=1)
    before = front.connect()
    assert before["stage"] == "error"
    assert refused_connect(front.alice, config=HOOKED) == NO_HOOKS
    assert front.snapshot() == before


KILL_SWITCH_LOG = ("info", "Kill switch active for this tunnel.")


@pytest.mark.parametrize("value", [
    Variant("b", False), Variant("s", "true"), Variant("i", 1), Variant("v", Variant("b", True)),
], ids=["false", "a text", "a number", "a variant"])
def test_a_kill_switch_that_is_not_a_true_boolean_is_off(front, value):
    front.start()
    assert front.connect(kill_switch=value)["stage"] == "connected"
    assert KILL_SWITCH_LOG not in front.logs()
    assert front.world.state().nftables == []


def test_a_missing_kill_switch_is_off(front):
    front.start()
    assert front.connect(omit=("killSwitch",))["stage"] == "connected"
    assert KILL_SWITCH_LOG not in front.logs()
    assert front.world.state().nftables == []


def test_a_true_kill_switch_is_on(front):
    front.start()
    assert front.connect(kill_switch=True)["stage"] == "connected"
    assert KILL_SWITCH_LOG in front.logs()
    assert front.world.state().nftables[0].startswith("table inet quorvexvpn")


def test_other_keys_are_ignored(front):
    front.start()
    extra = {"name": "Home", "Id": "p9", "killswitch": True, "rawconfig": "", "count": 7,
             "nested": Variant("a{sv}", {"id": Variant("s", "p8")})}
    assert front.connect("p1", extra=extra)["activeProfileId"] == "p1"
    assert KILL_SWITCH_LOG not in front.logs()


@pytest.mark.parametrize("protocol", ["wireGuard", "WIREGUARD", "wg", "wire-guard", "amneziawg"])
def test_each_name_of_the_protocol_starts_the_same_engine(front, protocol):
    front.start()
    assert front.connect(protocol=protocol)["stage"] == "connected"
    assert ("info", "WireGuard tunnel connected.") in front.logs()


def test_the_largest_configuration_is_taken(front):
    front.start()
    padding = 2_097_152 - len(PROFILE) - 1
    assert front.connect(config=PROFILE + "#" * padding + "\n")["stage"] == "connected"


def test_a_byte_more_is_refused(shared_front):
    config = PROFILE + "#" * (2_097_153 - len(PROFILE))
    expect_refused(shared_front, refused_connect(shared_front.alice, config=config), BAD_SIZE)
