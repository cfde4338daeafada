# SPDX-License-Identifier: Apache-2.0
"""`connect` and `disconnect`: following the stages, every way in which they end, and what they must not show."""

import json
import signal

import pytest

from control_steps import (BUSY, FAILURE, HOOKED, INSTALLED, INTERRUPTED, KEY, NOT_CONNECTED, OK, OPEN, PROFILE,
                           REFUSED, TERMINATED, UNREACHABLE, USAGE)

pytestmark = pytest.mark.bus


def test_follows_the_stages_until_the_tunnel_is_up(control):
    control.world.start_service()
    answer = control.run("connect", control.put_profile())
    assert answer.status == OK and answer.stderr == ""
    lines = answer.stdout.splitlines()
    assert lines[0] == 'WireGuard profile "home", protocol wireGuard: the text has an [Interface] section'
    assert lines[1:4] == ["preparing", "  Preparing WireGuard tunnel.", "connecting"]
    assert lines[-1].startswith("connected in ") and lines[-1].endswith(": home, WireGuard through quorvexvpn")


def test_the_json_says_what_became_of_it(control):
    control.world.start_service()
    answer = control.json("connect", control.put_profile(), "--kill-switch")
    assert answer.pop("milliseconds") >= 0
    assert answer == {"connected": True, "profile": "home", "protocol": "wireGuard", "engine": "WireGuard",
                      "interface": "quorvexvpn", "killSwitch": "on", "error": None, "hint": None, "exitCode": OK}


def test_a_kill_switch_that_could_not_be_applied_has_an_exit_code_of_its_own(control):
    rules = lambda call: "chain" in call.stdin
    control.world.recorder("/usr/sbin/nft").on("-f", "-", when=rules, exit_status=1)
    control.world.start_service()
    answer = control.run("connect", control.put_profile(), "--kill-switch")
    assert answer.status == OPEN
    assert "  Kill switch could not be applied: " in answer.stdout
    assert "The kill switch is NOT active" in answer.stdout
    assert control.json("status")["stage"] == "connected"


def test_reads_a_profile_from_standard_input(control):
    control.world.start_service()
    answer = control.json("connect", "-", "--id", "pasted", input=PROFILE)
    assert answer["profile"] == "pasted"
    assert control.json("status")["profile"] == "pasted"


def test_a_profile_s_name_may_have_any_letters(control):
    control.world.start_service()
    assert control.json("connect", control.put_profile(), "--id", "B\u00fcro \u4eac")["profile"] == "B\u00fcro \u4eac"
    assert control.json("status")["profile"] == "B\u00fcro \u4eac"


def test_a_name_that_is_none_is_refused_by_the_rules(control):
    answer = control.json("connect", control.put_profile(), "--id", "a\tb", status=REFUSED)
    assert answer["error"] == "The profile identifier is invalid."


def test_a_protocol_that_is_said_is_not_guessed(control):
    control.world.start_service()
    assert control.json("connect", control.put_profile(), "--protocol", "wg")["protocol"] == "wg"


def test_a_text_of_no_known_kind_asks_for_the_protocol(control):
    service = control.world.start_service()
    answer = control.run("connect", control.put_profile("hello\n", "what.conf"))
    assert answer.status == USAGE
    assert "--protocol" in answer.stderr
    assert len(service.journal) == 1


def test_a_profile_against_the_rules_is_refused_before_anybody_is_asked_for_a_password(control):
    control.world.start_service()
    answer = control.run("connect", control.put_profile(HOOKED), user="bob")
    assert answer.status == REFUSED
    assert "WireGuard hook and SaveConfig directives are not permitted." in answer.stderr
    assert "line 4 (PostUp)" in answer.stderr


def test_a_missing_engine_is_a_failed_connection(control):
    control.world.remove_tool("/usr/bin/wg-quick")
    control.world.start_service()
    answer = control.json("connect", control.put_profile(), status=NOT_CONNECTED)
    assert answer["error"] == "WireGuard runtime is missing. Repair the QuorvexVPN installation."
    assert "doctor" in answer["hint"]


def test_a_failed_start_ends_with_the_service_s_sentence(control):
    control.world.stand_in("/usr/bin/wg-quick").on("up", exit_status=1)
    control.world.start_service()
    answer = control.json("connect", control.put_profile(), status=NOT_CONNECTED)
    assert answer["connected"] is False
    assert answer["error"] == control.json("status")["lastError"]


def test_a_busy_service_says_so(control):
    gate = control.world.standard_tools()["wg-quick"].gate("up")
    control.world.start_service()
    first = control.start("connect", control.put_profile())
    control.world.wait_call("wg-quick", "up")
    assert control.run("connect", control.put_profile(name="other.conf")).status == BUSY
    gate.open()
    assert first.wait() == OK


@pytest.mark.parametrize("number, status", [(signal.SIGINT, INTERRUPTED), (signal.SIGTERM, TERMINATED)],
                         ids=["ctrl-c", "sigterm"])
