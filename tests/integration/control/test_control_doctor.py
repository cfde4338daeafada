# SPDX-License-Identifier: Apache-2.0
"""`doctor`: a whole machine passes, and each thing that is taken away is found with what to do about it."""


import pytest

from control_steps import FAILURE, OK, USAGE
from quorvex_world import engines

pytestmark = pytest.mark.bus

ACTIVATION = """[D-BUS Service]
Name=org.quorvexvpn.Service1
Exec=/usr/libexec/quorvexvpn-service
User=root
"""


@pytest.fixture
def whole(control):
    """A machine on which nothing is missing for WireGuard, and the service runs."""
    control.world.put_file("/usr/share/dbus-1/system-services/org.quorvexvpn.Service1.service", ACTIVATION)
    control.world.client("root").raw_call(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", "()")
    control.world.start_service()
    return control


def findings(control, *engine: str, status: int, user: str = "root") -> list[dict]:
    report = control.json("doctor", *engine, status=status, user=user)
    assert report["healthy"] is (status == OK)
    return report["findings"]


def faults(control, *engine: str, user: str = "root") -> dict[str, str]:
    """What is missing or left over, by topic."""
    found = findings(control, *engine, status=FAILURE, user=user)
    assert all(one["advice"] for one in found if one["state"] in ("missing", "leftover"))
    return {one["topic"]: one["text"] for one in found if one["state"] in ("missing", "leftover")}


def test_nothing_is_missing_on_a_whole_machine(whole):
    found = findings(whole, "wireguard", status=OK)
    states = {one["topic"]: one["state"] for one in found}
    assert states["service"] == states["bus"] == states["polkit"] == states["rights"] == "ok"
    assert states["WireGuard"] == states["DNS"] == states["tools"] == "ok"
    assert states["leftovers"] == "ok"
    # No systemd runs in a world.
    assert states["unit"] == "unknown"


def test_only_the_named_engines_count(whole):
    assert "OpenVPN" not in {one["topic"] for one in findings(whole, "wireguard", status=OK)}
    assert set(faults(whole)) == {"OpenVPN", "Sing-box", "Xray"}


def test_an_installed_engine_is_found(whole):
    if reason := engines.missing("OpenVPN"):
        pytest.skip(reason)
    engines.install(whole.world, "OpenVPN")
    findings(whole, "wireguard", "openvpn", status=OK)


@pytest.mark.parametrize("path, topic", [
    ("/usr/bin/wg-quick", "WireGuard"), ("/usr/bin/wg", "WireGuard"), ("/usr/sbin/nft", "tools"),
    ("/usr/bin/resolvectl", "DNS"), ("/usr/libexec/quorvexvpn-dns", "DNS"),
])
def test_a_missing_program_is_named_with_what_to_install(whole, path, topic):
    whole.world.remove_tool(path)
    assert faults(whole, "wireguard") == {topic: f"{path} is not there"}


def test_a_program_that_cannot_be_run_is_none(whole):
    whole.world.chmod_tool("/usr/bin/wg-quick", 0o644)
    assert faults(whole, "wireguard") == {"WireGuard": "/usr/bin/wg-quick is no program"}


def test_half_an_amneziawg_is_missing_the_rest_and_none_of_it_is_not(whole):
    assert {"AmneziaWG": "note"}.items() <= {
        one["topic"]: one["state"] for one in findings(whole, "wireguard", status=OK)}.items()
    whole.world.put_file("/usr/libexec/quorvexvpn/awg", "#!/bin/sh\n", mode=0o755)
    assert list(faults(whole, "wireguard")) == ["AmneziaWG"]


def test_a_service_that_does_not_run_is_missing(whole):
    whole.world.service.stop()
    whole.world.remove_tool("/usr/share/dbus-1/system-services/org.quorvexvpn.Service1.service")
    whole.world.client("root").raw_call(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", "()")
    assert set(faults(whole, "wireguard")) == {"bus", "service"}


def test_a_machine_without_polkit_is_told_to_install_it(whole):
    whole.world.stop_polkit()
    assert list(faults(whole, "wireguard")) == ["polkit"]


def test_the_action_that_polkit_does_not_know_is_missing(whole):
    whole.world.remove_tool("/usr/share/polkit-1/actions/org.quorvexvpn.policy")
    whole.world.stop_polkit()
    whole.world.start_polkit()
    assert faults(whole, "wireguard") == {"polkit": "has no action org.quorvexvpn.manage"}


@pytest.mark.parametrize("user, text", [
    ("alice", "you may manage the VPN"), ("bob", "polkit asks for a password before you manage the VPN"),
])
def test_everybody_sees_what_polkit_thinks_of_them(whole, user, text):
    found = findings(whole, "wireguard", status=OK, user=user)
    assert text in [one["text"] for one in found if one["topic"] == "rights"]


def test_without_a_bus_the_rest_is_still_looked_at(whole):
    whole.world.kill_bus()
    whole.world.service.wait(60)
    whole.world.remove_tool("/usr/bin/wg")
    assert set(faults(whole, "wireguard")) == {"bus", "WireGuard"}


def test_a_leftover_interface_is_found_by_everybody(whole):
    whole.world.run(["/media/bin/ip", "tuntap", "add", "dev", "tun-quorvexvpn", "mode", "tun"])
    assert faults(whole, "wireguard", user="alice") == {
        "leftovers": "interface tun-quorvexvpn exists without a tunnel"}


def test_a_failed_start_is_no_tunnel_that_could_excuse_leftovers(whole):
    whole.world.stand_in("/usr/bin/wg-quick").on("up", exit_status=1)
    whole.run("connect", whole.put_profile())
    assert whole.json("status")["stage"] == "error"
    whole.world.run(["/media/bin/ip", "tuntap", "add", "dev", "quorvex-xray0", "mode", "tun"])
    assert "leftovers" in faults(whole, "wireguard")


def test_a_service_that_could_not_clean_up_says_so(whole):
    whole.world.standard_tools()["wg-quick"].on("down", exit_status=1)
    whole.run("connect", whole.put_profile())
    assert whole.run("disconnect").status == FAILURE
    assert faults(whole, "wireguard")["service"].endswith("; cleanup repair required")


def test_leftovers_that_only_root_can_see_are_unknown_to_others(whole):
    whole.world.put_file("/run/quorvexvpn/quorvexvpn.conf", "x", mode=0o600)
    whole.world.path("/run/quorvexvpn").chmod(0o700)
    assert faults(whole, "wireguard") == {
        "leftovers": "/run/quorvexvpn/quorvexvpn.conf lies there without a tunnel"}
    unknown = [one["text"] for one in findings(whole, "wireguard", status=OK, user="alice")
               if (one["topic"], one["state"]) == ("leftovers", "unknown")]
    assert "/run/quorvexvpn can be seen by root alone" in unknown


def test_a_closed_kill_switch_without_a_tunnel_is_found(whole):
    whole.world.run(["/media/sbin/nft", "add", "table", "inet", "quorvexvpn"])
    assert list(faults(whole, "wireguard")) == ["leftovers"]


def test_a_standing_tunnel_is_no_leftover(whole):
    assert whole.run("connect", whole.put_profile(), "--kill-switch").status == OK
    findings(whole, "wireguard", status=OK)


def test_an_engine_that_does_not_exist_is_a_usage_error(whole):
    answer = whole.run("doctor", "ipsec")
    assert answer.status == USAGE
    assert 'There is no engine "ipsec".' in answer.stderr


def test_people_get_a_line_for_each_finding_and_one_for_its_advice(whole):
    whole.world.remove_tool("/usr/bin/wg")
    lines = whole.run("doctor", "wireguard", user="root").stdout.splitlines()
    place = lines.index("missing   WireGuard /usr/bin/wg is not there")
    assert lines[place + 1] == " " * 20 + "Install the package wireguard-tools."
