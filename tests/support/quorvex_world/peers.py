# SPDX-License-Identifier: Apache-2.0
"""Other hosts of a world: network namespaces that are linked to the client's by cables."""

import socket
from dataclasses import dataclass

from .capture import Capture
from .process import Completed, Process

IP = "/media/bin/ip"


@dataclass
class HttpReply:
    """`status` 0 means no answer; `body` is the caller's address as the server saw it."""

    status: int
    body: str


class Peer:
    """A host beside the client: its processes and files are the world's, its network is its own."""

    def __init__(self, world, name: str):
        self.world = world
        self.name = name
        world.run([IP, "netns", "add", name])
        self.run([IP, "link", "set", "lo", "up"])
        conversation, process = world.call_function("quieten_ipv6", netns=name)
        process.wait()
        conversation.close()

    def run(self, argv: list[str], **more) -> Completed:
        return self.world.run(argv, netns=self.name, **more)

    def spawn(self, argv: list[str], **more) -> Process:
        return self.world.spawn(argv, netns=self.name, **more)

    def add_address(self, address: str, device: str = "lo") -> None:
        nodad = ["nodad"] if ":" in address else []
        self.run([IP, "address", "add", address, "dev", device, *nodad])

    def http_server(self, address: str, port: int = 80) -> Process:
        return self._serve("http_server", address, port)

    def udp_echo(self, address: str, port: int = 7) -> Process:
        return self._serve("udp_echo", address, port)

    def dns_server(self, address: str, names: dict[str, list[str]],
                   silent: bool = False) -> Process:
        """Answers for these names, and that there is no other; a silent one only listens."""
        return self._serve("dns_server", address, 53, names=names, silent=silent)

    def http_get(self, url: str, timeout: float = 5) -> HttpReply:
        return http_get(self.world, url, timeout, None, self.name)

    def capture(self, device: str, expression: str = "", fence_from=None) -> Capture:
        return Capture(self.world, self.name, device, expression, fence_from)

    def _serve(self, function: str, address: str, port: int, **more) -> Process:
        conversation, process = self.world.call_function(
            function, netns=self.name, address=address, port=port, **more)
        self.world.on_exit(conversation.close)
        if conversation.recv(16) != b"ready":
            raise RuntimeError(f"{function} on {address} port {port} did not start")
        return process


def link(world, peer: Peer, ours: str, theirs: str, v6: tuple[str, str] | None, device: str,
         metric: int) -> None:
    """A cable: `device` here, `device`-peer there, and a default route through it."""
    other = f"{device}-peer"
    world.run([IP, "-batch", "-"], input="\n".join([
        f"link add {device} type veth peer name {other} netns {peer.name}",
        f"address add {ours} dev {device}",
        *([f"address add {v6[0]} dev {device} nodad"] if v6 else []),
        f"link set {device} up"]))
    peer.run([IP, "-batch", "-"], input="\n".join([
        f"address add {theirs} dev {other}",
        *([f"address add {v6[1]} dev {other} nodad"] if v6 else []),
        f"link set {other} up"]))
    routes = [theirs, *(v6[1:] if v6 else [])]
    world.run([IP, "-batch", "-"], input="\n".join(
        f"route add default via {one.split('/')[0]} dev {device} metric {metric}"
        for one in routes))


def http_get(world, url: str, timeout: float, user: str | None, netns: str | None) -> HttpReply:
    done = world.run(
        ["/media/bin/curl", "-s", "-g", "--noproxy", "*", "-m", str(timeout),
         "-w", "\n%{http_code}", url], user=user, netns=netns, check=False, timeout=timeout + 5)
    body, _, status = done.stdout.rpartition("\n")
    return HttpReply(int(status or 0), body)


def udp_exchange(world, address: str, port: int, text: str, timeout: float,
                 netns: str | None) -> str | None:
    conversation, _ = world.call_function(
        "udp_exchange", netns=netns, address=address, port=port, text=text, timeout=timeout)
    with conversation:
        if conversation.recv(5, socket.MSG_WAITALL) != b"ready":
            raise RuntimeError("the sender did not start")
        return conversation.recv(65536).decode() or None
