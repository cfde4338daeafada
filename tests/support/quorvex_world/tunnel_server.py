# SPDX-License-Identifier: Apache-2.0
"""What the servers of all four engines have in common."""

from .peers import Peer


class TunnelServer:
    """A real server at a peer. Each engine's class says what a client of it looks like."""

    # What the service is asked for, what it calls the engine, and what it owns while it runs.
    protocol: str
    engine: str
    interface: str
    config: str
    # The name by which engines.install() knows the programs.
    kit: str
    # The client's addresses as servers behind this one see them.
    seen_as4: str
    seen_as6: str
    # Whether an answered ping proves anything: some engines answer it themselves.
    carries_ping: bool

    def __init__(self, peer: Peer, endpoint: str, port: int):
        self.peer = peer
        self.endpoint = endpoint
        self.port = port

    def profile(self, *, host: str | None = None) -> str:
        """A profile that passes the rules; `host` names the server instead of its address."""
        raise NotImplementedError

    @property
    def secrets(self) -> list[str]:
        """What must be found nowhere but in the private file."""
        raise NotImplementedError

    @property
    def address(self) -> str:
        """The server as tcpdump writes it."""
        return f"{self.endpoint}.{self.port}"

    def _put(self, name: str, text: str) -> str:
        """A file of the server's own, out of the tests' sight."""
        path = f"/run/world/{name}"
        self.peer.world.put_file(path, text, mode=0o600)
        return path
