#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Looks for an Xray profile that the service accepts and with which Xray, as root, does what no profile may.

Realistic profiles with something planted in them (see xray_texts.py) that the service accepts are run by the real
engine. README.md beside this says how to read the outcome.
"""

import ctypes
import os
import subprocess
import sys
from pathlib import Path

import search_world
from json_texts import names_in
from search_world import CANARIES, PORTS, ROOT, Arena, Case, Engine
from xray_texts import XrayTexts

XRAY = ROOT / "build/engines/xray"
PROFILES = ROOT / "tests/data/profiles/xray"
DEVICE = "quorvex-xray0"
SKIPPED = 77
SETTINGS = [Path(f"/proc/sys/net/{name}") for name in (
    "ipv4/conf/all/rp_filter", "ipv4/ip_forward", "ipv6/conf/all/disable_ipv6", "ipv6/conf/all/forwarding")]
CLONE_NEWNET = 0x40000000
# Accepts a connection to any address and port, so that the engine comes to speak TLS to its server.
REDIRECT = "table ip far { chain in { type nat hook prerouting priority -100; ip protocol tcp redirect to :9000; }; }"
ACCEPTOR = """
import socket
listener = socket.create_server(("0.0.0.0", 9000), backlog=128)
print("up", flush=True)
kept = []
while True:
    kept = [*kept[-64:], listener.accept()[0]]
"""

# Files that profiles name: a script that Xray would run, a list of its own kind, a place for secrets.
BAIT = {"script.lua": f'io.open("{CANARIES}/ran", "w"):close()\n'.encode(), "list.dat": b"\n", "secrets": b""}

ENGINE = Engine(
    [str(XRAY), "run", "-config", "{config}"], up=b" started\n",
    # Lists are looked for where the service has them; here the canaries lie there.
    environment={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "XRAY_LOCATION_ASSET": str(CANARIES),
                 "PYTHONDONTWRITEBYTECODE": "1"})


def far_side() -> subprocess.Popen:
    """The other end of the cable in a network of its own, where all addresses are at home."""
    def leave() -> None:
        if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNET):
            raise OSError(ctypes.get_errno(), "unshare")
    process = subprocess.Popen(["/usr/bin/python3", "-c", ACCEPTOR], preexec_fn=leave, stdout=subprocess.PIPE)
    assert process.stdout.readline() == b"up\n"
    subprocess.run(["ip", "link", "set", "far", "netns", str(process.pid)], check=True)
    inside = ["nsenter", "--net", "--target", str(process.pid)]
    for words in (["address", "add", "10.99.0.2/24", "dev", "far"], ["link", "set", "far", "up"],
                  ["link", "set", "lo", "up"], ["route", "add", "local", "0.0.0.0/0", "dev", "lo"]):
        subprocess.run([*inside, "ip", *words], check=True)
    subprocess.run([*inside, "nft", "-f", "-"], input=REDIRECT.encode(), check=True)
    return process


def machine() -> set[str]:
    """What of the machine must stay as it is beside files and sockets, the tunnel's own device left out."""
    links = {f"has the interface {name}" for name in os.listdir("/sys/class/net") if name != DEVICE}
    return links | {f"sets {path} to {path.read_text().strip()}" for path in SETTINGS}


class XrayArena(Arena):
    """Looks at interfaces and settings, too: Xray's WireGuard likes to change both."""

    def __init__(self, *arguments, keep: set[int]):
        super().__init__(*arguments, keep=keep | {far_side().pid})
        # As machines have it, so that a change shows.
        SETTINGS[0].write_text("1")
        self._machine = machine()

    def _end(self, process: subprocess.Popen) -> set[str]:
        changed = machine() - self._machine
        acts = super()._end(process)
        SETTINGS[0].write_text("1")
        return acts | changed


def main() -> int:
    if not XRAY.exists():
        print("skipped: no real Xray on this machine; tests/support/engines brings it")
        return SKIPPED
    search_world.enter_private_machine()
    options = search_world.arguments(__doc__.splitlines()[0])
    texts = XrayTexts([path.read_text() for path in sorted(PROFILES.glob("*.json"))],
                      names_in(next(XRAY.parent.glob("xray-library/xray/*.so"))), str(CANARIES), PORTS)
    return search_world.search(options, ENGINE, lambda name: Case("xray", texts.text(name).encode()),
                               more_canaries=BAIT, arena_type=XrayArena)


if __name__ == "__main__":
    sys.exit(main())
