# SPDX-License-Identifier: Apache-2.0
import sys
from pathlib import Path

import pytest

# The flow of one connection is the same for every engine; WireGuard's tests have it.
sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "bus_wireguard"))

from engine_flow import ENGINES, Engine, EngineFlow  # noqa: E402


@pytest.fixture
def flow(world) -> EngineFlow:
    """Recording tools and all engines in a world of their own; the service is not started yet."""
    return EngineFlow(world)


@pytest.fixture(params=ENGINES, ids=lambda engine: engine.name)
def engine(request) -> Engine:
    return request.param
