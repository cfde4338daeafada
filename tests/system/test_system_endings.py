# SPDX-License-Identifier: Apache-2.0
"""The end of a service that is connected, in every way that an administrator and an accident know: each leaves the
network, its names, rules, tables and files as they were before the tunnel."""

import signal

import pytest

from system_machine import NAME, OBJECT, PACKAGE, SERVERS, UNIT

pytestmark = [pytest.mark.system, pytest.mark.slow]

ENGINES = list(SERVERS)
ENGINE_PROCESSES = {"WireGuard": "wireguard-go", "OpenVPN": "openvpn", "Sing-box": "sing-box", "Xray": "xray"}


@pytest.fixture(params=ENGINES)
def engine(request) -> str:
    return request.param


@pytest.fixture
def connected(machine, engine):
    """Connected with the kill switch; `before` is the machine as it was."""
    machine.before = machine.picture()
    machine.connect(engine)
    assert machine.seen_from() == machine.tunnels[engine].seen_as4
    assert "table inet quorvexvpn" in machine.output("nft list tables")
    yield machine
    machine.run(["systemctl", "reset-failed", UNIT], check=False)


def expect_open(machine) -> None:
    machine.expect_picture(machine.before)
    assert machine.seen_from() == "10.99.0.1"


def test_stop(connected):
    connected.run(["systemctl", "stop", UNIT])
    expect_open(connected)
    assert connected.container.unit_property("Result") == "success"


def test_stop_with_a_frozen_engine(connected, engine):
    """The service has to use force and says that it did; the unit sees to what is left."""
    connected.run(["pkill", "-STOP", "-x", ENGINE_PROCESSES[engine]])
    connected.run(["systemctl", "stop", UNIT])
    expect_open(connected)
    assert connected.container.unit_property("ActiveState") in ("inactive", "failed")


def test_restart(connected):
    old = connected.service_pid()
    connected.run(["systemctl", "restart", UNIT])
    expect_open(connected)
    assert connected.service_pid() not in (0, old)
    assert connected.stage() == "disconnected"


def test_killed(connected):
    old = connected.service_pid()
    connected.run(["kill", f"-{signal.SIGKILL.value}", str(old)])
    connected.container.wait(lambda: connected.service_pid() not in (0, old), "another service")
    expect_open(connected)
    assert connected.stage() == "disconnected"


def test_killed_with_its_engine_and_everything(connected):
    """As the kernel's out-of-memory killer would, with nobody left to clear up but the next service."""
    old = connected.service_pid()
    connected.run(["systemctl", "kill", "--signal=KILL", UNIT])
    connected.container.wait(lambda: connected.service_pid() not in (0, old), "another service")
    expect_open(connected)


def test_the_engine_killed(connected, engine):
    """The service tells, the kill switch holds, and a disconnect opens the machine."""
    connected.run(["pkill", "-KILL", "-x", ENGINE_PROCESSES[engine]])
    connected.container.wait(lambda: connected.stage() == "error", "the service's notice")
    assert connected.seen_from(timeout=2) == ""
    connected.disconnect()
    expect_open(connected)


def test_removed(connected):
    connected.apt(f"remove {PACKAGE}")
    expect_open(connected)
    assert connected.container.unit_property("LoadState") == "not-found"


@pytest.mark.parametrize("engine", ["WireGuard"])
def test_removed_while_a_client_asks_for_it_again_and_again(connected):
    """The bus would start the service anew, out of files that are about to go."""
    question = f"gdbus call --system --dest {NAME} --object-path {OBJECT} --method {NAME}.GetRuntimeInfo"
    connected.container.put_file("/run/asking", f"#!/bin/sh\nwhile true; do {question}; done\n", mode=0o755)
    connected.run("systemd-run --quiet --unit=asking /run/asking")
    connected.apt(f"remove {PACKAGE}")
    connected.run("systemctl stop asking && rm /run/asking")
    expect_open(connected)
    assert connected.output("pgrep -x quorvexvpn-serv || true") == ""
    assert connected.container.unit_property("LoadState") == "not-found"
    assert connected.container.unit_property("ActiveState") == "inactive"
    assert not connected.container.path("/run/systemd/system/quorvexvpn.service.d").exists()
    assert "ServiceUnknown" in connected.call("GetRuntimeInfo", check=False).stderr


def test_a_removal_that_is_given_up_leaves_a_service_that_can_be_asked_for(machine):
    scripts = f"/var/lib/dpkg/info/{PACKAGE}"
    machine.run([f"{scripts}.prerm", "remove"])
    assert machine.call("GetRuntimeInfo", check=False).status != 0
    # As dpkg calls it then: https://www.debian.org/doc/debian-policy/ap-flowcharts.html
    machine.run([f"{scripts}.postinst", "abort-remove"])
    assert machine.stage() == "disconnected"


def test_purged(connected):
    connected.apt(f"purge {PACKAGE}")
    expect_open(connected)
    left = connected.output("find / -xdev -name '*quorvexvpn*' -not -path '/proc/*' -not -path '/usr/libexec/*' "
                            "-not -path '/var/cache/*' -not -path '/root/*' -not -path '/media/*' || true")
    assert left == ""


def test_removed_after_it_had_died_for_good(connected):
    """No service is left that would open the machine: the unit does, and the removal finds nothing."""
    connected.container.put_file(f"/run/systemd/system/{UNIT}.d/once.conf", "[Service]\nRestart=no\n")
    connected.run("systemctl daemon-reload")
    connected.run(["systemctl", "kill", "--signal=KILL", UNIT])
    connected.container.wait(lambda: connected.container.unit_property("ActiveState") == "failed", "the end")
    expect_open(connected)
    connected.apt(f"remove {PACKAGE}")
    connected.run(f"rm -r /run/systemd/system/{UNIT}.d && systemctl daemon-reload")
    expect_open(connected)


def test_a_removal_opens_what_a_dead_service_had_closed(connected):
    """Neither another service nor the unit opened the machine."""
    connected.container.put_file(f"/run/systemd/system/{UNIT}.d/never.conf", "[Service]\nRestart=no\nExecStopPost=\n")
    connected.run("systemctl daemon-reload")
    connected.run(["systemctl", "kill", "--signal=KILL", UNIT])
    connected.container.wait(lambda: connected.container.unit_property("ActiveState") == "failed", "the end")
    assert connected.seen_from(timeout=2) == ""
    connected.apt(f"remove {PACKAGE}")
    connected.run(f"rm -r /run/systemd/system/{UNIT}.d && systemctl daemon-reload")
    expect_open(connected)


def test_upgraded(connected, newer_package):
    old = connected.service_pid()
    connected.install(newer_package)
    expect_open(connected)
    assert connected.service_pid() not in (0, old)
    assert connected.stage() == "disconnected"
    assert connected.installed_version() == connected.first_version + "+newer"
