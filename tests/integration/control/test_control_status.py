# SPDX-License-Identifier: Apache-2.0
"""`status`, and what every command says without a service."""

import pytest

from control_steps import FAILURE, NOT_AUTHORIZED, OK, UNREACHABLE

pytestmark = pytest.mark.bus


def test_says_that_nothing_is_connected(control):
    control.world.start_service()
    answer = control.run("status")
    assert answer.status == OK
    rows = dict(line.split(None, 1) for line in answer.stdout.splitlines() if not line.startswith("Kill"))
    assert rows["Stage"] == "disconnected"
    assert "Profile" not in rows and "Engine" not in rows


def test_tells_the_tunnel_by_its_interface(control):
    control.world.start_service()
    assert control.run("connect", control.put_profile()).status == OK
    answer = control.json("status")
    assert (answer["stage"], answer["profile"], answer["engine"], answer["interface"]) == (
        "connected", "home", "WireGuard", "quorvexvpn")
    assert answer["fullRoute"] == {"ipv4": True, "ipv6": False}
    assert answer["connectedSince"].endswith("Z") and answer["connectedSeconds"] >= 0
    assert answer["lastError"] is None


def test_asks_the_kernel_for_the_kill_switch_as_root_alone(control):
    control.world.start_service()
    assert control.json("status", user="root")["killSwitch"] == "off"
    assert control.json("status", user="alice")["killSwitch"] == "unknown"
    control.run("connect", control.put_profile(), "--kill-switch")
    assert control.json("status", user="root")["killSwitch"] == "on"
    assert "Kill switch   unknown" in control.run("status", user="alice").stdout


def test_needs_no_rights(control):
    control.world.start_service()
    assert control.json("status", user="bob")["stage"] == "disconnected"


def test_shows_the_sentence_of_a_failed_start(control):
    control.world.stand_in("/usr/bin/wg-quick").on("up", exit_status=1)
    control.world.start_service()
    control.run("connect", control.put_profile())
    answer = control.json("status")
    assert answer["stage"] == "error" and answer["profile"] == "home"
    assert answer["lastError"] in control.run("status").stdout


def test_can_end_by_whether_there_is_a_tunnel(control):
    control.world.start_service()
    assert control.run("status", "--connected").status == FAILURE
    control.run("connect", control.put_profile())
    assert control.run("status", "--connected").status == OK


@pytest.mark.parametrize("words", [("status",), ("connect", "/tmp/home.conf"), ("disconnect",), ("keygen",)],
                         ids=lambda words: words[0])
def test_without_the_service_is_said_in_words(control, words):
    control.put_profile()
    answer = control.run(*words)
    assert answer.status == UNREACHABLE
    assert answer.stderr.startswith("quorvexvpnctl: ")
    assert "quorvexvpnctl doctor" in answer.stderr


@pytest.mark.parametrize("words", [("status",), ("connect", "/tmp/home.conf"), ("disconnect",), ("watch",)],
                         ids=lambda words: words[0])
def test_without_a_bus_is_said_in_words(control, words):
    control.put_profile()
    control.world.kill_bus()
    answer = control.json(*words, status=UNREACHABLE)
    assert answer["error"].startswith("There is no system bus: ")
    assert answer["exitCode"] == UNREACHABLE


@pytest.mark.parametrize("words", [("connect", "/tmp/home.conf"), ("disconnect",), ("keygen",)],
                         ids=lambda words: words[0])
def test_a_user_whom_polkit_refuses_is_told_what_to_do(control, words):
    control.put_profile()
    control.world.start_service()
    answer = control.run(*words, user="bob")
    assert answer.status == NOT_AUTHORIZED
    assert "quorvexvpnctl: Authorization to manage the VPN was denied.\n" in answer.stderr
    assert "org.quorvexvpn.manage" in answer.stderr and "pkttyagent" in answer.stderr
    assert control.world.calls("wg-quick") == []
    assert control.json("status")["stage"] == "disconnected"
