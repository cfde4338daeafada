# SPDX-License-Identifier: Apache-2.0
"""Options and fixtures of the black-box tests: each test gets a private machine of its own."""

import os
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

from quorvex_world import WireGuardServer, World  # noqa: E402


def pytest_addoption(parser):
    parser.addoption("--service", metavar="PATH", help="the service's executable; default: "
                     "QUORVEXVPN_SERVICE, or build/dev/service/quorvexvpn-service")
    parser.addoption("--world-writable", metavar="DIR", action="append", default=[],
                     help="a directory of this machine that worlds may write, for coverage data")


def pytest_configure(config):
    config.addinivalue_line("markers", "bus: needs a world with bus and polkit")
    config.addinivalue_line("markers", "tunnel: sends packets through a real tunnel")
    config.addinivalue_line("markers", "slow: waits for real time-outs")
    if os.geteuid() != 0:
        raise pytest.UsageError("worlds are made of namespaces: run these tests as root")


@pytest.fixture(scope="session")
def make_world(request):
    """A World with the options of this run; for tests that want other arguments."""
    def make(**more) -> World:
        options = {"service": request.config.getoption("--service"),
                   "writable": request.config.getoption("--world-writable")}
        return World(**{**options, **more})
    return make


@pytest.fixture
def world(make_world):
    with make_world() as one:
        yield one


@pytest.fixture
def wireguard_world(world):
    """Real tools and a WireGuard server across a cable; a web server and an echo behind it."""
    world.real_tools()
    server = world.server = world.peer("server")
    world.link(server, "10.99.0.1/24", "10.99.0.2/24", v6=("fd99::1/64", "fd99::2/64"))
    server.add_address("203.0.113.9/32")
    server.add_address("2001:db8:113::9/128")
    server.http_server("203.0.113.9", 80)
    server.udp_echo("203.0.113.9", 7)
    world.wireguard = WireGuardServer(server)
    return world
