# SPDX-License-Identifier: Apache-2.0
"""What the tests of sing-box, Xray and OpenVPN share: the three, their profiles, their commands.

The engines are stand-ins throughout: these tests are about what is run, with what and when, and
what the service makes of an engine's failure. That the real engines bring tunnels up is shown
elsewhere.
"""

import json
import os
import signal
from dataclasses import dataclass

from quorvex_world import Call
from quorvex_world.procfs import is_alive
from wireguard_flow import (
    DIRECTORY, DNS_HELPER, IP, IPV4_ROUTES, IPV6_ROUTES, OPENVPN_CONFIG, OPENVPN_PID,
    REMOVE_KILL_SWITCH, REVERT_OPENVPN_DNS, SING_BOX_CONFIG, XRAY_CONFIG, Flow, Hold)

ENGINE_DIRECTORY = "/usr/libexec/quorvexvpn"
CANCELLED = "The VPN connection request was cancelled."

# They open nothing.
SECRET = "7c9e6679-7425-40de-944b-e07fc1f90ae7"
OTHER_SECRET = "Zm9yIHRlc3RzIG9ubHkgLSBub3RoaW5n"

SING_BOX_PROFILE = json.dumps({
    "dns": {"servers": [{"type": "tls", "server": "1.1.1.1"}]},
    "inbounds": [{"type": "tun", "auto_route": True}],
    "outbounds": [{"type": "vless", "tag": "proxy", "server": "203.0.113.9", "server_port": 443,
                   "uuid": SECRET, "network": OTHER_SECRET}]})
XRAY_PROFILE = json.dumps({
    "inbounds": [{"protocol": "tun"}],
    "outbounds": [{"protocol": "vless", "tag": "proxy", "settings": {"vnext": [
        {"address": "203.0.113.9", "port": 443, "users": [
            {"id": SECRET, "flow": OTHER_SECRET}]}]}}]})
OPENVPN_PROFILE = "\n".join([
    "client", "remote 203.0.113.9 1194 udp", "dev tun5", "<auth-user-pass>", SECRET, OTHER_SECRET,
    "</auth-user-pass>", "<ca>", "dev tun6", "</ca>", ""])


@dataclass(frozen=True)
class Engine:
    """One engine as the service should know it."""

    name: str
    protocol: str
    profile: str
    program: str
    config: str
    interface: str
    arguments: tuple[str, ...]
    # What it adds to the network, for the `ip` program.
    routes: tuple[str, ...]
    # The service's question after them.
    look: tuple[str, ...]
    polls: int
    not_up: str
    files: tuple[str, ...]

    @property
    def run(self) -> str:
        return " ".join((self.program, *self.arguments))

    @property
    def is_checked(self) -> bool:
        return self.name == "Sing-box"

    @property
    def launch(self) -> list[str]:
        """The commands between the clearing of the ground and the first look at the routes."""
        check = [f"{self.program} check -c {self.config}"] if self.is_checked else []
        return [*check, self.run]

    @property
    def clean_up(self) -> list[str]:
        """The commands with which its files go."""
        return [REVERT_OPENVPN_DNS] if self.name == "OpenVPN" else []

    @property
    def stop(self) -> list[str]:
        return [REMOVE_KILL_SWITCH, *self.clean_up]

    @property
    def died(self) -> str:
        return f"{self.name} stopped unexpectedly."

    @property
    def forced(self) -> str:
        return f"{self.name} required forced termination; route cleanup needs verification."

    @property
    def add_interface(self) -> str:
        """/usr/bin/ip is the program itself; the service's /usr/sbin/ip is a recorder here."""
        return (f"/usr/bin/ip link delete dev {self.interface} 2>/dev/null; "
                f"/usr/bin/ip tuntap add dev {self.interface} mode tun && "
                f"/usr/bin/ip link set {self.interface} up")

    @property
    def come_up(self) -> str:
        """What a shell does in the engine's place."""
        routes = [f"/usr/bin/ip {route}" for route in self.routes]
        pid_file = [f"echo $$ >{OPENVPN_PID}"] if OPENVPN_PID in self.files else []
        return " && ".join([*pid_file, self.add_interface, *routes])


SING_BOX = Engine(
    "Sing-box", "vless", SING_BOX_PROFILE, f"{ENGINE_DIRECTORY}/sing-box", SING_BOX_CONFIG,
    "quorvex-sbox0", ("run", "-c", SING_BOX_CONFIG, "--disable-color"),
    ("-4 route add default dev quorvex-sbox0 table 2022",),
    (f"{IP} -4 route show table 2022 default",), 20, "Sing-box exited during startup.",
    (SING_BOX_CONFIG,))
XRAY = Engine(
    "Xray", "xray", XRAY_PROFILE, f"{ENGINE_DIRECTORY}/xray", XRAY_CONFIG,
    "quorvex-xray0", ("run", "-config", XRAY_CONFIG),
    ("-4 route add default dev quorvex-xray0 metric 1",
     "-6 route add default dev quorvex-xray0 metric 1"),
    (IPV4_ROUTES, IPV6_ROUTES), 20, "Xray did not establish its TUN interface in time.",
    (XRAY_CONFIG,))
