# SPDX-License-Identifier: Apache-2.0
"""What the tunnel tests share: the far side, one machine with its service and user, and what the wire may show."""

import re
from dataclasses import dataclass
from pathlib import Path

from quorvex_world import Client, Service, TunnelServer, WireGuardServer, engines

# The far server answers on these. Without a tunnel it sees the client's address on the cable.
FAR4, FAR6 = "203.0.113.9", "2001:db8:113::9"
DIRECT4, DIRECT6 = "10.99.0.1", "fd99::1"
TUNNEL4, TUNNEL6 = "10.8.0.2", "fd08::2"
SERVER = "10.99.0.2.51820"
# The server's machine has one more address on the cable.
SECOND_ADDRESS = "10.99.0.3"
# One that only the gateway leads to, so that an engine may need a route of its own to it.
BEHIND_GATEWAY = "10.88.0.2"

IP = "/usr/bin/ip"
CONFIG = "/run/quorvexvpn/quorvexvpn.conf"
REPAIR_REQUIRED = "; cleanup repair required"
# The private directory is made at the first connect and stays, empty.
FIRST_CONNECT_LEAVES = "runtime_files: +drwx------ quorvexvpn"

# What neighbours say to each other on any cable; ND and MLD are ICMPv6 types of their own.
LINK_NOISE = re.compile(r"ARP, |ICMP6, (neighbor|router) |HBH ICMP6, multicast listener ")
DATAGRAM = re.compile(r"IP6? (\S+) > (\S+): UDP, length \d+")


def furnish(world, kind: type[TunnelServer] = WireGuardServer, **options) -> None:
    """Real tools, and across a cable one engine's server before web and echo servers of both families."""
    world.real_tools()
    engines.install(world, kind.kit)
    server = world.server = world.peer("server")
    world.link(server, f"{DIRECT4}/24", "10.99.0.2/24", v6=(f"{DIRECT6}/64", "fd99::2/64"))
    # Link-local addresses come and settle by themselves for a second or two, which would pass for a change.
    world.run([IP, "-6", "address", "flush", "dev", "phys0", "scope", "link"])
    server.run([IP, "-6", "address", "flush", "dev", "phys0-peer", "scope", "link"])
    server.add_address(f"{SECOND_ADDRESS}/24", device="phys0-peer")
    server.add_address(f"{BEHIND_GATEWAY}/32")
    for address, length in ((FAR4, 32), (FAR6, 128)):
        server.add_address(f"{address}/{length}")
        server.http_server(address)
        server.udp_echo(address)
    world.tunnel = kind(server, **options)


def strangers(packets: list[str], server: str = SERVER) -> list[str]:
    """The packets that belong neither to the tunnel's own flow to the server nor to the cable's neighbours."""
    return [line for line in packets if not LINK_NOISE.search(line) and not is_flow(line, server)]


def is_flow(line: str, server: str = SERVER) -> bool:
    datagram = DATAGRAM.match(line)
    return bool(datagram) and server in datagram.groups()


@dataclass
class Seen:
    """The client's address as the far server saw it, by kind of traffic; None: no answer."""

    http: str | None
    udp: str | None
    ping: bool


def nothing() -> Seen:
    return Seen(None, None, False)


def all_as(address: str) -> Seen:
    return Seen(address, address, True)


@dataclass
class Machine:
    """A client machine: its world, the service running in it and alice, who may ask for tunnels."""

    world: object
    service: Service
    alice: Client

    @property
    def wireguard(self) -> WireGuardServer:
        return self.world.tunnel

    def connect(self, profile: str | None = None, kill_switch: bool = False, name: str = "home",
                through: TunnelServer | None = None) -> None:
        server = through or self.world.tunnel
        self.alice.mark()
        self.alice.connect(name, server.protocol, profile or server.profile(), kill_switch=kill_switch)
        self.alice.wait_log(f"{server.engine} tunnel connected.")

    def disconnect(self) -> None:
        self.alice.mark()
        self.alice.call("Disconnect")
        self.alice.wait_log("VPN tunnel disconnected.")

    def snapshot(self) -> dict:
        return self.alice.call("GetConnectionSnapshot")

    def summary(self) -> str:
        return self.alice.call("GetRuntimeInfo")["summary"]

    def traffic(self, address: str, timeout: float = 2) -> Seen:
        """One exchange of each kind with the far server."""
        host = f"[{address}]" if ":" in address else address
        reply = self.world.http_get(f"http://{host}/", timeout=timeout)
        echo = self.world.udp_exchange(address, 7, timeout=timeout)
        ping = self.world.run(["/usr/bin/ping", "-c", "1", "-W", str(timeout), address], check=False)
        return Seen(reply.body if reply.status == 200 else None, echo.split()[0] if echo else None, ping.status == 0)

    def dns_calls(self) -> list[list[str]]:
        """What the DNS helper was asked for, without the OpenVPN clean-up that each start includes."""
        calls = [call.argv[1:] for call in self.world.calls("quorvexvpn-dns")]
        return [arguments for arguments in calls if arguments != ["revert"]]

    def files(self) -> list[str]:
        """Everything below the directories in which a service may leave something; the test's own left out."""
        found = []
        for top in ("/run", "/tmp", "/dev/shm"):
            root = self.world.path(top)
            found += [f"{top}/{entry.relative_to(root)}" for entry in root.rglob("*")]
        return sorted(name for name in found if not name.startswith(("/run/world/", "/run/netns/")))

    def processes_of(self, path: str) -> list[dict]:
        """Running processes that are started as this program."""
        return [process for process in self.world.processes() if process["argv"][:1] == [path]]

    def engines(self) -> list[int]:
        """The client's running WireGuard engines, as the world counts processes."""
        return [process["pid"] for process in self.world.processes()
                if "wireguard-go" in process["argv"][0] and process["argv"][-1] == "quorvexvpn"]


def await_idle(machine) -> None:
    """The worker publishes its result a moment before its thread ends."""
    names = lambda: machine.service.threads().values()
    machine.world.poll(lambda: not any(name.startswith("quorvex-engine") for name in names()), what="no worker")


def own_kilobytes(host_pid: int) -> int:
    """Memory that no file backs: pages of libraries change between private and shared with what else runs."""
    rollup = Path(f"/proc/{host_pid}/smaps_rollup").read_text()
    return int(re.search(r"^Anonymous: +(\d+) kB", rollup, re.M).group(1))
