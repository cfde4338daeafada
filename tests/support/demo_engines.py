# SPDX-License-Identifier: Apache-2.0
"""What the demonstration shows of one engine and not of another."""

import json
from dataclasses import dataclass
from typing import Callable

from quorvex_world import OpenVpnServer, SingBoxServer, TunnelServer, WireGuardServer, XrayServer


@dataclass(frozen=True)
class Shown:
    """An engine as the demonstration tells of it."""

    server: type[TunnelServer]
    # The server in words, and the only traffic that the cable may show.
    what: str
    flow: str
    # What a profile is refused for, and such a profile made of a good one.
    refused_for: str
    spoil: Callable[[str], str]
    # The client's address in the tunnel, and the beginnings of the routes that make it a full one.
    address: str
    routes: tuple[str, ...]
    # What a disconnect is known to leave.
    known: str = ""


def with_log_file(profile: str) -> str:
    return json.dumps({**json.loads(profile), "log": {"output": "/etc/owned", "access": "/etc/owned"}})


ENGINES = {
    "wireguard": Shown(
        server=WireGuardServer, what="a WireGuard server", flow="WireGuard UDP",
        refused_for="run a command as root",
        spoil=lambda profile: profile.replace("[Peer]", "PostUp = touch /tmp/owned\n[Peer]"),
        address="10.8.0.2/32", routes=("default dev quorvexvpn",),
        known="wg-quick leaves the kernel setting net.ipv4.conf.all.src_valid_mark at 1"),
    "openvpn": Shown(
        server=OpenVpnServer, what="an OpenVPN server", flow="OpenVPN UDP",
        refused_for="run a command as root", spoil=lambda profile: profile + "up /tmp/owned.sh\n",
        address="10.9.0.2/24",
        routes=("0.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn", "128.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn")),
    "sing-box": Shown(
        server=SingBoxServer, what="a Shadowsocks server", flow="Shadowsocks TCP and UDP",
        refused_for="write a file as root", spoil=with_log_file, address="172.19.0.1/30",
        routes=("default via 172.19.0.2 dev quorvex-sbox0 table 2022",)),
    "xray": Shown(
        server=XrayServer, what="a VLESS server", flow="VLESS TCP",
        refused_for="write a file as root", spoil=with_log_file, address="172.20.0.1/30",
        routes=("default dev quorvex-xray0",)),
}