OPENVPN = Engine(
    "OpenVPN", "openVpn", OPENVPN_PROFILE, "/usr/sbin/openvpn", OPENVPN_CONFIG,
    "tun-quorvexvpn",
    ("--config", OPENVPN_CONFIG, "--script-security", "2", "--up", DNS_HELPER, "--down", DNS_HELPER,
     "--down-pre", "--auth-nocache", "--writepid", OPENVPN_PID, "--verb", "3",
     "--suppress-timestamps"),
    ("-4 route add 0.0.0.0/1 dev tun-quorvexvpn", "-4 route add 128.0.0.0/1 dev tun-quorvexvpn"),
    (IPV4_ROUTES,), 60, "OpenVPN did not establish its TUN interface in time.",
    (OPENVPN_CONFIG, OPENVPN_PID))
ENGINES = (SING_BOX, XRAY, OPENVPN)


class EngineFlow(Flow):
    """A service among recording tools and stand-ins of the three engines."""

    def __init__(self, world):
        super().__init__(world)
        for engine in ENGINES:
            self.install(engine)
        for data in ("geoip.dat", "geosite.dat"):
            world.put_file(f"{ENGINE_DIRECTORY}/{data}", b"data")

    def install(self, engine: Engine) -> None:
        """An engine that comes up at once and runs until it is told to end."""
        stand_in = self.world.stand_in(engine.program)
        self.tools[stand_in.path.rpartition("/")[2]] = stand_in
        self.behave(engine, shell=engine.come_up, hang=True)

    def behave(self, engine: Engine, **behaviour) -> None:
        """What the engine does from now on when it is run."""
        # A stand-in that has read its input has another in its place, for the program it may become.
        self._tool(engine).on(*engine.arguments[:1], read_stdin=False, **behaviour)

    def gate(self, engine: Engine, **options):
        return self._tool(engine).gate(*engine.arguments[:1], **options)

    def _tool(self, engine: Engine):
        return self.tools[engine.program.rpartition("/")[2]]

    def begin(self, engine: Engine, **options) -> None:
        self.begin_connect(engine.profile, protocol=engine.protocol, **options)

    def attempt(self, engine: Engine, **options) -> dict:
        """Connects and returns the snapshot in which that ended."""
        return self.connect(engine.profile, protocol=engine.protocol, **options)

    def up(self, engine: Engine, **options) -> Call:
        """Connects, which must succeed, forgets its commands and returns the engine's call."""
        self.connected(engine.profile, protocol=engine.protocol, **options)
        return self.running(engine)

    def files_before_recovery(self, engine: Engine) -> list[str]:
        """Begins a connect that must fail, and holds the recovery after it, which would hide what
        the start itself leaves; returns the files there are by then."""
        hold = Hold(self, "nft", number=2)
        recovery = len(self.world.calls("nft")) + 2
        self.begin(engine)
        # OpenVPN has 30 s until its last poll.
        self.world.wait_call("nft", count=recovery, timeout=60)
        hold.wait()
        files = self.files()
        hold.release()
        return files

    def wait_run(self, engine: Engine, count: int = 1) -> Call:
        return self.world.wait_call(engine.program, *engine.arguments[:1], count=count)

    def running(self, engine: Engine) -> Call:
        """The latest call that runs the engine."""
        return self.world.calls(engine.program, *engine.arguments[:1])[-1]

    def engine_lives(self, engine: Engine) -> bool:
        call = self.running(engine)
        return call.ended is None and is_alive(call.host_pid)

    def launches(self, engine: Engine) -> list[str]:
        """The commands since the last look, with repeated looks at the routes shown as one."""
        commands, look = self.commands(), list(engine.look)
        for start in range(len(commands) - 1, -1, -1):
            if commands[start:start + 2 * len(look)] == look * 2:
                del commands[start:start + len(look)]
        return commands

    def add_interface_of(self, engine: Engine) -> None:
        self.world.run(["/bin/sh", "-c", engine.add_interface])

    def remove_interface_of(self, engine: Engine) -> None:
        self.world.run(["/usr/bin/ip", "link", "delete", "dev", engine.interface])

    def has_routes(self, engine: Engine) -> bool:
        """Whether the last of them is there."""
        family, _, _, target, *where = engine.routes[-1].split()
        table = where[where.index("table") + 1] if "table" in where else "main"
        shown = self.world.run(["/usr/bin/ip", family, "route", "show", "table", table, target],
                               check=False)
        return engine.interface in shown.stdout

    def kill_engine(self, engine: Engine, number: int = signal.SIGKILL) -> Call:
        call = self.running(engine)
        os.kill(call.host_pid, number)
        return call

    def has_kill_switch(self) -> bool:
        tables = self.world.run(["/media/sbin/nft", "list", "tables"]).stdout
        return "table inet quorvexvpn" in tables


def names(paths: tuple[str, ...]) -> list[str]:
    return sorted(path.removeprefix(DIRECTORY + "/") for path in paths)


