# SPDX-License-Identifier: Apache-2.0
"""Profiles as providers write them, each read by the real OpenVPN until it turns to its server."""

import re
from pathlib import Path

import pytest

pytestmark = pytest.mark.tunnel

PROFILES = sorted((Path(__file__).resolve().parents[2] / "data/profiles/openvpn").glob("*.ovpn"))
PROGRAM = "/media/sbin/openvpn"
# The name of its server is looked up, or its address used, when all of the profile has been taken in.
AT_ITS_SERVER = re.compile(r"RESOLVE: Cannot resolve|\[AF_INET6?\]")


def start(world, name: str, text: bytes):
    path = f"/tmp/{name}.ovpn"
    world.put_file(path, text)
    return world.spawn([PROGRAM, "--config", path, "--suppress-timestamps"])


def test_each_is_taken_by_openvpn(world):
    assert len(PROFILES) >= 25
    for path in PROFILES:
        process = start(world, path.stem, path.read_bytes())
        process.wait_line(AT_ITS_SERVER.search)
        process.kill()
        process.wait()


def test_another_is_not(world):
    """Positive control of the test above: what OpenVPN refuses does not get as far."""
    process = start(world, "refused", PROFILES[0].read_bytes() + b"\nfrobnicate\n")
    assert process.wait() == 1
    assert not any(AT_ITS_SERVER.search(line) for line in process.lines)
