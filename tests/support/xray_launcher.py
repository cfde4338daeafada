#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Xray's command line, `xray run -config FILE`, around the real engine.

The engine is to be had as a library alone. This stands in for the reading of the command line and nothing else: what
starts, carries traffic and ends on SIGTERM is Xray itself.
"""

import sys
from pathlib import Path

LIBRARY = Path(__file__).resolve().with_name("xray-library")
USAGE_STATUS = 2


def main(arguments: list[str]) -> int:
    match arguments:
        case ["run", "-config", path]:
            return run(Path(path).read_text())
    print("usage: xray run -config FILE", file=sys.stderr)
    return USAGE_STATUS


def run(configuration: str) -> int:
    sys.path.insert(0, str(LIBRARY))
    import xray
    xray.startFromJSON(configuration)
    # It returns after an orderly end; what cannot be started ends the process with a status of its own.
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
