# SPDX-License-Identifier: Apache-2.0
"""Real engines: where this machine has them, and how they come into a world.

tests/support/engines fetches sing-box and Xray; OpenVPN and the WireGuard tools are Debian's.
"""

import os
from pathlib import Path

from . import amnezia

FETCHED = Path(__file__).resolve().parents[3] / "build/engines"
SING_BOX = FETCHED / "sing-box"
XRAY = FETCHED / "xray"
OPENVPN = Path("/usr/sbin/openvpn")
INSTALLED = "/usr/libexec/quorvexvpn"
INTERPRETER = Path("/usr/bin/python3").resolve()

PROGRAMS = {"OpenVPN": OPENVPN, "Sing-box": SING_BOX, "Xray": XRAY,
            "WireGuard": Path("/usr/bin/wg-quick"), "AmneziaWG": amnezia.WIREGUARD_GO}


def missing(engine: str) -> str:
    """Why there is no such engine on this machine; empty when there is."""
    if PROGRAMS[engine].exists():
        return ""
    wanted = "the package openvpn" if engine == "OpenVPN" else "tests/support/engines"
    return f"no real {engine} on this machine: {wanted} brings it"


def install(world, engine: str) -> None:
    """Puts a real engine where the service looks for it."""
    if reason := missing(engine):
        raise FileNotFoundError(reason)
    {"OpenVPN": _install_openvpn, "Sing-box": _install_sing_box, "Xray": _install_xray,
     "AmneziaWG": amnezia.install, "WireGuard": lambda world: None}[engine](world)


def _install_openvpn(world) -> None:
    # Every engine is run in the directory that the service's own package brings.
    world.path(INSTALLED).mkdir(exist_ok=True)
    world.put_file("/usr/sbin/openvpn", OPENVPN.read_bytes(), mode=0o755)


def _install_sing_box(world) -> None:
    world.put_file(f"{INSTALLED}/sing-box", SING_BOX.read_bytes(), mode=0o755)


def _install_xray(world) -> None:
    """The program is an interpreter of its own, whose script is called like the first argument.

    So a process of the engine is known by its executable, as one of the released program is. The
    script is found in the working directory, and that is where the service runs its engines.
    """
    world.put_file(f"{INSTALLED}/xray", INTERPRETER.read_bytes(), mode=0o755)
    # The interpreter takes the word "run" for the script's name, so the script puts it back.
    world.put_file(f"{INSTALLED}/run", "import sys\nsys.argv.insert(1, 'run')\n" + XRAY.read_text())
    os.symlink(FETCHED / "xray-library", world.path(f"{INSTALLED}/xray-library"))
    for data in ("geoip.dat", "geosite.dat"):
        # The service only looks whether they are there; no profile of a test refers to them.
        world.put_file(f"{INSTALLED}/{data}", "placeholder\n")

