# SPDX-License-Identifier: Apache-2.0
"""GetRuntimeInfo: its exact shape for several sets of installed engines, and when it asks for a repair."""

import pytest

from front_steps import (
    ADD_INTERFACE, INVALID_PROFILE, REPAIR_REQUIRED, RUNTIME_UNAVAILABLE, refused_connect, reply)

pytestmark = pytest.mark.bus

PRIVATE = "/usr/libexec/quorvexvpn"
PROGRAMS = {
    "sing-box": [f"{PRIVATE}/sing-box"],
    "xray": [f"{PRIVATE}/xray", f"{PRIVATE}/geoip.dat", f"{PRIVATE}/geosite.dat"],
    "wireguard": ["/usr/bin/wg-quick", "/usr/bin/wg"],
    "openvpn": ["/usr/sbin/openvpn"],
}
ENGINES = list(PROGRAMS)
KEYS = ["singBoxRuntimeDetected", "xrayRuntimeDetected", "wireGuardRuntimeDetected", "openVpnRuntimeDetected"]
NAMES = ["Sing-box", "Xray", "WireGuard", "OpenVPN"]


def install_only(front, *engines: str) -> None:
    """Of the four engines exactly these are there; programs that only exist, since nothing runs them here."""
    for engine, paths in PROGRAMS.items():
        for path in paths:
            front.world.path(path).unlink(missing_ok=True)
            if engine in engines:
                front.world.put_file(path, "#!/bin/sh\n", mode=0o755)


def runtime_text(*engines: str, repair: bool = False) -> str:
    found = [engine in engines for engine in ENGINES]
    summary = "; ".join(f"{name} {'ready' if there else 'missing'}" for name, there in zip(NAMES, found))
    summary += REPAIR_REQUIRED if repair else ""
    ready = all(found) and not repair
    entries = [f"'platformName': <'linux'>, 'summary': <'{summary}'>, 'nativeBridgeReady': <{word(ready)}>"]
    entries += [f"'{key}': <{word(there)}>" for key, there in zip(KEYS, found)]
    return "({" + ", ".join(entries) + "},)"


def word(truth: bool) -> str:
    return "true" if truth else "false"


def runtime_info(front) -> str:
    signature, text = reply(front.bob, "GetRuntimeInfo")
    assert signature == "(a{sv})"
    return text


@pytest.mark.parametrize("engines", [
    (), ("sing-box",), ("xray",), ("wireguard",), ("openvpn",), ("xray", "wireguard", "openvpn"),
    ("sing-box", "wireguard", "openvpn"), ("sing-box", "xray", "openvpn"), ("sing-box", "xray", "wireguard"),
    tuple(ENGINES),
], ids=lambda engines: ", ".join(engines) or "none")
def test_each_set_of_engines_is_told_in_the_same_shape(shared_front, engines):
    """One service answers for all sets: nothing is remembered from an earlier answer."""
    install_only(shared_front, *engines)
    assert runtime_info(shared_front) == runtime_text(*engines)


def test_a_repair_is_told_at_the_end_of_the_summary_and_nothing_is_ready_then(front):
    install_only(front, *ENGINES)
    front.nft.on("-f", exit_status=1, times=1)
    front.start()
    assert runtime_info(front) == runtime_text(*ENGINES, repair=True)


def test_a_repair_is_told_whatever_is_installed(front):
    install_only(front)
    front.nft.on("-f", exit_status=1, times=1)
    front.start()
    assert runtime_info(front) == runtime_text(repair=True)


def test_a_failed_disconnect_asks_for_a_repair_until_one_succeeds(front):
    front.start()
    front.nft.on("-f", exit_status=1, times=1)
    assert front.disconnect()["stage"] == "error"
    assert runtime_info(front) == runtime_text("wireguard", repair=True)
    assert front.disconnect()["stage"] == "disconnected"
    assert runtime_info(front) == runtime_text("wireguard")


def test_a_failed_recovery_after_a_failed_start_asks_for_a_repair_until_a_connect_succeeds(front):
    front.start()
    front.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1, times=1)
    front.wg_quick.on("down", exit_status=1, times=2)
    assert front.connect()["stage"] == "error"
    assert runtime_info(front) == runtime_text("wireguard", repair=True)
    assert front.connect()["stage"] == "connected"
    assert runtime_info(front) == runtime_text("wireguard")


def test_a_failed_start_with_a_good_recovery_asks_for_nothing(front):
    front.start()
    front.wg_quick.on("up", exit_status=1)
    assert front.connect()["stage"] == "error"
    assert runtime_info(front) == runtime_text("wireguard")


def test_a_good_recovery_after_a_failed_start_mends_an_earlier_failure(front):
    front.start()
    front.nft.on("-f", exit_status=1, times=1)
    assert front.disconnect()["stage"] == "error"
    front.wg_quick.on("up", exit_status=1)
    assert front.connect()["stage"] == "error"
    assert runtime_info(front) == runtime_text("wireguard")


def test_a_refused_connect_mends_nothing(front):
    front.start()
    front.nft.on("-f", exit_status=1, times=1)
    assert front.disconnect()["stage"] == "error"
    assert refused_connect(front.alice, config="[Peer]")[0] == INVALID_PROFILE
    install_only(front)
    assert refused_connect(front.alice)[0] == RUNTIME_UNAVAILABLE
    assert runtime_info(front) == runtime_text(repair=True)
