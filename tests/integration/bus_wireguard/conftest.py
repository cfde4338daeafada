# SPDX-License-Identifier: Apache-2.0
import pytest

from wireguard_flow import Flow


@pytest.fixture
def flow(world) -> Flow:
    """Recording tools in a world of their own; the service is not started yet."""
    return Flow(world)
