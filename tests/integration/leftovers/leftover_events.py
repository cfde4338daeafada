# SPDX-License-Identifier: Apache-2.0
"""What can befall a tunnel, each with the way back to how the machine was."""

import time
from typing import Callable

import pytest

from leftover_steps import LINK6, WIREGUARD_KINDS, Scene, scene
from memory_group import run_out_of_memory
from quorvex_world import OpenVpnServer, TunnelServer
from tunnel_steps import DIRECT6, FAR4, IP

# What each engine leaves of itself when it is killed, so that a comparison that saw nothing would be found out.
RESIDUE = {
    "WireGuard": ("rules4", "rules6", "nftables", "wireguard_files"),
    "AmneziaWG": ("rules4", "rules6", "nftables", "wireguard_files"),
    "OpenVPN": ("routes4",),
    "Sing-box": ("rules4", "rules6", "nftables"),
    "Xray": (),
}


def asked_to_end(one: Scene) -> None:
    """Nothing befalls it: what the engines' own orderly end leaves alone, every other end has to leave alone too."""
    one.end()


def engine_killed(one: Scene) -> None:
    since = time.monotonic()
    one.signal_engine("KILL")
    one.expect_told(since)
    one.end()


def engine_out_of_memory(one: Scene) -> None:
    since = time.monotonic()
    run_out_of_memory(one.world, one.engine()["host_pid"])
    one.expect_told(since)
    one.end()


def engine_frozen(one: Scene) -> None:
    """Nobody can ask it to end. It says nothing, so the stage has nothing to tell before the disconnect."""
    one.signal_engine("STOP")
    one.end("error", "WireGuard disconnect cleanup failed." if one.kind in WIREGUARD_KINDS else
            f"{one.kind.engine} required forced termination; route cleanup needs verification.")


def service_killed(one: Scene) -> None:
    one.service.kill()
    one.service.wait()
    assert one.engine() and one.closed() == one.kill_switch
    one.restart()


def crash(one: Scene) -> None:
    """As systemd ends what is left of the service's control group."""
    one.service.kill()
    one.signal_engine("KILL")
    one.service.wait()
    one.world.poll(one.engine_is_gone, what="the end of the engine")


def all_killed(one: Scene) -> None:
    crash(one)
    left = one.difference()
    assert all(f"{item}: +" in left for item in RESIDUE[one.kind.kit]), left
    one.restart()


def interface_deleted(one: Scene) -> None:
    since = time.monotonic()
    one.world.run([IP, "link", "delete", one.kind.interface])
    one.expect_told(since)
    one.end()


def link_lost(one: Scene) -> None:
    """What the machine has on its cable goes with it, and whoever cares for the cable brings it back."""
    routes = {family: [line for line in lines if " dev phys0 " in f"{line} " and "proto kernel" not in line]
              for family, lines in (("-4", one.before.routes4), ("-6", one.before.routes6))}
    one.world.run([IP, "link", "set", "phys0", "down"])
    assert one.http(FAR4) == ""
    one.world.run([IP, "link", "set", "phys0", "up"])
    for address in (DIRECT6, LINK6):
        one.world.run([IP, "address", "add", f"{address}/64", "dev", "phys0", "nodad"])
    for family, lines in routes.items():
        one.world.run([IP, family, "-batch", "-"], input="".join(f"route add {line}\n" for line in lines))
    # OpenVPN's own route to its server went with the cable, and it knows nothing of that.
    if one.kind is not OpenVpnServer:
        one.world.poll(lambda: one.far() == one.through(), what="traffic through the tunnel")
    assert one.snapshot()["stage"] == "connected"
    one.end()


Event = Callable[[Scene], None]
TO_ENGINE: dict[str, Event] = {
    "engine killed": engine_killed,
    "engine out of memory": engine_out_of_memory,
    "engine frozen": engine_frozen,
}
TO_SERVICE: dict[str, Event] = {
    "an orderly disconnect": asked_to_end,
    "service killed": service_killed,
    "service and engine killed": all_killed,
}
TO_NETWORK: dict[str, Event] = {
    "interface deleted": interface_deleted,
    "link lost and back": link_lost,
}
EVENTS = {**TO_SERVICE, **TO_ENGINE, **TO_NETWORK}

by_kill_switch = pytest.mark.parametrize("kill_switch", [False, True], ids=["open", "closed"])


def nothing_is_left_after(world, kind: type[TunnelServer], event: Event, kill_switch: bool) -> None:
    one = scene(world, kind, kill_switch)
    one.up()
    event(one)
    one.expect_as_before()
    one.expect_next_connect()
