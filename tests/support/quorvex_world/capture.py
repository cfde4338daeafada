# SPDX-License-Identifier: Apache-2.0
"""A real tcpdump on one device, of which a test can know that nothing is missing."""

import itertools
import signal

from .peer_services import FENCE_PORT

_tags = itertools.count(1)


class Capture:
    """Listening from the moment it exists. Lines are tcpdump's, without names and times.

    Before it answers, it sends a numbered packet of its own through the device and waits to see it,
    so that every packet before it has been seen too. By default the packet leaves by the captured
    device itself; `fence_from` names another (network, device) whose packets arrive there, such
    as the other end of the cable.
    """

    def __init__(self, world, netns: str | None, device: str, expression: str, fence_from):
        self._world = world
        self._fence_from = fence_from or (netns, device)
        fence = f"udp dst port {FENCE_PORT}"
        chosen = f"({expression}) or ({fence})" if expression else ""
        self._process = world.spawn(
            ["/media/bin/tcpdump", "-i", device, "--immediate-mode", "-l", "-n", "-t", "-s", "256",
             *chosen.split()], netns=netns)
        self._process.wait_line("listening on")
        self._head = len(self._process.lines)

    def packets(self) -> list[str]:
        """All packets so far, one line each."""
        self._fence()
        return self._lines()

    def wait_packet(self, text: str, timeout: float = 10) -> str:
        return self._process.wait_line(text, timeout)

    def stop(self) -> list[str]:
        lines = self.packets()
        self._process.signal(signal.SIGINT)
        self._process.wait()
        return lines

    def _lines(self) -> list[str]:
        return [line for line in self._process.lines[self._head:]
                if f".{FENCE_PORT}:" not in line and " > " in line]

    def _fence(self) -> None:
        tag = next(_tags) % 1000 + 1
        netns, device = self._fence_from
        conversation, _ = self._world.call_function("fence", netns=netns, device=device, tag=tag)
        with conversation:
            if conversation.recv(5) != b"ready":
                raise RuntimeError(f"no fence could be sent through {device}")
        self._process.wait_line(
            lambda line: f".{FENCE_PORT}: UDP, length {tag}" in line and line.endswith(str(tag)))
