# SPDX-License-Identifier: Apache-2.0
"""`check`: the service's own verdict without the service, and where the fault lies."""

import pytest

from control_steps import FAILURE, HOOKED, KEY, OK, PROFILE, REFUSED, USAGE
from quorvex_world import BusError

pytestmark = pytest.mark.bus

OPENVPN = "client\ndev tun\nremote vpn.example 1194\n<ca>\ncertificate\n</ca>\n"
SING_BOX = """{
  "dns": {"servers": [{"type": "https", "server": "1.1.1.1"}]},
  "inbounds": [{"type": "tun", "auto_route": true}],
  "outbounds": [{"type": "vless", "tag": "proxy", "server": "vpn.example"}]
}
"""
XRAY = '{"inbounds": [{"protocol": "tun"}],\n "outbounds": [{"protocol": "vless", "tag": "proxy"}]}\n'

# name: (the file's name, its text, the option at fault, its line)
FAULTS = {
    "wireguard-hook": ("a.conf", HOOKED, "PostUp", 4),
    "wireguard-dns-name": ("a.conf", PROFILE.replace("1.1.1.1", "dns.example"), "DNS", 4),
    "wireguard-comment-hides": ("a.conf", PROFILE.replace("DNS", "Table = off # no\nDNS"), "Table", 4),
    "openvpn-script": ("a.ovpn", OPENVPN + "up /bin/sh\n", "up", 7),
    "openvpn-quoted": ("a.ovpn", 'client\n"log" /x\n' + OPENVPN[7:], None, 2),
    "openvpn-file": ("a.ovpn", OPENVPN + "cert /etc/cert.pem\n", "cert", 7),
    "openvpn-open-block": ("a.ovpn", OPENVPN + "<key>\nsecret\n", "<key>", 7),
    "sing-box-file": ("a.json", SING_BOX.replace('"tag"', '\n"tls": {"key_path": "/x"}, "tag"'),
                      "outbounds[0].tls.key_path", 5),
    "sing-box-local-dns": ("a.json", SING_BOX.replace("https", "local"), "dns.servers[0]", 2),
    "xray-api": ("a.json", XRAY.replace('"inbounds"', '\n"api": {},\n"inbounds"'), "api", 2),
    "json-broken": ("a.json", SING_BOX.replace("[{\"type\": \"tun\"", "[,"), None, 3),
}


@pytest.mark.parametrize("case", FAULTS)
def test_the_sentence_is_the_service_s_and_the_place_is_found(control, case):
    name, text, option, line = FAULTS[case]
    verdict = control.json("check", control.put_profile(text, name), status=REFUSED, user="bob")
    assert verdict["valid"] is False
    assert verdict["place"]["line"] == line
    assert verdict["place"]["option"] == option or str(verdict["place"]["option"]).startswith(str(option))
    control.world.start_service()
    with pytest.raises(BusError) as refusal:
        control.world.client("alice").connect("a", verdict["protocol"], text)
    assert refusal.value.name == "org.quorvexvpn.Error.InvalidProfile"
    assert refusal.value.message == verdict["error"]


@pytest.mark.parametrize("name, text, protocol", [
    ("a.conf", PROFILE, "wireGuard"), ("a.conf", PROFILE.replace("DNS", "Jc = 4\nDNS"), "amneziawg"),
    ("a.ovpn", OPENVPN, "openVpn"), ("a.json", SING_BOX, "singBox"), ("a.json", XRAY, "xray"),
], ids=["wireguard", "amneziawg", "openvpn", "sing-box", "xray"])
def test_a_good_profile_passes_without_service_bus_or_rights(control, name, text, protocol):
    control.world.kill_bus()
    verdict = control.json("check", control.put_profile(text, name), user="bob")
    assert (verdict["valid"], verdict["protocol"], verdict["error"], verdict["place"]) == (True, protocol, None, None)


@pytest.mark.parametrize("text", [
    PROFILE.replace("PrivateKey = ", ""), PROFILE.replace("PrivateKey = ", "= "),
    OPENVPN + f"{KEY} x\n", SING_BOX.replace('"tag"', f'"{KEY}": {{"key_path": "{KEY}"}}, "tag"'),
], ids=["a-bare-key", "a-key-without-name", "a-key-as-directive", "a-key-as-member"])
def test_a_key_in_the_wrong_place_is_not_shown(control, text):
    path = control.put_profile(text, "a.conf")
    for answer in (control.run("check", path), control.run("check", path, "--json")):
        assert answer.status == REFUSED
        assert KEY.rstrip("=") not in answer.stdout + answer.stderr


def test_people_see_sentence_and_place_in_lines(control):
    answer = control.run("check", control.put_profile(HOOKED))
    assert answer.status == REFUSED
    assert answer.stdout == (
        'WireGuard profile "home", protocol wireGuard: the text has an [Interface] section\n'
        "Refused: WireGuard hook and SaveConfig directives are not permitted.\n"
        "Where: line 4 (PostUp).\n")


@pytest.mark.parametrize("text, status, words", [
    ("", REFUSED, "The VPN configuration is empty or too large."),
    ("x" * 2097153, REFUSED, "The VPN configuration is empty or too large."),
    (b"[Interface]\n\xff\n", REFUSED, "The profile is not UTF-8 text."),
    ("hello\n", USAGE, "--protocol"),
    ("{}", USAGE, "neither sing-box nor Xray"),
    ('{"routing": {}, "route": {}}', USAGE, "both sing-box and Xray"),
], ids=["empty", "too-large", "not-utf-8", "prose", "no-shape", "two-shapes"])
def test_what_is_no_profile_is_said_so(control, text, status, words):
    answer = control.run("check", control.put_profile(text, "a.txt"))
    assert answer.status == status
    assert words in answer.stdout + answer.stderr


def test_the_largest_profile_is_judged_by_its_rules(control):
    text = PROFILE + "# " + "x" * (2097152 - len(PROFILE) - 3) + "\n"
    assert len(text) == 2097152
    assert control.json("check", control.put_profile(text))["valid"] is True


def test_a_file_that_cannot_be_read_is_named(control):
    answer = control.run("check", "/tmp/nothing.conf")
    assert answer.status == FAILURE
    assert answer.stderr == "quorvexvpnctl: Unable to read /tmp/nothing.conf: No such file or directory\n"
    assert control.run("check", control.put_profile()).status == OK
