# SPDX-License-Identifier: Apache-2.0
"""A real Xray server at a peer."""

import json
import uuid

from .engines import XRAY
from .peers import Peer
from .tunnel_server import TunnelServer


class XrayServer(TunnelServer):
    """VLESS over plain TCP by Xray at `peer`, on all of the peer's addresses.

    What it forwards leaves from its own machine, so the far side sees that machine's address. Its
    client starts without TLS only towards private addresses and names that end in .test.
    """

    protocol, engine = "xray", "Xray"
    kit = engine
    interface, config = "quorvex-xray0", "/run/quorvexvpn/xray.json"
    seen_as4, seen_as6 = "203.0.113.9", "2001:db8:113::9"
    # The TUN device answers for everybody.
    carries_ping = False

    def __init__(self, peer: Peer, endpoint: str = "10.99.0.2", port: int = 8390):
        super().__init__(peer, endpoint, port)
        self.user = str(uuid.uuid4())
        path = self._put(f"xray-{peer.name}-{port}.json", json.dumps({
            "inbounds": [{"listen": "::", "port": port, "protocol": "vless",
                          "settings": {"clients": [{"id": self.user}], "decryption": "none"}}],
            # Without the rule it would forward nothing to private addresses.
            "outbounds": [{"protocol": "freedom",
                           "settings": {"finalRules": [{"action": "allow"}]}}]}))
        self.process = peer.spawn([XRAY, "run", "-config", path])
        self.process.wait_line(" started")

    @property
    def secrets(self) -> list[str]:
        return [self.user]

    def profile(self, host: str | None = None, **members) -> str:
        """A client profile; `members` join the root."""
        server = {"address": host or self.endpoint, "port": self.port,
                  "users": [{"id": self.user, "encryption": "none"}]}
        return json.dumps({
            "inbounds": [{"protocol": "tun", "port": 0, "settings": {"mtu": 1500}}],
            "outbounds": [{"protocol": "vless", "tag": "proxy", "settings": {"vnext": [server]}}],
            **members})
