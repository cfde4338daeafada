# SPDX-License-Identifier: Apache-2.0
"""A machine with a kill switch whose programs send all the time, and a far side that counts what gets out."""

import math
import time
from dataclasses import dataclass, field

import attempts
from attempts import ALL, Attempts
from engine_steps import PROGRAMS
from leak_wire import FORBIDDEN, SERVERS, Closed, Packet, Wire, closed_times
from quorvex_world import SingBoxServer, TunnelServer, engines
from tunnel_steps import IP, Machine, furnish

NFT = "/usr/sbin/nft"
# Where the machine is on the cable, before and after it has been moved.
ADDRESSES = (("10.99.0.1/24", "fd99::1/64"), ("10.99.0.7/24", "fd99::7/64"))
# The far side's other hosts on the cable, by the last part of their addresses.
NEIGHBOURS = (53, 54, 77, 78, 79)
# A firewall as machines have one: from here on the kernel knows which flows are established.
FIREWALL = """
table inet firewall {
  chain input {
    type filter hook input priority 0
    ct state established,related accept
  }
}
"""
TAKER = f"""
import signal, socket
taker = socket.create_server(("::", {attempts.STREAM_PORT}), family=socket.AF_INET6, backlog=4096, dualstack_ipv6=True)
signal.pause()
"""


@dataclass
class LeakMachine(Machine):
    """Everything on it sends without pause, from before the first connect to the end."""

    wire: Wire = None
    attempts: Attempts = None
    # Which of ADDRESSES it has, and how many rounds of attempts something may take to come.
    place: int = 0
    delay: int = 1
    # When somebody asked for a tunnel (True), or for the end of one.
    wishes: list[tuple[float, bool]] = field(default_factory=list)

    def server(self, kind: type[TunnelServer]) -> TunnelServer:
        """The server of this engine, started at the first need."""
        servers = self.world.tunnels
        if kind not in servers:
            servers[kind] = start_server(self.world, kind)
        return servers[kind]

    def use(self, kind: type[TunnelServer]) -> None:
        self.world.tunnel = self.server(kind)

    def engine_pids(self) -> list[int]:
        engine = self.world.tunnel.engine
        # A process that is about to end has no words any more.
        words = [(process["pid"], process["argv"]) for process in self.world.processes() if process["argv"]]
        if engine == "WireGuard":
            return [pid for pid, argv in words if "wireguard-go" in argv[0] and argv[-1] == "quorvexvpn"]
        return [pid for pid, argv in words if argv[0] == PROGRAMS[engine]]

    def signal_engine(self, name: str) -> None:
        pids = self.engine_pids()
        assert pids, "there is no engine"
        self.world.run(["/bin/kill", f"-{name}", *map(str, pids)])

    def rounds(self, count: int = 4) -> None:
        """Lets this many whole rounds of attempts pass."""
        before = len(self.attempts.rounds())
        enough = lambda: len(self.attempts.rounds()) > before + count
        self.world.poll(enough, what="rounds of attempts")

    def await_all(self, timeout: float = 5) -> None:
        """Every attempt gets out: the network is the machine's own, and the capture sees it."""
        since, missing = time.time(), self.attempts.restless
        deadline = time.monotonic() + timeout
        while missing and time.monotonic() < deadline:
            self.rounds(1)
            missing = self.attempts.restless - self.wire.seen_since(since)
        assert not missing, f"not seen on the wire: {sorted(missing)}"

    def wish(self, tunnel: bool) -> None:
        self.wishes.append((time.time(), tunnel))

    def connect(self, *words, **more) -> None:
        self.wish(True)
        super().connect(*words, **more)

    def disconnect(self) -> None:
        self.wish(False)
        super().disconnect()

    def stop_service(self) -> None:
        self.wish(False)
        self.service.stop()

    def restart(self) -> None:
        """Another run of the service, as systemd starts it after the end of one."""
        self.wish(False)
        self.service = self.world.start_service()

    def move(self) -> None:
        """The cable is pulled, and comes back with other addresses of ours."""
        self.place = 1 - self.place
        old, new = ADDRESSES[1 - self.place], ADDRESSES[self.place]
        device = ["dev", attempts.DEVICE]
        self.world.run([IP, "link", "set", attempts.DEVICE, "down"])
        self.rounds(2)
        self.world.run([IP, "address", "del", old[0], *device])
        self.world.run([IP, "address", "add", new[0], *device])
        self.world.run([IP, "link", "set", attempts.DEVICE, "up"])
        self.world.run([IP, "address", "add", new[1], *device, "nodad"])
        for gateway in ("10.99.0.2", "fd99::2"):
            self.world.run([IP, "route", "add", "default", "via", gateway, *device, "metric", "100"])

    def leaks(self) -> list[Packet]:
        """What got out while the table was there."""
        times = closed_times(self.world)
        return [packet for packet in self.wire.packets() if any(one.holds(packet.time) for one in times)]

    def opened_unasked(self) -> list[Closed]:
        """Times that ended although nobody had asked for anything since the connect that began them."""
        def was_asked(one: Closed) -> bool:
            begun = max(when for when, tunnel in self.wishes if tunnel and when <= one.loading)
            return any(begun < when <= one.end for when, _ in self.wishes)
        return [one for one in closed_times(self.world) if one.end < math.inf and not was_asked(one)]

    def closed_rounds(self) -> int:
        """Rounds of attempts that began and ended while the table was there."""
        begins = self.attempts.rounds()
        times = closed_times(self.world)
        return sum(any(one.holds(begin) and one.holds(end) for one in times)
                   for begin, end in zip(begins, begins[1:]))


