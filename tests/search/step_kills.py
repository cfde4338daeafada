#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""The service killed at every step of its work that has an effect outside it, in each phase, with two engines.

After each kill the service is started again: it must own its name, have nothing to repair and have left nothing else on
the machine; every tenth time the next connection is tried, too. Every second kill takes the children along. With
--family the steps of all that the service starts count as well: each is tried with their death and without.
"""

import sys

from step_search import FaultMachine, arguments, search

# Beside it, so its folders are known by now.
from fault_cases import Kill, family_kills, kills_at, steps_of, try_kill  # noqa: E402

USE_EACH = 10


def kills(machine: FaultMachine, phase: str) -> list[Kill]:
    return kills_at(phase, steps_of(machine, phase))


def run(machine: FaultMachine, phase: str, kill: Kill, number: int) -> str:
    came = try_kill(machine, kill, use=number % USE_EACH == 0)
    return "clean" if came else "clean, but the phase was over before it"


def main() -> int:
    parser = arguments(__doc__)
    parser.add_argument("--family", action="store_true")
    options = parser.parse_args()
    return search(options, family_kills if options.family else kills, run)


if __name__ == "__main__":
    sys.exit(main())
