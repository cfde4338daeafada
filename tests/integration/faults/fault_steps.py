# SPDX-License-Identifier: Apache-2.0
"""A machine whose service can be disturbed at each step that has an effect outside it, in each phase of its work.

The steps are system calls, counted by the program step_faults while the file GO exists. Each phase comes from a clean
machine; what a disturbance leaves is the next start's to clean, and `expect_clean` says whether it did.
"""

import contextlib
import os
import re
import signal
import time
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable, Iterator

from engine_steps import need
from quorvex_world import BusError, Pending, SingBoxServer, TunnelServer, WireGuardServer, diff_states
from quorvex_world.client import BUS_NAME
from quorvex_world.service import INSTALLED
from quorvex_world.state import State
from tunnel_steps import DIRECT4, FAR4, REPAIR_REQUIRED, Machine, furnish

ENGINES = (WireGuardServer, SingBoxServer)
PROGRAM = "/run/world/step_faults"
GO = "/run/world/go"
STEPS = "/run/world/steps"
HIT = re.compile(r"^(\d+) (.*) -> (.*)$")
# An engine that does not listen is given 8 s, a tool 15 s, and a clean-up can meet several of them.
LIMIT = 60
# How soon what was killed with the service, or belongs to no engine, is gone.
SETTLED_WITHIN = 3
# GLib refers to the bus's connection once more when it ends between the answer about the name and its reading; all the
# same the service hears that it has no name and ends.
GLIBS_OWN = "g_object_ref: assertion 'G_IS_OBJECT (object)' failed"
OVER = (" tunnel connected.", " connection failed.", "VPN tunnel disconnected.", "VPN disconnect cleanup failed.")


@dataclass(frozen=True)
class Hit:
    """The step that was disturbed: its number, its words, and what became of it."""

    number: int
    what: str
    how: str


def step_faults_of(service: Path) -> Path:
    """The program of the same build."""
    program = service.resolve().parents[1] / "tests/support/step_faults/step_faults"
    if not program.exists():
        raise FileNotFoundError(f"{program}: build the target step_faults")
    return program


@dataclass
class FaultMachine(Machine):
    """The service runs under the program that disturbs it, but for the runs that clean up."""

    before: State | None = None
    # What alice asked for last, and how many signals she had got before.
    asked: Pending | None = None
    earlier: int = 0
    tolerated: list[str] = field(default_factory=list)

    # The service

    def start(self, *orders: str, wait: bool = True) -> None:
        """Disturbed as ordered; steps count while `counting`."""
        self.world.path(STEPS).unlink(missing_ok=True)
        wrapper = [PROGRAM, "--list", STEPS, "--while-file", GO, *orders]
        self.service = self.world.start_service(wrapper=wrapper, wait=wait)

    def start_plainly(self) -> None:
        self.service = self.world.start_service()

    @contextlib.contextmanager
    def counting(self) -> Iterator[None]:
        self.world.put_file(GO, "")
        try:
            yield
        finally:
            self.world.path(GO).unlink()

    def steps(self) -> list[str]:
        """What was counted so far, in words."""
        lines = self.world.path(STEPS).read_text().splitlines()
        return [line.partition(" ")[2] for line in lines]

    def hit(self) -> Hit | None:
        """The disturbed step; None when the phase was over before it."""
        found = [HIT.match(line) for line in self.world.path(STEPS).read_text().splitlines()]
        return next((Hit(int(one[1]), one[2], one[3]) for one in found if one), None)

    # What it is asked for

    def ask_connect(self) -> None:
        self.earlier = len(self.alice.signals)
        server = self.world.tunnel
        self.asked = self.alice.connect_async("home", server.protocol, server.profile(), kill_switch=True)

    def ask_disconnect(self) -> None:
        self.earlier = len(self.alice.signals)
        self.asked = self.alice.call_async("Disconnect")

    def await_over(self) -> str:
        """Until the service has said how its work ended, has refused it, or has ended itself; returns what was said."""
        def said() -> str:
            if isinstance(self.asked.answer, BusError):
                return str(self.asked.answer)
            news = self.alice.signals[self.earlier:]
            words = [one.value["message"] for one in news if one.name == "LogEmitted"]
            return next((text for text in words if text.endswith(OVER)), "" if self.service.alive else "the end")
        return self.world.wait(said, LIMIT, "the end of the phase")

    def await_end(self) -> int:
        return self.service.wait(LIMIT)

    def end(self) -> None:
        """In order, where nothing else has ended it."""
        if self.service.alive:
            self.service.stop(LIMIT)

    # What must be true

    def left(self, running: bool) -> str:
        """What differs from the clean machine, the running service apart."""
        after = self.world.state()
        if running:
            after.processes = [one for one in after.processes if not one.endswith(INSTALLED)]
        return diff_states(self.before, after)

    def await_settled(self, running: bool) -> None:
        deadline = time.monotonic() + SETTLED_WITHIN
        while (left := self.left(running)) and time.monotonic() < deadline:
            time.sleep(0.05)
        assert not left, f"left {'beside the service' if running else 'without a service'}:\n{left}"

    def expect_network(self) -> None:
        reply = self.world.http_get(f"http://{FAR4}/")
        assert (reply.status, reply.body) == (200, DIRECT4), f"the network is not the machine's own: {reply}"

    def dns_calls_so_far(self) -> int:
        return len(self.world.calls("quorvexvpn-dns"))

    def expect_dns_reverted(self, since: int) -> None:
        """What the helper was asked to set since that call of it, it was asked to take back."""
        asked = [call.argv[1] for call in self.world.calls("quorvexvpn-dns")[since:]]
        last = next((verb for verb in reversed(asked) if verb.endswith("-wireguard")), "revert-wireguard")
        assert last == "revert-wireguard", f"the DNS helper was asked for {asked}"

    def expect_no_complaints(self) -> None:
        faults = [line for service in self.world.services for line in service.faults()]
        unexpected = [line for line in faults if not any(text in line for text in self.tolerated)]
        assert not unexpected, "\n".join(unexpected)

    def tolerate(self, text: str) -> None:
        """As the world's own; a complaint is looked for after each case here."""
        self.tolerated.append(text)
        self.world.tolerate(text)

    def expect_clean(self) -> None:
        """The service runs, nothing else is left, and it says so."""
        self.expect_no_complaints()
        self.await_settled(running=True)
        self.expect_network()
        assert (said := self.snapshot()) == {"stage": "disconnected"}, said
        assert not self.summary().endswith(REPAIR_REQUIRED)

    def expect_usable(self) -> None:
        """The next connect works, and its disconnect leaves nothing."""
        self.connect(kill_switch=True)
        reply = self.world.http_get(f"http://{FAR4}/")
        seen_as = self.world.tunnel.seen_as4
        assert (reply.status, reply.body) == (200, seen_as), f"no traffic through the tunnel: {reply}"
        self.disconnect()
        self.expect_clean()

    def expect_orderly_end(self) -> None:
        assert self.service.stop() == 0
        self.await_settled(running=False)

    def kill_orphans(self) -> None:
        """What systemd does with the rest of a service's control group, here without a warning."""
        def gone() -> bool:
            orphans = self.world.processes()
            for orphan in orphans:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(orphan["host_pid"], signal.SIGKILL)
            return not orphans
        self.world.poll(gone, what="the end of the orphans")


