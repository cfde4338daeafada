# SPDX-License-Identifier: Apache-2.0
"""What the searches over all steps of the service's work share: machines, one case after the other, findings."""

import argparse
import random
import sys
import time
import traceback
from contextlib import ExitStack
from pathlib import Path
from typing import Callable

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / folder) for folder in ("support", "integration/tunnel", "integration/faults")]

from fault_steps import ENGINES, PHASES, FaultMachine, fault_machine  # noqa: E402
from quorvex_world import BusError, TunnelServer, World, engines  # noqa: E402

CANNOT_RUN = 77
FAULTS = (AssertionError, TimeoutError, BusError, ValueError)


class StepSearch:
    """`cases` makes the cases of a phase on a machine; `run` tries one, says what came of it, and raises a finding."""

    def __init__(self, options: argparse.Namespace, cases: Callable[[FaultMachine, str], list],
                 run: Callable[[FaultMachine, str, object, int], str]):
        self.options = options
        self.cases = cases
        self.run_case = run
        self.done = 0
        self.found: dict[str, int] = {}
        self.findings: list[str] = []
        self._stack: ExitStack | None = None
        self._machine: FaultMachine | None = None

    def run(self) -> int:
        began = time.monotonic()
        for kind in ENGINES:
            for phase in PHASES:
                if self.options.engine in (None, kind.engine) and self.options.phase in (None, phase):
                    self.phase(kind, phase)
        print(f"\n{self.done} cases in {time.monotonic() - began:.0f} s of:",
              ", ".join(f"{phase} {count}" for phase, count in self.found.items()))
        print(f"{len(self.findings)} findings", *(finding.partition("\n")[0] for finding in self.findings), sep="\n")
        return int(bool(self.findings))

    def phase(self, kind: type[TunnelServer], phase: str) -> None:
        what = f"{kind.engine} {phase}"
        cases = self.attempt(kind, what, lambda machine: self.cases(machine, phase)) or []
        self.found[what] = len(cases)
        wanted = [case for case in cases if (self.options.only or "") in str(case)]
        if self.options.count is not None:
            wanted = random.Random(f"{self.options.seed} {what}").sample(wanted, min(self.options.count, len(wanted)))
        for number, case in enumerate(wanted):
            came = self.attempt(kind, f"{kind.engine} {case}",
                                lambda machine: self.run_case(machine, phase, case, number))
            self.done += 1
            print(f"{kind.engine} {case}: {came or 'a finding'}", flush=True)
        self.give_up()

    def attempt(self, kind: type[TunnelServer], what: str, action: Callable[[FaultMachine], object]):
        """On the machine of the case before, as long as that was left clean; None for a finding."""
        try:
            if self._machine is None:
                self._stack = ExitStack()
                world = self._stack.enter_context(World(service=self.options.service))
                self._machine = fault_machine(world, kind)
            return action(self._machine)
        except FAULTS as fault:
            self.find(what, fault)
            self.give_up()
            return None

    def give_up(self) -> None:
        """The end of a machine may be a finding, too: what a sanitizer or GLib had to say."""
        self._machine, stack, self._stack = None, self._stack, None
        try:
            if stack:
                stack.close()
        except AssertionError as fault:
            self.find("the end of a machine", fault)

    def find(self, what: str, fault: Exception) -> None:
        where = traceback.extract_tb(fault.__traceback__)[-1]
        words = f"{type(fault).__name__}: {fault or where.line}\nat {Path(where.filename).name}:{where.lineno}"
        lines = [line.rstrip()[:160] for line in words.splitlines()]
        self.findings.append("\n    ".join([what, *lines[:self.options.lines]]))
        print("FINDING:", self.findings[-1], flush=True)


def arguments(description: str) -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--service", help="the service's executable; default: that of build/dev")
    parser.add_argument("--engine", choices=[kind.engine for kind in ENGINES])
    parser.add_argument("--phase", choices=PHASES)
    parser.add_argument("--only", metavar="TEXT", help="only cases with this text in their names")
    parser.add_argument("--count", type=int, help="only so many cases of each phase, by chance")
    parser.add_argument("--seed", default="steps", help="names the choice")
    parser.add_argument("--lines", type=int, default=12, help="how many lines of a finding are shown")
    return parser


def search(options: argparse.Namespace, cases: Callable, run: Callable) -> int:
    for kind in ENGINES:
        if reason := engines.missing(kind.kit):
            print("skipped:", reason)
            return CANNOT_RUN
    return StepSearch(options, cases, run).run()