def test_an_interrupt_takes_the_connect_back(control, number, status):
    gate = control.world.standard_tools()["wg-quick"].gate("up")
    control.world.start_service()
    process = control.start("connect", control.put_profile())
    control.world.wait_call("wg-quick", "up")
    process.signal(number)
    process.wait_line("disconnecting")
    gate.open()
    assert process.wait(20) == status
    assert "quorvexvpnctl: Interrupted; the tunnel is down." in process.lines
    assert control.json("status")["stage"] == "disconnected"
    assert not control.world.interface_exists("quorvexvpn")


def test_a_second_interrupt_leaves_at_once(control):
    control.world.standard_tools()["wg-quick"].gate("up")
    control.world.start_service()
    process = control.start("connect", control.put_profile())
    control.world.wait_call("wg-quick", "up")
    process.signal(signal.SIGINT)
    process.wait_line("disconnecting")
    process.signal(signal.SIGINT)
    assert process.wait(5) == INTERRUPTED
    assert control.json("status")["stage"] == "disconnecting"


def test_an_interrupt_while_polkit_has_not_decided_leaves_without_a_tunnel(control):
    """As with its dialog open: polkit is stopped, and decides when the caller has left."""
    control.world.start_service()
    monitor = control.world.spawn(["/usr/bin/dbus-monitor", "--system", "path=/org/freedesktop/PolicyKit1/Authority"])
    monitor.wait_line("NameAcquired")
    control.world.polkit.signal(signal.SIGSTOP)
    process = control.start("connect", control.put_profile())
    monitor.wait_line("path=/org/freedesktop/PolicyKit1/Authority")
    process.signal(signal.SIGINT)
    assert process.wait(10) == INTERRUPTED
    assert process.lines[-1].startswith("quorvexvpnctl: Interrupted while the service had not answered")
    control.world.polkit.signal(signal.SIGCONT)
    assert control.json("status")["stage"] == "disconnected"
    assert control.world.calls("wg-quick") == []


def test_a_disconnect_of_somebody_else_ends_it(control):
    gate = control.world.standard_tools()["wg-quick"].gate("up")
    control.world.start_service()
    process = control.start("connect", control.put_profile(), "--json")
    control.world.wait_call("wg-quick", "up")
    control.world.client("root").call("Disconnect")
    gate.open()
    assert process.wait(20) == NOT_CONNECTED
    assert json.loads(process.lines[-1])["error"].startswith("Somebody asked for a disconnect")


def test_the_service_s_end_on_the_way_is_noticed(control):
    control.world.standard_tools()["wg-quick"].gate("up")
    service = control.world.start_service()
    process = control.start("connect", control.put_profile())
    control.world.wait_call("wg-quick", "up")
    service.kill()
    assert process.wait(20) == UNREACHABLE
    assert "quorvexvpnctl: The service ended before the tunnel was up." in process.lines


def test_disconnect_waits_until_the_tunnel_is_down(control):
    control.world.start_service()
    control.run("connect", control.put_profile())
    answer = control.run("disconnect")
    assert (answer.status, answer.stdout) == (OK, "disconnecting\ndisconnected\n")
    assert not control.world.interface_exists("quorvexvpn")


def test_disconnect_without_a_tunnel_is_well(control):
    control.world.start_service()
    assert control.json("disconnect") == {"stage": "disconnected"}


def test_a_disconnect_that_fails_says_why(control):
    tools = control.world.standard_tools()
    tools["wg-quick"].on("down", exit_status=1)
    control.world.start_service()
    control.run("connect", control.put_profile())
    answer = control.json("disconnect", status=FAILURE)
    assert answer["error"] == control.json("status")["lastError"]


def test_two_disconnects_at_once_both_see_the_end(control):
    gate = control.world.standard_tools()["wg-quick"].gate("down")
    control.world.start_service()
    control.run("connect", control.put_profile())
    first = control.start("disconnect")
    control.world.wait_call("wg-quick", "down")
    second = control.start("disconnect", "--json")
    gate.open()
    assert (first.wait(20), second.wait(20)) == (OK, OK)


def test_the_key_is_neither_shown_nor_kept(control):
    """While it waits for the tunnel, the command needs the profile no more."""
    gate = control.world.standard_tools()["wg-quick"].gate("up")
    if control.world.start_service().is_sanitized:
        pytest.skip("sanitizers keep freed memory on purpose")
    process = control.start("connect", control.put_profile())
    control.world.wait_call("wg-quick", "up")
    assert KEY.rstrip("=") not in "\n".join(process.lines)
    argv = control.world.path(f"/proc/{process.pid}/cmdline").read_bytes()
    assert argv.split(b"\0")[:-1] == [INSTALLED.encode(), b"connect", b"/tmp/home.conf"]
    assert not memory_holds(process.host_pid, KEY.encode())
    assert memory_holds(process.host_pid, b"org.quorvexvpn.Service1"), "the search sees what is there"
    gate.open()
    process.wait()


def memory_holds(host_pid: int, needle: bytes) -> bool:
    """Whether a process's writable memory has these bytes."""
    with open(f"/proc/{host_pid}/maps") as maps, open(f"/proc/{host_pid}/mem", "rb") as memory:
        for line in maps:
            words = line.split()
            begin, end = (int(number, 16) for number in words[0].split("-"))
            if "w" in words[1] and not words[-1].startswith("[v"):
                memory.seek(begin)
                if needle in memory.read(end - begin):
                    return True
    return False
