#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""Every step of the service's work that has an effect outside it fails once, in each phase, with two engines.

The phase must end in time, the service must not crash, and after a Disconnect and another start nothing may be left and
the next connection, tried every fifth time, must work. Printed is what the service said. With --family the steps of all
that the service starts fail, too.
"""

import sys

from step_search import FaultMachine, arguments, search

# Beside it, so its folders are known by now.
from fault_cases import Failure, failure_at, family_failures, steps_of, try_failure  # noqa: E402

USE_EACH = 5


def failures(machine: FaultMachine, phase: str) -> list[Failure]:
    return [failure_at(phase, step) for step in steps_of(machine, phase)]


def run(machine: FaultMachine, phase: str, failure: Failure, number: int) -> str:
    outcome = try_failure(machine, failure, use=number % USE_EACH == 0)
    ended = "" if outcome.status is None else f", ended with {outcome.status}"
    warnings = "".join(f"; {level}: {text}" for level, text in outcome.logs if level == "warning")
    items = sorted({line.partition(":")[0] for line in outcome.left.splitlines()})
    left = f"; left until the next start: {', '.join(items)}" if items else ""
    return f"{outcome.hit}: {outcome.snapshot.get('stage')} {outcome.error}{ended}{warnings}{left}"


def main() -> int:
    parser = arguments(__doc__)
    parser.add_argument("--family", action="store_true")
    options = parser.parse_args()
    return search(options, family_failures if options.family else failures, run)


if __name__ == "__main__":
    sys.exit(main())
