#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Records docs/session.txt: the command on a private machine with a real WireGuard server.

Usage, as root: record_session.py --service build/release/service/quorvexvpn-service > docs/session.txt
"""

from __future__ import annotations

import argparse
import re
import sys
from dataclasses import dataclass, field
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "integration" / "control"))

from control_steps import Control, OK  # noqa: E402
from quorvex_world import World  # noqa: E402
from tunnel_worlds import furnish_wireguard  # noqa: E402

HEAD = "A session of quorvexvpnctl, recorded by tests/support/record_session.py. alice may manage the VPN, bob may not.\n"
FAR = "http://203.0.113.9/"
ACTIVATION = """[D-BUS Service]
Name=org.quorvexvpn.Service1
Exec=/usr/libexec/quorvexvpn-service
User=root
"""
# What differs from one recording to the next.
VARYING = (
    (re.compile(r"\d{4}-\d\d-\d\d[ T]\d\d:\d\d:\d\dZ?"), "DATE"),
    (re.compile(r"^\d\d:\d\d:\d\d", re.M), "TIME"),
    (re.compile(r"\d+(\.\d)? s\b"), "N s"),
    (re.compile(r'"connectedSeconds":\d+'), '"connectedSeconds":N'),
    # Each machine has its own.
    (re.compile(r"^\w+ +kernel +.*\n", re.M), ""),
)


def settled(text: str) -> str:
    """The text with everything that varies replaced by words."""
    for pattern, word in VARYING:
        text = pattern.sub(word, text)
    return text


@dataclass
class Session:
    """What is typed in alice's folder, and what comes back."""

    control: Control
    text: list[str] = field(default_factory=list)

    def type(self, line: str, user: str = "alice", status: int = OK) -> None:
        prompt = "#" if user == "root" else "$"
        shown = self.control.world.run(["/bin/sh", "-c", f"cd /tmp && {line} 2>&1"], user=user, check=False, timeout=30,
                                       env=self.control.environment)
        if shown.status != status:
            raise AssertionError(f"{line} ended with {shown.status}:\n{shown.stdout}")
        self.text.append(f"{user}{prompt} {line}\n{shown.stdout}")
        if status != OK:
            self.text.append(f"{user}{prompt} echo $?\n{status}\n")


def furnish(world: World) -> None:
    furnish_wireguard(world)
    world.put_file("/usr/share/dbus-1/system-services/org.quorvexvpn.Service1.service", ACTIVATION)
    world.client("root").raw_call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "ReloadConfig", "()")
    world.start_service()


def record(world: World, service: str | None) -> str:
    """The whole session in a world of its own."""
    furnish(world)
    control = Control(world, service)
    profile = world.wireguard.profile()
    control.put_profile(profile)
    control.put_profile(profile.replace("DNS", "PostUp = touch /tmp/canary\nDNS"), "odd.conf")
    session = Session(control)
    session.type("quorvexvpnctl doctor wireguard", user="root")
    session.type("quorvexvpnctl check odd.conf", status=5)
    session.type("quorvexvpnctl connect home.conf", user="bob", status=4)
    watch = control.start("watch")
    watch.wait_line("network")
    session.type("quorvexvpnctl connect --kill-switch home.conf")
    session.type("quorvexvpnctl status")
    session.type(f"curl --silent {FAR}; echo")
    session.type("quorvexvpnctl status --json", user="root")
    session.type("quorvexvpnctl disconnect")
    session.type(f"curl --silent {FAR}; echo")
    watch.wait_line("VPN tunnel disconnected.")
    session.text.append("alice$ quorvexvpnctl watch    # all the while, in another terminal\n"
                        + "".join(f"{line}\n" for line in watch.lines))
    return "\n".join([HEAD, *session.text])


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--service", required=True, metavar="PATH", help="the service's executable")
    service = parser.parse_args().service
    with World(service=service) as world:
        print(record(world, service), end="")


if __name__ == "__main__":
    main()
