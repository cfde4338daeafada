# SPDX-License-Identifier: Apache-2.0
"""A booted machine with the package installed, and real servers of all engines across a cable.

The servers live in a test world, as those of the tunnel tests do; the cable ends in the container.
"""

import difflib
import re
import time
from pathlib import Path

from container import Container
from quorvex_world import OpenVpnServer, SingBoxServer, WireGuardServer, World, XrayServer, engines

UNIT = "quorvexvpn.service"
NAME = "org.quorvexvpn.Service1"
OBJECT = "/org/quorvexvpn/Service1"
PACKAGE = "quorvexvpn-service"
REPOSITORY = Path(__file__).resolve().parents[2]
RULES = "/etc/polkit-1/rules.d/50-test.rules"
SERVERS = {"WireGuard": WireGuardServer, "OpenVPN": OpenVpnServer, "Sing-box": SingBoxServer, "Xray": XrayServer}
# One name with another answer at each place: who was asked is known by the answer.
HOST = "where.test"
OUTSIDE = "198.51.100.1"
NAME_SERVERS = {"WireGuard": ("10.8.0.1", "198.51.100.8"), "OpenVPN": ("10.9.0.1", "198.51.100.9")}
CABLE = [
    "address add 10.99.0.1/24 dev phys0", "address add fd99::1/64 dev phys0 nodad", "link set phys0 up",
    "route add default via 10.99.0.2 dev phys0 metric 100", "route add default via fd99::2 dev phys0 metric 100"]
# Everything that a tunnel, its engine, its name servers and its package change on a machine.
PICTURE = """
ip -o link; ip -o address; ip -4 route show table all | sort; ip -6 route show table all | sort
ip -4 rule; ip -6 rule; nft list ruleset
echo name servers:; resolvectl dns; resolvectl domain; resolvectl default-route; cat /etc/resolv.conf
echo files:; find /run/quorvexvpn /run/quorvexvpn-ground /run/wireguard /run/amneziawg /run/openvpn -printf '%M %u %p\\n' 2>/dev/null |
  grep -v '^d.* /run/[^/]*$'
echo processes:; ps -e -o comm= | grep -E 'quorvex|wg-quick|wireguard|sing-box|xray|openvpn' | grep -v quorvexvpn-serv
true
"""
VOLATILE = [re.compile(text) for text in (
    r" *valid_lft \\S+ preferred_lft \\S+", r" expires \\S+", r"packets \d+ bytes \d+", r"^\d+: ", r"^Link \d+")]


