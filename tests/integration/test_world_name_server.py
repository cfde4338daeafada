# SPDX-License-Identifier: Apache-2.0
"""The real name server of a world, asked by the C library."""

import pytest

from quorvex_world import NameServer

pytestmark = pytest.mark.tunnel

NAMES = {"one.test": ["10.99.0.2"], "several.test": ["10.99.0.2", "10.99.0.3", "fd99::2"], "bare.test": []}
NO_SUCH_NAME = 2


@pytest.fixture
def names(world) -> NameServer:
    server = world.peer("server")
    world.link(server, "10.99.0.1/24", "10.99.0.2/24", v6=("fd99::1/64", "fd99::2/64"))
    world.use_resolver("10.99.0.2")
    return NameServer(server, "10.99.0.2", NAMES)


def addresses(world, name: str) -> set[str]:
    found = world.run(["/usr/bin/getent", "ahosts", name], check=False)
    assert found.status in (0, NO_SUCH_NAME)
    return {line.split()[0] for line in found.stdout.splitlines()}


def test_a_name_has_all_its_addresses_of_both_families(world, names):
    assert {name: addresses(world, name) for name in NAMES} == {name: set(known) for name, known in NAMES.items()}


def test_a_name_that_is_not_listed_does_not_exist(world, names):
    assert addresses(world, "no.test") == set()


def test_questions_are_counted(world, names):
    addresses(world, "one.test")
    assert sorted(names.queries) == [("A", "one.test", "10.99.0.1"), ("AAAA", "one.test", "10.99.0.1")]


def test_once_stopped_nobody_answers(world, names):
    names.stop()
    assert addresses(world, "one.test") == set()
