# SPDX-License-Identifier: Apache-2.0
"""The command with a real tunnel behind it, and as it looks on a terminal."""

import signal

import pytest

from control_steps import INSTALLED, INTERRUPTED, OK, Control
from quorvex_world import OpenVpnServer, SingBoxServer, XrayServer, engines
from tunnel_worlds import furnish


pytestmark = pytest.mark.tunnel


def put_real_profile(control, **options) -> str:
    return control.put_profile(control.world.wireguard.profile(**options))


def test_a_connected_machine_goes_through_the_tunnel(wireguard_control):
    control = wireguard_control
    assert control.world.http_get("http://203.0.113.9/").body == "10.99.0.1"
    assert control.run("connect", put_real_profile(control), "--kill-switch").status == OK
    assert control.world.http_get("http://203.0.113.9/").body == "10.8.0.2"
    status = control.json("status", user="root")
    assert status["fullRoute"] == {"ipv4": True, "ipv6": True}
    assert (status["engine"], status["killSwitch"]) == ("WireGuard", "on")
    assert control.run("disconnect").status == OK
    assert control.world.http_get("http://203.0.113.9/").body == "10.99.0.1"


def test_a_tunnel_for_one_family_alone_is_shown_as_that(wireguard_control):
    control = wireguard_control
    profile = put_real_profile(control, allowed_ips="0.0.0.0/0", address="10.8.0.2/32")
    assert control.run("connect", profile).status == OK
    assert control.json("status")["fullRoute"] == {"ipv4": True, "ipv6": False}
    assert "all IPv4 through the tunnel" in control.run("status").stdout


@pytest.mark.parametrize("kind, protocol", [
    pytest.param(OpenVpnServer, "openVpn", id="OpenVPN"), pytest.param(SingBoxServer, "singBox", id="Sing-box"),
    pytest.param(XrayServer, "xray", id="Xray")])
def test_each_engine_is_guessed_from_its_profile_and_told_by_its_interface(world, request, kind, protocol):
    if reason := engines.missing(kind.engine):
        pytest.skip(reason)
    tunnel = furnish(world, kind)
    world.start_service()
    control = Control(world, request.config.getoption("--service"))
    answer = control.json("connect", control.put_profile(tunnel.profile(), "profile"), timeout=60)
    assert (answer["protocol"], answer["engine"], answer["interface"]) == (protocol, kind.engine, tunnel.interface)
    assert world.http_get("http://203.0.113.9/").body == tunnel.seen_as4
    status = control.json("status")
    assert (status["engine"], status["interface"]) == (kind.engine, tunnel.interface)
    assert status["fullRoute"] == {"ipv4": True, "ipv6": True}
    assert control.run("disconnect", timeout=60).status == OK
    assert control.json("status")["engine"] is None


def on_a_terminal(control, script: str):
    """`script` gives its command a terminal of its own; its last line is the status it ended with."""
    return control.world.run(["/usr/bin/script", "--quiet", "--return", "--command", script, "/dev/null"],
                             user="alice", check=False, timeout=30, env=control.environment)


def test_a_terminal_shows_the_stage_in_its_last_line(wireguard_control):
    control = wireguard_control
    shown = on_a_terminal(control, f"{INSTALLED} connect {put_real_profile(control)}")
    assert shown.status == OK
    assert "\r\x1b[Kpreparing ..." in shown.stdout and "\r\x1b[Kconnecting ..." in shown.stdout
    # The end clears the stage and stands in a line of its own.
    assert shown.stdout.rpartition("\x1b[K")[2].startswith("connected in ")


def test_ctrl_c_on_a_terminal_disconnects(wireguard_control):
    """The terminal itself turns the typed character into the signal."""
    control = wireguard_control
    gate = control.world.recorder("/usr/bin/wg-quick").gate("up")
    profile = put_real_profile(control)
    control.world.put_file("/tmp/type", TYPE_CTRL_C, mode=0o755)
    typing = control.world.spawn(["/usr/bin/python3", "/tmp/type", INSTALLED, "connect", profile], user="alice",
                                 env=control.environment)
    control.world.wait_call("wg-quick", "up")
    typing.signal(signal.SIGUSR1)
    typing.wait_line("disconnecting")
    gate.open()
    assert typing.wait(30) == INTERRUPTED
    assert control.json("status")["stage"] == "disconnected"
    assert not control.world.interface_exists("quorvexvpn")


TYPE_CTRL_C = '''
import os, pty, signal, sys
pid, terminal = pty.fork()
if pid == 0:
    os.execv(sys.argv[1], sys.argv[1:])
signal.signal(signal.SIGUSR1, lambda *_: os.write(terminal, b"\\x03"))
while True:
    try:
        text = os.read(terminal, 4096)
    except OSError:
        break
    os.write(1, text.replace(b"\\r", b"\\n"))
sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))
'''
