# SPDX-License-Identifier: Apache-2.0
import pytest

from front_steps import Front
from quorvex_world import World


@pytest.fixture
def front(world) -> Front:
    """Recording tools in a world of their own; the service is not started yet."""
    return Front(world)


@pytest.fixture(scope="module")
def shared_front(request) -> Front:
    """One running service for a module whose tests leave it as they found it."""
    with World(service=request.config.getoption("--service"),
               writable=request.config.getoption("--world-writable")) as world:
        front = Front(world)
        front.start()
        yield front
