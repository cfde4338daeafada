# SPDX-License-Identifier: Apache-2.0
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[1] / "tunnel"))
