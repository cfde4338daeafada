# SPDX-License-Identifier: Apache-2.0
"""Somebody else's tunnels, proxies, rules and tables on the same machine, alike to the service's own as can be."""

import json

from quorvex_world import OpenVpnServer, SingBoxServer, TunnelServer, XrayServer, engines
from quorvex_world.amnezia import INSTALLED

FOLDER = "/run/somebody"
NFT, IP = "/media/sbin/nft", "/media/bin/ip"
PROXY = "http://127.0.0.1:1080"
PROXY_PORT, XRAY_PORT = 1080, 1081

SING_BOX_TUN = {
    "inbounds": [{"type": "tun", "interface_name": "other0", "address": ["172.20.0.1/30", "fd20::1/126"],
                  "auto_route": True, "iproute2_table_index": 2122, "iproute2_rule_index": 9500,
                  "route_address": ["198.51.100.0/25", "2001:db8:51::/64"]}],
    "outbounds": [{"type": "direct"}]}
SING_BOX_PROXY = {"inbounds": [{"type": "mixed", "listen": "127.0.0.1", "listen_port": PROXY_PORT}],
                  "outbounds": [{"type": "direct"}]}
XRAY_PROXY = {"inbounds": [{"listen": "127.0.0.1", "port": XRAY_PORT, "protocol": "socks"}],
              "outbounds": [{"protocol": "freedom"}]}
# Two machines that trust each other, without keys: this one has a route of its own past every tunnel.
OPENVPN = """dev {device}
dev-type tun
ifconfig {ours} {theirs}
remote {host} {port}
lport {local}
proto udp
ping 1
cipher none
auth none
"""
OPENVPN_HERE = OPENVPN.format(device="other-tun", ours="10.67.0.1", theirs="10.67.0.2", host="10.99.0.2", port=5999,
                              local=5998) + f"""route 198.51.100.200 255.255.255.255 10.99.0.2
writepid /run/openvpn/other.pid
"""
OPENVPN_THERE = OPENVPN.format(device="other-tun", ours="10.67.0.2", theirs="10.67.0.1", host="10.99.0.1", port=5998,
                               local=5999)
WIREGUARD = """[Interface]
PrivateKey = {private}
Address = 10.66.0.1/24, fd66::1/64
ListenPort = 51999
FwMark = 0x7777
Table = 7777
[Peer]
PublicKey = {public}
AllowedIPs = 10.66.0.0/16, fd66::/64
Endpoint = 10.99.0.2:51998
"""
TABLES = ("inet bystander", "inet sing-box-other", "inet quorvexvpn-other", "ip wg-quick-other",
          "ip6 wg-quick-quorvexvpn2")
TABLE = """
table {name} {{
  chain output {{
    type filter hook output priority 10
    counter
  }}
}}
"""
# Before, between and after the numbers that the engines use, and with the forms that they have.
RULES = """
rule add pref 100 from 198.51.100.201 lookup 300
rule add pref 8999 to 198.51.100.202 lookup 300
rule add pref 9011 to 198.51.100.202 lookup 300
rule add pref 9100 from 198.51.100.203 lookup 300
rule add pref 31000 not fwmark 1280 lookup 1280
rule add pref 32000 not fwmark 0x7777 to 10.66.0.0/16 lookup 7777
route add 198.51.100.0/24 via 10.99.0.2 dev phys0 table 300
route add 198.51.100.204 via 10.99.0.2 dev phys0
"""
RULES6 = """
rule add pref 100 from 2001:db8:77::1 lookup 300
rule add pref 9100 from 2001:db8:77::2 lookup 300
rule add pref 31000 not fwmark 1280 lookup 1280
rule add pref 32000 not fwmark 0x7777 to fd66::/64 lookup 7777
route add 2001:db8:77::/64 via fd99::2 dev phys0 table 300
"""
# Every sing-box takes these for its own and removes them at its start; where no sing-box of ours was, they stay.
LIKE_SING_BOX = """
rule add pref 9005 from 198.51.100.205 lookup 300
rule add pref 32768 from 198.51.100.206 lookup 300
"""
SING_BOX_TABLE = "inet sing-box"


