# SPDX-License-Identifier: Apache-2.0
"""Every way in which a program may try to send, without pause, and each with a target of its own."""

import subprocess
import tempfile
from dataclasses import dataclass
from functools import cache
from pathlib import Path

PROGRAM = "/run/world/attempts"
DEVICE = "phys0"
NEIGHBOUR4, NEIGHBOUR6 = "10.99.0.77", "fd99::77"
LINK_RESOLVER4, LINK_RESOLVER6 = "10.99.0.53", "fd99::53"
FAR_NET4, FAR_NET6 = "203.0.113.0/24", "2001:db8:113::/64"
STREAM_PORT = 7777
ECHO_PORT = 7
# Asks the client for echoes all the time; what comes back is an attempt of the kernel's own.
ASKER = "10.99.0.79"


@dataclass(frozen=True)
class Attempt:
    """`how` is what the program attempts.c calls it."""

    name: str
    how: str
    address: str
    port: int = 9

    def __str__(self) -> str:
        return f"{self.how},{self.address},{self.port}"


def far(number: int, name: str, how: str, port: int = 9) -> list[Attempt]:
    """To a host behind the gateway, in both families."""
    return [Attempt(f"{name}, IPv4", how, f"203.0.113.{number}", port),
            Attempt(f"{name}, IPv6", how, f"2001:db8:113::{number}", port)]


def near(name: str, how: str, address4: str, address6: str, port: int = 9) -> list[Attempt]:
    """To a host on the link, in both families."""
    return [Attempt(f"{name}, IPv4", how, address4, port), Attempt(f"{name}, IPv6", how, address6, port)]


# What takes the ordinary way, and so the tunnel once there is one.
ORDINARY = [
    *far(11, "TCP", "tcp", 80), *far(12, "a TCP stream", "stream", STREAM_PORT), *far(13, "UDP", "udp"),
    *far(14, "UDP in fragments", "udp+large"), *far(15, "a raw protocol", "raw"), *far(16, "an IP header", "header"),
    Attempt("an echo request, IPv4", "icmp", "203.0.113.17"), *far(53, "a public resolver", "dns", 53),
]
# What goes past the tunnel by itself and is left to the kill switch alone.
PAST_TUNNEL = [
    *far(21, "TCP bound to the device", "tcp+bound", 80), *far(22, "UDP bound to the device", "udp+bound"),
    *far(23, "a raw protocol bound to the device", "raw+bound"),
    *far(24, "a TCP stream bound to the device", "stream+bound", STREAM_PORT),
    # Somebody answers on this port, so that conntrack knows the flow.
    *far(25, "an answered UDP flow", "udp+bound", ECHO_PORT),
    *near("a neighbour over TCP", "tcp+bound", NEIGHBOUR4, NEIGHBOUR6),
    *near("a resolver on the link", "dns+bound", LINK_RESOLVER4, LINK_RESOLVER6, 53),
    *near("multicast", "udp+bound", "224.0.0.251", "ff02::fb", 5353),
    Attempt("broadcast on the link", "udp+bound", "10.99.0.255"),
    Attempt("broadcast", "udp+bound", "255.255.255.255"),
]
# Some engines take these: what the link's own routes lead to, and the marks of sing-box's and wg-quick's own sockets.
BY_ENGINE = [
    *near("a neighbour over UDP", "udp", "10.99.0.78", "fd99::78"),
    *near("a resolver on the link by the routes", "dns", "10.99.0.54", "fd99::54", 53),
    *far(31, "UDP with sing-box's mark", "udp+mark=0x2024"), *far(32, "UDP with wg-quick's mark", "udp+mark=51820"),
]
ALL = [*ORDINARY, *PAST_TUNNEL, *BY_ENGINE]
# What the kill switch does not hold: exceptions that its table names, and what never passes the hook of that table.
EXCEPTIONS = [
    Attempt("an echo request, IPv6", "icmp+bound", "2001:db8:113::41"),
    *[Attempt(f"UDP to port {port}", "udp+bound", f"203.0.113.{number}", port)
      for number, port in ((42, 67), (43, 68), (44, 546), (45, 547))],
]
BESIDE_HOOK = far(51, "a packet socket", "packet")
FORWARDED = [*far(61, "TCP of a guest", "tcp", 80), *far(62, "UDP of a guest", "udp"),
             *far(63, "a resolver of a guest's", "dns", 53)]
NAMES = {one.address: one.name for one in [*ALL, *EXCEPTIONS, *BESIDE_HOOK, *FORWARDED]}
NAMES[ASKER] = "an answer to an echo request"


@cache
def program() -> bytes:
    """The compiled attempts.c; kept in memory, so a killed test run leaves nothing behind."""
    with tempfile.TemporaryDirectory(prefix="quorvex-leaks-") as directory:
        target = Path(directory, "attempts")
        source = Path(__file__).with_name("attempts.c")
        subprocess.run(["cc", "-O2", "-static", "-s", "-o", target, source], check=True)
        return target.read_bytes()


class Attempts:
    """The running program. With the pause between two attempts, a round of ALL takes about 40 ms."""

    def __init__(self, world, kinds: list[Attempt], netns: str | None = None, device: str = DEVICE,
                 pause: float = 0.001):
        if not world.path(PROGRAM).exists():
            world.put_file(PROGRAM, program(), mode=0o755)
        # A stream that was cut off takes its time to come back, so nobody waits for it.
        self.restless = {one.name for one in kinds if one.how != "stream"}
        words = [PROGRAM, str(int(pause * 1e6)), device, *map(str, kinds)]
        self._process = world.spawn(words, netns=netns)

    def rounds(self) -> list[float]:
        """When each round so far began, in seconds since the epoch."""
        return [float(line) for line in self._process.lines]

    def stop(self) -> None:
        self._process.kill()
        self._process.wait()
