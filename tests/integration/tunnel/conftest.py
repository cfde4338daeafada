# SPDX-License-Identifier: Apache-2.0
import pytest

from tunnel_steps import Machine, furnish


@pytest.fixture
def machine(world) -> Machine:
    """A machine with the service running, not connected; the far side answers, directly or through a tunnel."""
    furnish(world)
    return Machine(world, world.start_service(), world.client("alice"))


@pytest.fixture
def settled(machine) -> Machine:
    """The same after one tunnel: its private directory exists, so nothing at all may differ from here on."""
    machine.connect()
    machine.disconnect()
    machine.alice.mark()
    return machine