class Bystander:
    """Everything of it is there when it has settled; `check` says whether it still does what it did.

    Of the engine under test it also runs the very program that the service runs, on a file of its own, and a program
    that is something else but was given the names of the service's file and interface.
    """

    def __init__(self, world, kind: type[TunnelServer]):
        self._world = world
        self._kind = kind
        self._processes = []
        self._openvpn = self._start_openvpn()
        self._start_sing_box()
        if kind is XrayServer:
            self._start_xray()
        self._start_wireguard()
        self._run(["/usr/bin/python3", "-c", "import signal; signal.pause()", "run", "-c", kind.config, kind.interface])
        alike = kind is not SingBoxServer
        names = [*TABLES, SING_BOX_TABLE] if alike else TABLES
        world.run([NFT, "-f", "-"], input="".join(TABLE.format(name=name) for name in names))
        world.run([IP, "-batch", "-"], input=RULES + (LIKE_SING_BOX if alike else ""))
        world.run([IP, "-6", "-batch", "-"], input=RULES6)
        self._daemons: list[int] = []

    def settle(self) -> None:
        """The two OpenVPNs look for each other once a second."""
        self._openvpn.wait_line("Initialization Sequence Completed")
        self._daemons = self._daemons_now()

    def check(self) -> None:
        assert all(process.alive for process in self._processes)
        assert self._daemons_now() == self._daemons
        through = self._world.run(["/media/bin/curl", "-s", "-m", "5", "-x", PROXY, "http://203.0.113.9/"]).stdout
        assert through, "the proxy does not answer"

    def _daemons_now(self) -> list[int]:
        return [one["pid"] for one in self._world.processes() if one["argv"][-1:] in (["other"], ["theirs"])]

    def _wg(self, *words: str, **more) -> str:
        return self._world.run(["/media/bin/wg", *words], **more).stdout.strip()

    def _run(self, argv: list[str]):
        process = self._world.spawn(argv, listed=True)
        self._processes.append(process)
        return process

    def _put(self, name: str, text: str) -> str:
        self._world.put_file(f"{FOLDER}/{name}", text)
        return f"{FOLDER}/{name}"

    def _start_openvpn(self):
        there = self._put("openvpn-there.conf", OPENVPN_THERE)
        self._world.server.spawn(["/media/sbin/openvpn", "--config", there])
        self._world.path("/run/openvpn").mkdir()
        program = "/usr/sbin/openvpn" if self._kind is OpenVpnServer else "/media/sbin/openvpn"
        return self._run([program, "--config", self._put("openvpn.conf", OPENVPN_HERE)])

    def _start_sing_box(self) -> None:
        own = "/usr/local/bin/sing-box"
        self._world.put_file(own, engines.SING_BOX.read_bytes(), mode=0o755)
        shared = f"{INSTALLED}/sing-box" if self._kind is SingBoxServer else own
        for program, name, text in ((own, "tun.json", SING_BOX_TUN), (shared, "proxy.json", SING_BOX_PROXY)):
            process = self._run([program, "run", "-c", self._put(name, json.dumps(text)), "--disable-color"])
            process.wait_line("sing-box started")

    def _start_xray(self) -> None:
        """By the service's own program, which wants to be run in its directory."""
        file = self._put("xray.json", json.dumps(XRAY_PROXY))
        process = self._run(["/bin/sh", "-c", f"cd {INSTALLED} && exec ./xray run -config {file}"])
        process.wait_line(" started")

    def _start_wireguard(self) -> None:
        private, peer = self._wg("genkey"), self._wg("genkey")
        text = WIREGUARD.format(private=private, public=self._wg("pubkey", input=peer + "\n"))
        self._world.put_file("/etc/wireguard/other.conf", text, mode=0o600)
        self._world.run(["/usr/bin/wg-quick", "up", "other"])
        if self._kind.kit == "AmneziaWG":
            self._world.run([f"{INSTALLED}/amneziawg-go", "theirs"])
