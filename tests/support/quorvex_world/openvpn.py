# SPDX-License-Identifier: Apache-2.0
"""A real OpenVPN server at a peer, with certificates made by the real openssl."""

from .certificates import authority
from .peers import Peer
from .tunnel_server import TunnelServer

PROGRAM = "/media/sbin/openvpn"
SERVER = """dev tunsrv
dev-type tun
topology subnet
server 10.9.0.0 255.255.255.0
server-ipv6 fd09::/64
proto {proto}
port {port}
{multihome}dh none
keepalive 2 8
push "redirect-gateway def1 ipv6"
push "dhcp-option DNS 10.9.0.1"
"""
# Over UDP, each client is answered from the address that it chose.
TRANSPORTS = {"udp": {"proto": "udp6", "multihome": "multihome\n"},
              "tcp": {"proto": "tcp6-server", "multihome": ""}}
CLIENT = """client
dev tun
{remotes}
nobind
remote-cert-tls server
connect-retry 1 2
server-poll-timeout 3
"""


def block(name: str, text: str) -> str:
    return f"<{name}>\n{text.strip()}\n</{name}>\n" if text else ""


class OpenVpnServer(TunnelServer):
    """Debian's openvpn at `peer`, address 10.9.0.1; answers on all of the peer's addresses."""

    protocol, engine = "openVpn", "OpenVPN"
    kit = engine
    interface, config = "tun-quorvexvpn", "/run/quorvexvpn/openvpn.ovpn"
    seen_as4, seen_as6 = "10.9.0.2", "fd09::1000"
    carries_ping = True

    def __init__(self, peer: Peer, endpoint: str = "10.99.0.2", port: int = 1194,
                 transport: str = "udp", tls_crypt: bool = False):
        super().__init__(peer, endpoint, port)
        self.transport = transport
        self.tls_crypt = self._static_key() if tls_crypt else ""
        self._start()

    @property
    def secrets(self) -> list[str]:
        """The middle line, where most of the number is, of the client's key and of the shared one."""
        key = authority().client.key.splitlines()
        shared = self.tls_crypt.splitlines()
        return [lines[len(lines) // 2] for lines in (key, shared) if lines]

    def profile(self, more_hosts: tuple[str, ...] = (), lines: str = "",
                host: str | None = None) -> str:
        """A client profile; more hosts are more `remote` lines, `lines` more directives."""
        hosts = [host or self.endpoint, *more_hosts]
        remotes = "\n".join(
            f"remote {one} {self.port} {self._client_transport(one)}" for one in hosts)
        known = authority()
        return "".join([
            CLIENT.format(remotes=remotes), lines, block("ca", known.certificate),
            block("cert", known.client.certificate), block("key", known.client.key),
            block("tls-crypt", self.tls_crypt)])

    def _client_transport(self, host: str) -> str:
        """A number that is no IPv4 address is looked for in the IPv6 family alone."""
        return f"{self.transport}6" if ":" in host else self.transport

    def _start(self) -> None:
        known = authority()
        text = SERVER.format(port=self.port, **TRANSPORTS[self.transport])
        text += block("ca", known.certificate) + block("cert", known.server.certificate)
        text += block("key", known.server.key) + block("tls-crypt", self.tls_crypt)
        path = self._put(f"openvpn-{self.peer.name}-{self.port}.conf", text)
        self.process = self.peer.spawn([PROGRAM, "--config", path])
        self.process.wait_line("Initialization Sequence Completed")

    def _static_key(self) -> str:
        """Without the comment in which the tool says what it made."""
        made = self.peer.run([PROGRAM, "--genkey", "secret", "/dev/stdout"]).stdout
        return made[made.index("-----BEGIN"):]
