# SPDX-License-Identifier: Apache-2.0
"""What the tests of all four engines share: a machine for each, and how its engine and its traffic are known."""

import functools
import re

import pytest

from quorvex_world import OpenVpnServer, SingBoxServer, TunnelServer, WireGuardServer, XrayServer, engines
from tunnel_steps import FAR4, FAR6, LINK_NOISE, Machine, all_as, furnish

ALL = (WireGuardServer, OpenVpnServer, SingBoxServer, XrayServer)
PROCESS_ENGINES = ALL[1:]
FLOW = re.compile(r"IP6? (\S+) > (\S+): (UDP, length \d+|Flags )")

# What each engine's process is started as, and the arguments that name its file.
PROGRAMS = {"OpenVPN": "/usr/sbin/openvpn", "Sing-box": "/usr/libexec/quorvexvpn/sing-box",
            "Xray": "/usr/libexec/quorvexvpn/xray"}
# The lines of a full route, as `ip` shows them.
FULL_ROUTES = {
    "WireGuard": ["default dev quorvexvpn table "],
    "OpenVPN": ["0.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn", "128.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn"],
    "Sing-box": ["default via 172.19.0.2 dev quorvex-sbox0 table 2022"],
    "Xray": ["default dev quorvex-xray0 metric 1"],
}

by_engine = functools.partial(pytest.mark.parametrize, "kind", ids=lambda kind: kind.kit)


def need(*kinds: type[TunnelServer]) -> None:
    for kind in kinds:
        if reason := engines.missing(kind.kit):
            pytest.skip(reason)


def machine_with(world, kind: type[TunnelServer], **options) -> Machine:
    """A machine with this engine, a server of it across the cable, the service and alice; not connected."""
    need(kind)
    furnish(world, kind, **options)
    return Machine(world, world.start_service(), world.client("alice"))


def expect_tunnel(machine: Machine, server: TunnelServer | None = None) -> None:
    """Every kind of traffic in both families arrives, and not from the client's own address."""
    server = server or machine.world.tunnel
    assert machine.traffic(FAR4, timeout=5) == all_as(server.seen_as4)
    assert machine.traffic(FAR6, timeout=5) == all_as(server.seen_as6)


def is_to_server(line: str, server: TunnelServer) -> bool:
    flow = FLOW.match(line)
    return bool(flow) and server.address in flow.groups()


def leaks(packets: list[str], server: TunnelServer) -> list[str]:
    """The packets that are neither to or from the server nor the cable's neighbours'."""
    return [line for line in packets if not LINK_NOISE.search(line) and not is_to_server(line, server)]


def engine_process(machine: Machine) -> dict:
    """The one process of the process engine that is up."""
    (process,) = machine.processes_of(PROGRAMS[machine.world.tunnel.engine])
    return process