def start_server(world, kind: type[TunnelServer]) -> TunnelServer:
    engines.install(world, kind.kit)
    several = {"listen": (*SERVERS, "fd99::2")} if kind is SingBoxServer else {}
    return kind(world.server, **several)


def furnish_far_side(world) -> None:
    """Whole networks behind the gateway, hosts on the cable, and what answers and asks there."""
    server = world.server
    server.run([IP, "route", "add", "local", attempts.FAR_NET4, "dev", "lo"])
    server.run([IP, "-6", "route", "add", "local", attempts.FAR_NET6, "dev", "lo"])
    for host in (*(f"10.99.0.{number}/24" for number in NEIGHBOURS), *(f"fd99::{number}/64" for number in NEIGHBOURS)):
        server.add_address(host, device="phys0-peer")
    server.spawn(["/usr/bin/python3", "-I", "-c", TAKER])
    for address, length in (("203.0.113.25", 32), ("2001:db8:113::25", 128)):
        server.add_address(f"{address}/{length}")
        server.udp_echo(address, attempts.ECHO_PORT)
    for address, _ in ADDRESSES:
        server.spawn(["/usr/bin/ping", "-q", "-i", "0.05", "-I", attempts.ASKER, address.partition("/")[0]])


def plant_hole(world, edit: str) -> None:
    """A stand-in for nft that loads another table than it is told, changed by this command of sed's."""
    world.stand_in(NFT).on("-f", "-", shell=f"/usr/bin/sed '{edit}' | /media/sbin/nft -f -")


def leak_machine(world, kind: type[TunnelServer], expression: str = FORBIDDEN, kinds=ALL, recording=True,
                 pause: float = 0.001) -> LeakMachine:
    """Sending already, and every attempt seen on the wire: without that a test could see no leak either."""
    several = {"listen": (*SERVERS, "fd99::2")} if kind is SingBoxServer else {}
    furnish(world, kind, **several)
    world.tunnels = {kind: world.tunnel}
    furnish_far_side(world)
    world.run(["/media/sbin/nft", "-f", "-"], input=FIREWALL)
    if recording:
        world.recorder(NFT)
    machine = LeakMachine(world, world.start_service(), world.client("alice"), wire=Wire(world, expression),
                          attempts=Attempts(world, kinds, pause=pause))
    machine.await_all()
    return machine
