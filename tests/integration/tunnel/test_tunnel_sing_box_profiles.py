# SPDX-License-Identifier: Apache-2.0
"""Profiles as providers write them, each accepted by the service and started by the real sing-box once."""

import json
import re
from pathlib import Path

import pytest

from engine_steps import PROGRAMS, machine_with
from quorvex_world import NameServer, SingBoxServer

pytestmark = pytest.mark.tunnel

PROFILES = sorted((Path(__file__).resolve().parents[2] / "data/profiles/sing-box").glob("*.json"))
# The fetched program is built without uTLS: it says so when it checks such a profile.
WITHOUT_UTLS = [path for path in PROFILES if '"utls"' not in path.read_text()]
WITH_UTLS = [path for path in PROFILES if path not in WITHOUT_UTLS]
RESOLVER = "10.99.0.2"
# The tunnel's own, and the redirection of TCP, which listens on all addresses on a port of the kernel's choice.
OWN_LISTENERS = re.compile(r"LISTEN\s+\d+\s+\d+\s+(172\.19\.0\.1|\[fdfe:dcba:9876::1\]|\*):\d{5}\s")


@pytest.fixture
def machine(world):
    machine = machine_with(world, SingBoxServer)
    world.names = NameServer(world.server, RESOLVER, {"vpn.example.test": ["198.51.100.99"]})
    world.use_resolver(RESOLVER)
    return machine


def connect(machine, path: Path) -> None:
    """A file's name begins with the protocol that selects it."""
    machine.alice.mark()
    machine.alice.connect(path.stem, path.stem.split("-")[0], path.read_text())


def listeners(machine) -> set[str]:
    shown = machine.world.run(["/usr/bin/ss", "-H", "-l", "-n", "-t"]).stdout
    return {line for line in shown.splitlines() if not OWN_LISTENERS.match(line)}


def links(machine) -> set[str]:
    shown = machine.world.run(["/usr/bin/ip", "-json", "link"]).stdout
    return {link["ifname"] for link in json.loads(shown)}


def test_each_is_started_by_sing_box_and_opens_nothing_but_the_tunnel(machine):
    assert len(WITHOUT_UTLS) >= 25
    ports, devices = listeners(machine), links(machine)
    for path in WITHOUT_UTLS:
        connect(machine, path)
        machine.alice.wait_log("Sing-box tunnel connected.")
        assert len(machine.processes_of(PROGRAMS["Sing-box"])) == 1, path.stem
        assert links(machine) - devices == {SingBoxServer.interface}, path.stem
        assert listeners(machine) - ports == set(), path.stem
        machine.disconnect()
    assert links(machine) == devices


def test_the_others_come_as_far_as_an_engine_without_utls_lets_them(machine):
    assert WITH_UTLS
    for path in WITH_UTLS:
        connect(machine, path)
        machine.alice.wait_log("Sing-box connection failed.")
        assert machine.snapshot()["lastError"] == "Sing-box rejected the generated configuration.", path.stem
