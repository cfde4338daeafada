# SPDX-License-Identifier: Apache-2.0
"""Options and fixtures of the system tests: one booted machine for a file of tests."""

import contextlib
import os
import subprocess
import sys
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "support")]

from container import Container, missing_tools  # noqa: E402
from quorvex_world import World, engines  # noqa: E402
from system_machine import SystemMachine  # noqa: E402


def pytest_addoption(parser):
    parser.addoption("--package", metavar="FILE", help="the Debian package; default: the one in build/deb")
    parser.addoption("--root", metavar="DIR", help="the Debian root; default: what make_root makes")


def pytest_configure(config):
    config.addinivalue_line("markers", "system: needs a booted machine")
    config.addinivalue_line("markers", "slow: takes minutes")
    if os.geteuid() != 0:
        raise pytest.UsageError("containers and namespaces need root")
    if missing := missing_tools():
        raise pytest.UsageError(f"missing on this machine: {', '.join(missing)}")


@pytest.fixture(scope="session")
def package(request) -> Path:
    given = request.config.getoption("--package")
    found = [Path(given)] if given else sorted(HERE.parents[1].glob("build/deb/quorvexvpn-service_*.deb"))
    assert found and found[0].exists(), "no package: packaging/build-deb makes it"
    return found[0].resolve()


@pytest.fixture(scope="session")
def newer_package(package, tmp_path_factory) -> Path:
    """The same package under a higher version, for an upgrade."""
    folder = tmp_path_factory.mktemp("newer")
    subprocess.run(["dpkg-deb", "-R", package, folder / "tree"], check=True)
    control = folder / "tree/DEBIAN/control"
    control.write_text("".join(f"{line}+newer\n" if line.startswith("Version:") else f"{line}\n"
                               for line in control.read_text().splitlines()))
    subprocess.run(["dpkg-deb", "--root-owner-group", "-b", folder / "tree", folder / f"newer-{package.name}"],
                   check=True, stdout=subprocess.DEVNULL)
    return folder / f"newer-{package.name}"


@pytest.fixture(scope="session")
def root(request) -> Path:
    given = request.config.getoption("--root")
    return Path(given or subprocess.run([HERE / "make_root"], check=True, capture_output=True,
                                        text=True).stdout.strip())


@contextlib.contextmanager
def booted(root: Path):
    """Booted, cabled, the servers running; nothing of ours is installed."""
    with World(bus=False, service=sys.executable) as world, Container(root, [engines.FETCHED]) as container:
        machine = SystemMachine(world, container)
        machine.use_name_server()
        yield machine


class Keeper:
    """One machine for many tests, for as long as they leave it as they found it."""

    def __init__(self, root: Path, package: Path):
        self._root = root
        self._package = package
        self._held = contextlib.ExitStack()
        self._machine: SystemMachine | None = None
        self._as_found: list[str] = []

    def machine(self) -> SystemMachine:
        if self._machine is None:
            self._machine = self._held.enter_context(booted(self._root))
            self._furnish()
            self._machine.ask("GetConnectionSnapshot")
            self._as_found = self._machine.picture()
        elif self._machine.installed_version() != self._machine.first_version:
            self._furnish()
        return self._machine

    def look_after(self) -> None:
        """A machine that a test has left otherwise than it was is of no use to the next one."""
        if self._machine is not None and self._machine.picture() != self._as_found:
            self.discard()

    def discard(self) -> None:
        self._machine = None
        self._held.close()

    def _furnish(self) -> None:
        """The package by apt, the client's engines and DNS helper, and a rule that lets alice in."""
        self._machine.install(self._package)
        self._machine.furnish_client()
        self._machine.allow("alice")
        self._machine.first_version = self._machine.installed_version()


@pytest.fixture(scope="module")
def keeper(root, package):
    one = Keeper(root, package)
    yield one
    one.discard()


@pytest.fixture
def bare_machine(root):
    with booted(root) as machine:
        yield machine


@pytest.fixture
def machine(keeper):
    """With the package, the client's engines and DNS helper; alice is allowed, the service is running."""
    yield keeper.machine()
    keeper.look_after()
