# SPDX-License-Identifier: Apache-2.0
"""Profiles as providers and apps write them, each accepted by the service and started by the real Xray once."""

import json
from pathlib import Path

import pytest

from engine_steps import PROGRAMS, machine_with
from quorvex_world import NameServer, XrayServer

pytestmark = pytest.mark.tunnel

PROFILES = sorted((Path(__file__).resolve().parents[2] / "data/profiles/xray").glob("*.json"))
RESOLVER = "10.99.0.2"
# The servers that profiles name by host name; there is none behind the address, for nothing is sent.
NAMES = {f"{name}.provider.test": ["198.51.100.99"] for name in ("cdn", "trojan", "vpn")}


@pytest.fixture
def machine(world):
    machine = machine_with(world, XrayServer)
    world.names = NameServer(world.server, RESOLVER, NAMES)
    world.use_resolver(RESOLVER)
    return machine


def listening(machine) -> set[str]:
    """What of the machine's own listens; its server has a network of its own."""
    shown = machine.world.run(["/usr/bin/ss", "-H", "-l", "-n", "-t", "-u", "-w"]).stdout
    return {line for line in shown.splitlines() if line.strip()}


def links(machine) -> set[str]:
    shown = machine.world.run(["/usr/bin/ip", "-json", "link"]).stdout
    return {link["ifname"] for link in json.loads(shown)}


def test_each_is_started_by_xray_and_opens_nothing_but_the_tunnel(machine):
    assert len(PROFILES) >= 25
    ports, devices = listening(machine), links(machine)
    for path in PROFILES:
        machine.connect(path.read_text(), name=path.stem)
        assert len(machine.processes_of(PROGRAMS["Xray"])) == 1, path.stem
        assert links(machine) - devices == {XrayServer.interface}, path.stem
        assert listening(machine) - ports == set(), path.stem
        machine.disconnect()
    assert links(machine) == devices


def test_a_port_of_the_engine_would_have_shown(machine):
    """Positive control of the test above: the same look sees a listener of a process in the machine."""
    ports = listening(machine)
    machine.world.spawn(["/usr/bin/python3", "-u", "-c", "import socket, time\n"
                         "one = socket.create_server(('127.0.0.1', 1080))\nprint('open')\ntime.sleep(60)"]
                        ).wait_line("open")
    assert any("127.0.0.1:1080" in line for line in listening(machine) - ports)
