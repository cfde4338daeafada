# SPDX-License-Identifier: Apache-2.0
"""One disturbance at one step of one phase, and everything that must be true afterwards."""

import os
import random
import secrets
import signal
from collections import Counter
from dataclasses import dataclass, field

from fault_steps import GLIBS_OWN, PHASES, FaultMachine
from quorvex_world import BusError
from tunnel_steps import REPAIR_REQUIRED

# Names the choice of a test's cases, to have the same once more.
SEED = "QUORVEXVPN_FAULT_SEED"
# The daemon's, and the guard's in front of it.
WAYS_TO_THE_BUS = ("/system_bus_socket", "/quorvexvpn-ground/bus")


@dataclass(frozen=True)
class Step:
    """A step of a phase: its words, and the count of steps with these words so far.

    Steps of several threads do not come in the same order each time; those with the same words nearly do.
    """

    what: str
    nth: int

    def __str__(self) -> str:
        return self.what if self.nth == 1 else f"{self.what}, number {self.nth}"


@dataclass(frozen=True)
class Kill:
    """The service dies at a step; `orders` say at which, `with_children` that all it has started dies with it."""

    phase: str
    place: str
    orders: tuple[str, ...]
    with_children: bool

    def __str__(self) -> str:
        return f"{self.phase}: {'service and children' if self.with_children else 'service'} killed {self.place}"


@dataclass(frozen=True)
class Failure:
    """A step fails; `orders` say which."""

    phase: str
    place: str
    orders: tuple[str, ...]

    def __str__(self) -> str:
        return f"{self.phase}: {self.place} fails"


@dataclass
class Outcome:
    """What the service said of a phase in which one step failed."""

    # How the step is listed, with its error; empty when the phase never came to it.
    hit: str = ""
    snapshot: dict = field(default_factory=dict)
    logs: list[tuple[str, str]] = field(default_factory=list)
    # Whether GetRuntimeInfo says so.
    repair: bool = False
    # Set when the service has ended.
    status: int | None = None
    # What was still there after a Disconnect, or after the service's own end: the next start's to clean.
    left: str = ""

    @property
    def error(self) -> str:
        return self.snapshot.get("lastError", "")


def run_undisturbed(machine: FaultMachine, phase: str, *orders: str) -> list[str]:
    """What the phase's steps are; it leaves nothing, either."""
    PHASES[phase](machine, *orders)
    steps = machine.steps()
    machine.end()
    machine.start_plainly()
    machine.expect_clean()
    machine.expect_orderly_end()
    return steps


def steps_of(machine: FaultMachine, phase: str) -> list[Step]:
    seen: Counter[str] = Counter()
    steps = []
    for what in run_undisturbed(machine, phase):
        seen[what] += 1
        steps.append(Step(what, seen[what]))
    return steps


def kills_at(phase: str, steps: list[Step]) -> list[Kill]:
    """Before each step of the service and after the last; after the start of a process, too, which then runs alone.

    Every second one takes the children along.
    """
    places = [(step, "before") for step in steps]
    places += [(step, "after") for step in steps if step.what == "start a process" or step is steps[-1]]
    orders = {"before": "--kill-at", "after": "--kill-after"}
    return [Kill(phase, f"{when} {step}", ("--only", step.what, orders[when], str(step.nth)), number % 2 == 1)
            for number, (step, when) in enumerate(places)]


def family_kills(machine: FaultMachine, phase: str) -> list[Kill]:
    """Before each step of the service or of a process that it has started: these die with it, or live on."""
    steps = run_undisturbed(machine, phase, "--children")
    return [Kill(phase, f"before {what}, step {number} of all",
                 ("--children", *alone, "--kill-at", str(number)), with_children=not alone)
            for number, what in enumerate(steps, 1) for alone in ((), ("--alone",))]


def try_kill(machine: FaultMachine, kill: Kill, use: bool) -> bool:
    """Whether the phase came to that step; `use` tries a connection afterwards."""
    asked = machine.dns_calls_so_far()
    PHASES[kill.phase](machine, *kill.orders)
    hit = machine.hit()
    if hit:
        assert machine.await_end() == -signal.SIGKILL
    machine.end()
    if kill.with_children:
        machine.kill_orphans()
    machine.start_plainly()
    machine.expect_clean()
    # With a dead engine the interface is gone, and what was set for it went along.
    if not kill.with_children and kill.phase != "recovery_of_all":
        machine.expect_dns_reverted(asked)
    if use:
        machine.expect_usable()
    machine.expect_orderly_end()
    return hit is not None


def failure_at(phase: str, step: Step, error: str = "") -> Failure:
    """With the usual error of such a call, or this one."""
    named = ("--errno", error) if error else ()
    return Failure(phase, str(step), ("--only", step.what, "--fail-at", str(step.nth), *named))


def family_failures(machine: FaultMachine, phase: str) -> list[Failure]:
    """Of each step of the service and of the processes that it has started."""
    steps = run_undisturbed(machine, phase, "--children")
    return [Failure(phase, f"{what}, step {number} of all,", ("--children", "--fail-at", str(number)))
            for number, what in enumerate(steps, 1)]


def try_failure(machine: FaultMachine, failure: Failure, use: bool = False) -> Outcome:
    """The phase ends in time, nothing crashes, and all can be cleaned; `use` tries a connection afterwards."""
    since = len(machine.alice.logs)
    PHASES[failure.phase](machine, *failure.orders)
    outcome = Outcome()
    if hit := machine.hit():
        outcome.hit = f"{hit.what} -> {hit.how}"
        if hit.what.endswith(WAYS_TO_THE_BUS):
            machine.tolerate(GLIBS_OWN)
    try:
        outcome.snapshot = machine.snapshot()
        outcome.repair = machine.summary().endswith(REPAIR_REQUIRED)
    except BusError:
        # It has ended, or is about to.
        outcome.status = machine.await_end()
        outcome.snapshot = machine.alice.snapshots[-1]
    outcome.logs = machine.alice.logs[since:]
    if machine.service.alive:
        machine.ask_disconnect()
        machine.await_over()
    outcome.left = machine.left(running=machine.service.alive)
    expect_cleaned(machine, use)
    return outcome


def expect_cleaned(machine: FaultMachine, use: bool) -> None:
    """By the end of this service, which is none by a crash, and the start of another."""
    machine.end()
    assert machine.service.process.status in (0, 1), f"the service ended with {machine.service.process.status}"
    machine.start_plainly()
    machine.expect_clean()
    if use:
        machine.expect_usable()
    machine.expect_orderly_end()


def chosen(what: str) -> random.Random:
    """Chance with a seed that a failing test shows."""
    seed = os.environ.get(SEED) or secrets.token_hex(3)
    print(f"{what}: {SEED}={seed}")
    return random.Random(f"{seed} {what}")
