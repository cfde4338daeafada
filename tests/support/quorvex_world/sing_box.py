# SPDX-License-Identifier: Apache-2.0
"""A real sing-box server at a peer."""

import base64
import json
import secrets

from .engines import SING_BOX
from .peers import Peer
from .tunnel_server import TunnelServer

METHOD = "aes-128-gcm"


class SingBoxServer(TunnelServer):
    """Shadowsocks by sing-box at `peer`, for TCP and UDP, on all of the peer's addresses.

    A host with several addresses of one family lists them in `listen`, or UDP is answered from the
    first one alone. What it forwards leaves from its own machine, so the far side sees that
    machine's address.
    """

    protocol, engine = "shadowsocks", "Sing-box"
    kit = engine
    interface, config = "quorvex-sbox0", "/run/quorvexvpn/sing-box.json"
    seen_as4, seen_as6 = "203.0.113.9", "2001:db8:113::9"
    # The TUN device answers for everybody.
    carries_ping = False

    def __init__(self, peer: Peer, endpoint: str = "10.99.0.2", port: int = 8388,
                 listen: tuple[str, ...] = ("::",)):
        super().__init__(peer, endpoint, port)
        self.password = base64.b64encode(secrets.token_bytes(24)).decode()
        path = self._put(f"sing-box-{peer.name}-{port}.json", json.dumps({
            "inbounds": [{"type": "shadowsocks", "listen": one, "listen_port": port,
                          "method": METHOD, "password": self.password} for one in listen],
            "outbounds": [{"type": "direct"}]}))
        self.process = peer.spawn([SING_BOX, "run", "-c", path, "--disable-color"])
        self.process.wait_line("sing-box started")

    @property
    def secrets(self) -> list[str]:
        return [self.password]

    def profile(self, dns: str = "203.0.113.9", host: str | None = None, **members) -> str:
        """A client profile; its tunnel asks `dns` for names; `members` join the root."""
        return json.dumps({
            "dns": {"servers": [{"type": "udp", "tag": "remote", "server": dns}]},
            "inbounds": [{"type": "tun", "address": ["10.7.0.1/30"], "auto_route": True}],
            "outbounds": [{"type": "shadowsocks", "tag": "proxy", "server": host or self.endpoint,
                           "server_port": self.port, "method": METHOD, "password": self.password}],
            **members})
