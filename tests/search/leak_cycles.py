#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""The leak tests' events in any order, one after the other, on machines that never stop sending.

Each machine has one engine and goes through a handful of cycles: a connect with the kill switch, something that happens
to the tunnel, and the way back to the machine's own network. A packet that leaves beside the tunnel while the table is
there is a finding. With --with-a-hole the table drops nothing, and every cycle that closes must be a finding.
"""

import argparse
import random
import sys
import time
from collections import Counter
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / folder) for folder in ("support", "integration/tunnel", "integration/leaks")]

from engine_steps import ALL as ENGINES  # noqa: E402
from leak_events import EVENTS  # noqa: E402
from leak_steps import LeakMachine, leak_machine, plant_hole  # noqa: E402
from quorvex_world import World, engines  # noqa: E402

CYCLES_OF_A_MACHINE = 20
CANNOT_RUN = 77


class Search:
    def __init__(self, options: argparse.Namespace):
        self.options = options
        self.counts: Counter[str] = Counter()
        self.done = self.findings = self.broken = 0

    def machine(self, number: int, cycles: int) -> None:
        """Everything on it follows from the seed and its number, but for the times things take."""
        chance = random.Random(f"{self.options.seed}-{number}")
        kind = ENGINES[number % len(ENGINES)]
        with World(service=self.options.service) as world:
            machine = leak_machine(world, kind)
            if self.options.with_a_hole:
                plant_hole(world, "s/policy drop/policy accept/")
            for cycle in range(cycles):
                event = chance.choice(list(EVENTS))
                machine.delay = chance.randint(0, 16)
                what = f"machine {number}, cycle {cycle}: {kind.engine}, {event}"
                if not self.cycle(machine, event, what):
                    break
                self.done += 1
                self.counts[f"{kind.engine}: {event}"] += 1
            self.counts["rounds against the table"] += machine.closed_rounds()

    def cycle(self, machine: LeakMachine, event: str, what: str) -> bool:
        """Whether the machine came through and can be used for another."""
        try:
            EVENTS[event](machine)
            machine.await_all()
        except (AssertionError, TimeoutError) as error:
            self.broken += 1
            print(f"broken: {what}: {error}", flush=True)
            return False
        finally:
            self.judge(machine, what)
        return True

    def judge(self, machine: LeakMachine, what: str) -> None:
        leaks = machine.leaks()
        machine.wire.forget()
        if machine.opened_unasked():
            self.findings += 1
            print(f"finding: {what}: the table went although nobody asked", flush=True)
        elif leaks:
            self.findings += 1
            print(f"finding: {what}: {len(leaks)} packets", *(leak.line for leak in leaks[:5]), sep="\n  ", flush=True)

    def run(self) -> int:
        began, number = time.monotonic(), self.options.machine or 0
        while self.done < self.options.count:
            self.machine(number, min(CYCLES_OF_A_MACHINE, self.options.count - self.done))
            number += 1
            print(f"{self.done} cycles, {time.monotonic() - began:.0f} s, {self.findings} with leaks, "
                  f"{self.broken} broken", flush=True)
        for what, count in sorted(self.counts.items()):
            print(f"{count:6} {what}")
        return int(bool(self.findings) != self.options.with_a_hole or self.broken > 0)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=1000, help="cycles in all")
    parser.add_argument("--seed", default="leaks")
    parser.add_argument("--machine", type=int, help="begins with the machine of this number")
    parser.add_argument("--service", help="the service's executable; default: that of build/dev")
    parser.add_argument("--with-a-hole", action="store_true", help="the positive control")
    options = parser.parse_args()
    for kind in ENGINES:
        if reason := engines.missing(kind.kit):
            print("skipped:", reason)
            return CANNOT_RUN
    return Search(options).run()


if __name__ == "__main__":
    sys.exit(main())
