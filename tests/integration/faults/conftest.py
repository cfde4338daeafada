# SPDX-License-Identifier: Apache-2.0
import sys
from pathlib import Path

import pytest

sys.path.append(str(Path(__file__).resolve().parents[1] / "tunnel"))

from fault_steps import Machines  # noqa: E402


@pytest.fixture(scope="module")
def machines(make_world):
    with Machines(make_world) as kept:
        yield kept
