# SPDX-License-Identifier: Apache-2.0
"""AmneziaWG for a world: no distribution has its tools, so those of WireGuard, of which they are forks, stand in.

The command line, the interface, the routes, the rules and the daemon are real. What is missing is the disguise on the
wire: the stand-in for `awg` drops the keys that ask for it.
"""

import re
from pathlib import Path

from .wireguard import WireGuardServer

INSTALLED = "/usr/libexec/quorvexvpn"
WG_QUICK = Path("/usr/bin/wg-quick")
WIREGUARD_GO = Path("/usr/bin/wireguard-go")
# The names of the disguise, each with its value to the end of the line.
AWG = """#!/bin/bash
case $1 in
  setconf | addconf | syncconf)
    exec /usr/bin/wg "$1" "$2" <(sed -E '/^[[:space:]]*(J(c|min|max)|[SHI][1-5])[[:space:]]*=/Id' "$3") ;;
esac
exec /usr/bin/wg "$@"
"""


def install(world) -> None:
    """Puts the three tools where the service looks for them."""
    # What calls the tool as a command; its own name and those of its tables stay.
    script = re.sub(r"(?<=[ (])wg (?=(set|setconf|addconf|show|showconf|syncconf) )", "awg ", WG_QUICK.read_text())
    world.put_file(f"{INSTALLED}/awg-quick", script, mode=0o755)
    world.put_file(f"{INSTALLED}/awg", AWG, mode=0o755)
    world.put_file(f"{INSTALLED}/amneziawg-go", WIREGUARD_GO.read_bytes(), mode=0o755)


class AmneziaServer(WireGuardServer):
    """A server whose profiles need the AmneziaWG tools; without the disguise it is WireGuard's own."""

    protocol, kit = "amneziawg", "AmneziaWG"

    def profile(self, interface: str = "Jc = 4\nJmin = 40\nJmax = 70", **words) -> str:
        return super().profile(interface=interface, **words)