class SystemMachine:
    """The container with what a user does on it, and the far side."""

    def __init__(self, world: World, container: Container):
        self.world = world
        self.container = container
        self.run = container.run
        self.output = container.output
        self.server = world.peer("server")
        self.tunnels: dict = {}
        self.first_version = ""
        self._lay_cable()
        self._furnish_server()

    def _lay_cable(self) -> None:
        self.world.link(self.server, "10.99.0.1/24", "10.99.0.2/24", v6=("fd99::1/64", "fd99::2/64"))
        self.container.take_interface(self.world.init_pid, "phys0", CABLE)

    def _furnish_server(self) -> None:
        for address in ("203.0.113.9/32", "2001:db8:113::9/128"):
            self.server.add_address(address)
        self.server.http_server("203.0.113.9", 80)
        self.server.http_server("2001:db8:113::9", 80)
        self.server.udp_echo("203.0.113.9", 7)
        self.server.dns_server("10.99.0.2", {HOST: [OUTSIDE]})
        for engine, kind in SERVERS.items():
            self.tunnels[engine] = kind(self.server)
        for address, answer in NAME_SERVERS.values():
            self.server.dns_server(address, {HOST: [answer]})

    # The package and what the client brings

    def install(self, package: Path) -> None:
        self.container.put_file(f"/root/{package.name}", package.read_bytes())
        self.apt(f"install --allow-downgrades /root/{package.name}")

    def apt(self, words: str) -> str:
        return self.output(f"DEBIAN_FRONTEND=noninteractive apt-get -y -q --no-install-recommends {words}")

    def installed_version(self) -> str:
        """Empty when the package is not installed."""
        done = self.run(["dpkg-query", "-W", "-f=${db:Status-Status} ${Version}", PACKAGE], check=False)
        status, _, version = done.stdout.partition(" ")
        return version if status == "installed" else ""

    def furnish_client(self) -> None:
        """What the desktop client's own package would bring: the engines that Debian lacks, and the DNS helper."""
        self.run("mkdir -p /usr/libexec/quorvexvpn && rm -rf /usr/libexec/quorvexvpn/*")
        for engine in ("Sing-box", "Xray"):
            engines.install(self.container, engine)
        # The unit runs nothing from outside /usr.
        library = "/usr/libexec/quorvexvpn/xray-library"
        self.run(f"cp -rL {library} {library}.copy && rm {library} && mv {library}.copy {library}")
        helper = (REPOSITORY / "examples/quorvexvpn-dns").read_bytes()
        self.container.put_file("/usr/libexec/quorvexvpn-dns", helper, mode=0o755)

    def use_name_server(self) -> None:
        self.container.put_file("/etc/systemd/resolved.conf.d/test.conf",
                                "[Resolve]\nDNS=10.99.0.2\nLLMNR=no\nMulticastDNS=no\nCache=no\n")
        self.run("systemctl restart systemd-resolved")

    def allow(self, user: str) -> None:
        """A rule of the administrator's; polkit picks it up by itself."""
        self.container.put_file(RULES, 'polkit.addRule(function(action, subject) { if (action.id == '
                                f'"org.quorvexvpn.manage" && subject.user == "{user}") return "yes"; }});\n')
        self.container.wait(lambda: self.ask("RequestVpnPermission", user=user).strip() == "(true,)", "the new rule")

    # The user

    def ask(self, method: str, *arguments: str, user: str = "alice", check: bool = True) -> str:
        return self.call(method, *arguments, user=user, check=check).stdout

    def call(self, method: str, *arguments: str, user: str = "alice", check: bool = True):
        return self.run(["gdbus", "call", "--system", "--timeout", "60", "--dest", NAME, "--object-path", OBJECT,
                         "--method", f"{NAME}.{method}", *arguments], user=user, check=check)

    def stage(self) -> str:
        return self._text_of("stage", self.ask("GetConnectionSnapshot"))

    def connect(self, engine: str, kill_switch: bool = True) -> None:
        """Returns when traffic takes the tunnel and, if asked for, the kill switch is there."""
        tunnel = self.tunnels[engine]
        self.run(["quorvexvpnctl", "connect", "-", "--protocol", tunnel.protocol,
                  *(["--kill-switch"] if kill_switch else [])], user="alice", input=tunnel.profile())
        assert self.stage() == "connected"

    def disconnect(self) -> None:
        self.run(["quorvexvpnctl", "disconnect"], user="alice")
        assert self.stage() == "disconnected"

    def _text_of(self, key: str, dictionary: str) -> str:
        found = re.search(rf"'{key}': <'([^']*)'>", dictionary)
        return found.group(1) if found else ""

    # What there is to see

    def seen_from(self, host: str = "203.0.113.9", timeout: float = 10) -> str:
        """The address under which a web server on the far side sees this machine; empty without an answer."""
        return self.output(f"curl -s -g -m {timeout} http://{host}/ || true", user="alice")

    def name_answer(self) -> str:
        found = re.search(rf"{HOST}: (\S+)", self.output(f"resolvectl query --cache=no -4 {HOST} || true"))
        return found.group(1) if found else ""

    def picture(self) -> list[str]:
        lines = self.output(PICTURE).splitlines()
        for pattern in VOLATILE:
            lines = [pattern.sub("", line).rstrip() for line in lines]
        return lines

    def expect_picture(self, before: list[str], timeout: float = 10) -> None:
        """The kernel and resolved may take a moment; nothing that differs may stay."""
        deadline = time.monotonic() + timeout
        while (now := self.picture()) != before:
            if time.monotonic() > deadline:
                changes = list(difflib.unified_diff(before, now, "before", "after", lineterm="", n=0))
                raise AssertionError("\n".join([*changes, self.container.journal()]))
            time.sleep(0.1)

    def service_pid(self) -> int:
        return int(self.container.unit_property("MainPID"))
