# SPDX-License-Identifier: Apache-2.0
"""A real WireGuard server at a peer, with keys made by the real tool."""

import time

from .peers import IP, Peer
from .tunnel_server import TunnelServer

WG = "/media/bin/wg"
DEVICE = "wgs"


class WireGuardServer(TunnelServer):
    """wireguard-go at `peer`, address 10.8.0.1, one client with address 10.8.0.2."""

    protocol, engine = "wireGuard", "WireGuard"
    kit = engine
    interface, config = "quorvexvpn", "/run/quorvexvpn/quorvexvpn.conf"
    seen_as4, seen_as6 = "10.8.0.2", "fd08::2"
    carries_ping = True

    def __init__(self, peer: Peer, endpoint: str = "10.99.0.2", port: int = 51820,
                 preshared: bool = True):
        super().__init__(peer, endpoint, port)
        self.server_private, self.server_public = self._key_pair()
        self.client_private, self.client_public = self._key_pair()
        self.preshared = self._wg("genpsk") if preshared else ""
        self._start()

    @property
    def secrets(self) -> list[str]:
        """What must be found nowhere but in the private file: the client's keys."""
        return [secret for secret in (self.client_private, self.preshared) if secret]

    def profile(self, dns: str | None = "10.8.0.1", allowed_ips: str = "0.0.0.0/0, ::/0",
                address: str = "10.8.0.2/32, fd08::2/128", interface: str = "",
                peer: str = "", host: str | None = None) -> str:
        """A client profile; `interface` and `peer` are further lines of the two sections."""
        named = host or self.endpoint
        server = f"[{named}]" if ":" in named else named
        lines = ["[Interface]", f"PrivateKey = {self.client_private}", f"Address = {address}"]
        lines += [f"DNS = {dns}"] if dns else []
        lines += [interface] if interface else []
        lines += ["", "[Peer]", f"PublicKey = {self.server_public}"]
        lines += [f"PresharedKey = {self.preshared}"] if self.preshared else []
        lines += [f"Endpoint = {server}:{self.port}", f"AllowedIPs = {allowed_ips}"]
        lines += [peer] if peer else []
        return "\n".join(lines) + "\n"

    def handshake_age(self) -> float | None:
        """Seconds since the client's last handshake, None before the first."""
        stamp = int(self._show("latest-handshakes").split()[1])
        return time.time() - stamp if stamp else None

    def transfer(self) -> tuple[int, int]:
        """Bytes that the server has received from and sent to the client."""
        _, received, sent = self._show("transfer").split()
        return int(received), int(sent)

    def _show(self, what: str) -> str:
        return self.peer.run([WG, "show", DEVICE, what]).stdout

    def _start(self) -> None:
        self.peer.run(["/media/bin/wireguard-go", DEVICE])
        self._hide_daemon()
        private, preshared = f"/run/world/{DEVICE}.key", f"/run/world/{DEVICE}.psk"
        self.peer.world.put_file(private, self.server_private, mode=0o600)
        self.peer.world.put_file(preshared, self.preshared, mode=0o600)
        self.peer.run([
            WG, "set", DEVICE, "listen-port", str(self.port), "private-key", private, "peer",
            self.client_public, *(["preshared-key", preshared] if self.preshared else []),
            "allowed-ips", "10.8.0.2/32,fd08::2/128"])
        self.peer.run([IP, "-batch", "-"], input="\n".join([
            f"address add 10.8.0.1/24 dev {DEVICE}",
            f"address add fd08::1/64 dev {DEVICE} nodad",
            f"link set {DEVICE} up"]))

    def _hide_daemon(self) -> None:
        """The server's engine is part of the scenery, not of what the service may leave.

        It goes into the background by starting itself anew, and shows no name in the midst of that.
        """
        world = self.peer.world
        daemons = lambda: [process["host_pid"] for process in world.processes()
                           if process["argv"][-1:] == [DEVICE]]
        for host_pid in world.poll(daemons, what="the server's engine"):
            world.hide_process(host_pid)

    def _key_pair(self) -> tuple[str, str]:
        private = self._wg("genkey")
        return private, self._wg("pubkey", input=private + "\n")

    def _wg(self, *words: str, **more) -> str:
        return self.peer.run([WG, *words], **more).stdout.strip()
