# SPDX-License-Identifier: Apache-2.0
import pytest

from control_steps import Control
from tunnel_worlds import furnish_wireguard


@pytest.fixture
def control(world, request) -> Control:
    """The command installed in a world with recording tools; the service is not started yet."""
    world.standard_tools()
    return Control(world, request.config.getoption("--service"))


@pytest.fixture
def wireguard_control(world, request) -> Control:
    """The command, the running service, and a real WireGuard server across a cable."""
    furnish_wireguard(world)
    world.start_service()
    return Control(world, request.config.getoption("--service"))
