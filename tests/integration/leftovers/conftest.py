# SPDX-License-Identifier: Apache-2.0
import sys
from pathlib import Path

import pytest

sys.path[:0] = [str(Path(__file__).resolve().parents[1] / folder) for folder in ("tunnel", "leaks")]
# So that a failed comparison shows its two sides there, too.
pytest.register_assert_rewrite("bystander", "leftover_events", "leftover_steps", "memory_group", "word_steps")
