# SPDX-License-Identifier: Apache-2.0
"""What leaves the client by its cable, and the times in which nothing may: both by the kernel's clock."""

import itertools
import math
import re
import time
from dataclasses import dataclass

import attempts
from tunnel_steps import SECOND_ADDRESS

SERVERS = ("10.99.0.2", SECOND_ADDRESS)
ACTIVE = "Kill switch active for this tunnel."
# What may leave a machine whose kill switch is on; everything else counts.
FORBIDDEN = " and ".join([
    "not arp", "not icmp6", "not ( ip6[6] = 0 and ip6[40] = 58 )",
    "not ( udp and ( dst port 67 or dst port 68 or dst port 546 or dst port 547 ) )",
    *[f"not dst host {server}" for server in SERVERS]])
# The same with the exceptions of the table's.
NEIGHBOURS_ONLY = " and ".join(["not arp", "not ( icmp6 and ip6[40] > 129 )", "not ( ip6[6] = 0 and ip6[40] = 58 )",
                                *[f"not dst host {server}" for server in SERVERS]])
PACKET = re.compile(r"\d+\.\d+ ")
TARGET = re.compile(r"[\d.]+ IP6? \S+ > (\S+?):? ")
FENCE = re.compile(r"\.40999: UDP, length (\d+)$")

_tags = itertools.count(1)


@dataclass(frozen=True)
class Packet:
    time: float
    line: str

    @property
    def target(self) -> str:
        """The attempt that it is, or the line itself when it is none of ours."""
        match = TARGET.match(self.line)
        address = match.group(1) if match else ""
        names = attempts.NAMES
        return names.get(address) or names.get(address.rpartition(".")[0]) or self.line


class Wire:
    """What leaves the client by its cable, with the time at which it came out at the other end."""

    def __init__(self, world, expression: str = FORBIDDEN):
        self._world = world
        self._process = world.server.spawn(
            ["/media/bin/tcpdump", "-i", "phys0-peer", "-Q", "in", "--immediate-mode", "-l", "-n", "-tt", "-s", "96",
             "-B", "8192", expression])
        self._process.wait_line("listening on")
        self._head = len(self._process.lines)

    def packets(self) -> list[Packet]:
        """Complete for everything that was sent before the call, while the cable is up."""
        self._fence()
        return [Packet(float(line.split()[0]), line) for line in self._process.lines[self._head:]
                if PACKET.match(line) and not FENCE.search(line)]

    def forget(self) -> None:
        """What has been judged is not looked at again."""
        self._fence()
        self._head = len(self._process.lines)

    def seen_since(self, moment: float) -> set[str]:
        return {packet.target for packet in self.packets() if packet.time >= moment}

    def _fence(self) -> None:
        """One numbered packet past routes and firewall; what was sent before it has been seen when it is."""
        tag = next(_tags) % 1000 + 1
        conversation, _ = self._world.call_function("fence", device=attempts.DEVICE, tag=tag)
        with conversation:
            assert conversation.recv(5) == b"ready", "no fence could be sent"
        self._process.wait_line(lambda line: (found := FENCE.search(line)) and int(found.group(1)) == tag)


@dataclass(frozen=True)
class Closed:
    """A time in which the table was surely there: from the end of one run of nft to the beginning of the next."""

    loading: float
    begin: float
    end: float
    ruleset: str

    def holds(self, moment: float) -> bool:
        return self.begin <= moment < self.end


def closed_times(world) -> list[Closed]:
    """In seconds since the epoch; one that has not ended yet ends at no time."""
    epoch = time.time() - time.monotonic()
    found, loaded = [], None
    for call in world.calls("nft", "-f", "-"):
        if loaded:
            found.append(Closed(loaded.began + epoch, loaded.ended + epoch, call.began + epoch, loaded.stdin))
        loaded = call if "policy drop" in call.stdin and call.ended else None
    if loaded:
        found.append(Closed(loaded.began + epoch, loaded.ended + epoch, math.inf, loaded.stdin))
    return found
