# SPDX-License-Identifier: Apache-2.0
"""A real dnsmasq at a peer."""

import itertools
import re

from .peers import Peer

DNSMASQ = "/media/sbin/dnsmasq"
QUERY = re.compile(r"query\[(\w+)\] (\S+) from (\S+)")

_numbers = itertools.count(1)


class NameServer:
    """Answers at `address` for `names`, each with any number of addresses, and for no others.

    A name with an empty list exists and has no address.
    """

    def __init__(self, peer: Peer, address: str, names: dict[str, list[str]]):
        self.peer = peer
        path = f"/run/world/hosts.{next(_numbers)}"
        hosts = [f"{one} {name}\n" for name, addresses in names.items() for one in addresses]
        peer.world.put_file(path, "".join(hosts))
        bare = [f"--txt-record={name},here" for name, addresses in names.items() if not addresses]
        self._process = peer.spawn([
            DNSMASQ, "--keep-in-foreground", "--log-facility=-", "--log-queries",
            "--conf-file=/dev/null", "--user=root", "--pid-file", "--no-resolv", "--no-hosts",
            f"--addn-hosts={path}", "--local=//", "--bind-interfaces",
            f"--listen-address={address}", *bare])
        self._process.wait_line("started, version")
        self._process.wait_line("read " + path)

    @property
    def queries(self) -> list[tuple[str, str, str]]:
        """What was asked so far, as (type, name, asker)."""
        found = (QUERY.search(line) for line in self._process.lines)
        return [match.groups() for match in found if match]

    def stop(self) -> None:
        self._process.terminate()
        self._process.wait()