def fault_machine(world, kind: type[TunnelServer]) -> FaultMachine:
    """Clean, and without a service. The first connect has made the private directory for good."""
    need(kind)
    furnish(world, kind)
    world.put_file(PROGRAM, step_faults_of(world.executable).read_bytes(), mode=0o755)
    machine = FaultMachine(world, world.start_service(), world.client("alice"))
    machine.connect()
    machine.disconnect()
    machine.service.stop()
    machine.before = world.state()
    return machine


class Machines:
    """A machine of each engine, used again and again: what a case has shown to be clean is as good as new."""

    def __init__(self, make_world: Callable):
        self._make_world = make_world
        self._kept: dict[type[TunnelServer], tuple[FaultMachine, contextlib.ExitStack]] = {}

    def __enter__(self) -> "Machines":
        return self

    def __exit__(self, *failure) -> None:
        with contextlib.ExitStack() as all_worlds:
            for _, worlds in self._kept.values():
                all_worlds.push(worlds)

    @contextlib.contextmanager
    def use(self, kind: type[TunnelServer]) -> Iterator[FaultMachine]:
        """The machine is given up when the case fails."""
        machine, worlds = self._kept.pop(kind, (None, contextlib.ExitStack()))
        with worlds:
            yield machine or (machine := fault_machine(worlds.enter_context(self._make_world()), kind))
            self._kept[kind] = machine, worlds.pop_all()


# The phases: each ends with its work done, or with the end of the service.

Phase = Callable[..., None]


def connect(machine: FaultMachine, *orders: str) -> None:
    machine.start(*orders)
    with machine.counting():
        machine.ask_connect()
        machine.await_over()


def disconnect(machine: FaultMachine, *orders: str) -> None:
    machine.start(*orders)
    machine.connect(kill_switch=True)
    with machine.counting():
        machine.ask_disconnect()
        machine.await_over()


def recovery(machine: FaultMachine, *orders: str) -> None:
    """After a crash while connected: from the start of the next service until it owns its name."""
    crash(machine)
    start_disturbed(machine, *orders)


def recovery_of_all(machine: FaultMachine, *orders: str) -> None:
    """The same where the engine died with the service."""
    crash(machine)
    machine.kill_orphans()
    start_disturbed(machine, *orders)


def crash(machine: FaultMachine) -> None:
    machine.start_plainly()
    machine.connect(kill_switch=True)
    machine.service.kill()
    machine.service.wait()


def start_disturbed(machine: FaultMachine, *orders: str) -> None:
    observer = machine.world.client("root")
    machine.world.wait(lambda: not observer.owners.get(BUS_NAME), what="the name to be free")
    with machine.counting():
        machine.start(*orders, wait=False)
        machine.world.wait(lambda: observer.owners.get(BUS_NAME) or not machine.service.alive, LIMIT,
                           "the service or its end")


def shutdown(machine: FaultMachine, *orders: str) -> None:
    machine.start(*orders)
    machine.connect(kill_switch=True)
    with machine.counting():
        machine.service.terminate()
        machine.await_end()


PHASES: dict[str, Phase] = {one.__name__: one for one in (connect, disconnect, recovery, recovery_of_all, shutdown)}

