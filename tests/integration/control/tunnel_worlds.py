# SPDX-License-Identifier: Apache-2.0
"""Worlds with a real far side for the command."""

from quorvex_world import TunnelServer, WireGuardServer, engines


def furnish_wireguard(world) -> None:
    world.wireguard = furnish(world, WireGuardServer)


def furnish(world, kind: type[TunnelServer]) -> TunnelServer:
    """Real tools, one engine's server across a cable, and a web server behind it."""
    world.real_tools()
    engines.install(world, kind.engine)
    server = world.peer("server")
    world.link(server, "10.99.0.1/24", "10.99.0.2/24", v6=("fd99::1/64", "fd99::2/64"))
    server.add_address("203.0.113.9/32")
    server.http_server("203.0.113.9", 80)
    return kind(server)

