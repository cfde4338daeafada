#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""The times in which traffic leaves in the clear by design, and what leaves then, measured for each engine.

Before the kill switch is loaded, between its removal and the engine's end, and after a recovery. All tools are the real
ones without a recorder between. Times are milliseconds between the user's call and the last or first packet on the
wire; the packets of one kind are about 15 ms apart.
"""

import argparse
import statistics
import sys
import time
from collections import defaultdict
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / folder) for folder in ("support", "integration/tunnel", "integration/leaks")]

from attempts import ALL  # noqa: E402
from engine_steps import ALL as ENGINES  # noqa: E402
from leak_steps import LeakMachine, leak_machine  # noqa: E402
from leak_wire import ACTIVE  # noqa: E402
from quorvex_world import World  # noqa: E402

# The columns: kinds that an engine treats alike, by the beginning of their names.
COLUMNS = {
    "ordinary traffic": ("TCP, ", "UDP, ", "UDP in fragments", "an echo request"),
    "other protocols": ("a raw protocol, ", "an IP header"),
    "public DNS": ("a public resolver",),
    "DNS on the link": ("a resolver on the link by the routes",),
    "bound to the device": ("UDP bound", "TCP bound", "a raw protocol bound", "a resolver on the link, "),
    "link": ("a neighbour over UDP", "multicast", "broadcast"),
}


def column(name: str) -> str:
    return next((one for one, begins in COLUMNS.items() if name.startswith(begins)), "")


def epoch(monotonic: float) -> float:
    return monotonic + time.time() - time.monotonic()


class Run:
    """The windows of one machine: figures by (window, column)."""

    def __init__(self, machine: LeakMachine, figures: dict):
        self.machine = machine
        self.figures = figures

    def add(self, window: str, what: str, seconds: float) -> None:
        self.figures[window][what].append(seconds * 1000)

    def seen(self, begin: float, end: float) -> dict[str, list[float]]:
        found = defaultdict(list)
        for packet in self.machine.wire.packets():
            if begin <= packet.time < end and (what := column(packet.target)):
                found[what].append(packet.time)
        return found

    def connect(self) -> None:
        began = time.time()
        self.machine.connect(kill_switch=True)
        active = epoch(self.machine.alice.wait_log(ACTIVE).time)
        self.machine.rounds()
        window = "Connect to the last packet in the clear"
        for what, times in self.seen(began, active).items():
            self.add(window, what, max(times) - began)
        self.add(window, "said", active - began)

    def disconnect(self) -> None:
        began = time.time()
        self.machine.disconnect()
        said = epoch(self.machine.alice.wait_log("VPN tunnel disconnected.").time)
        self.machine.await_all()
        self.first("Disconnect to the first packet in the clear", began, said)

    def first(self, window: str, began: float, said: float) -> None:
        for what, times in self.seen(began, time.time()).items():
            self.add(window, what, min(times) - began)
        self.add(window, "said", said - began)

    def crash(self) -> None:
        self.machine.connect(kill_switch=True)
        self.machine.alice.wait_log(ACTIVE)
        self.machine.service.kill()
        self.machine.service.wait()
        self.machine.signal_engine("KILL")
        self.machine.rounds()
        began = time.time()
        self.machine.restart()
        said = time.time()
        self.machine.await_all()
        self.first("start after a crash to the first packet in the clear", began, said)

    def open(self) -> None:
        """Connected without the kill switch: what leaves then is no window, but the ordinary state."""
        self.machine.connect()
        self.machine.rounds(2)
        began = time.time()
        self.machine.rounds(6)
        found = {packet.target for packet in self.machine.wire.packets() if packet.time >= began}
        self.figures["out while connected without the kill switch"]["seen"].append(found)
        self.machine.disconnect()
        self.machine.await_all()


def measure(kind, service: str, count: int) -> dict:
    figures: dict = defaultdict(lambda: defaultdict(list))
    for _ in range(count):
        with World(service=service) as world:
            run = Run(leak_machine(world, kind, recording=False, pause=0.0003), figures)
            run.connect()
            run.disconnect()
            run.open()
            run.crash()
    return figures


def show(kind, figures: dict) -> None:
    print(f"\n{kind.engine}")
    seen = figures.pop("out while connected without the kill switch")["seen"]
    for window, columns in figures.items():
        print(f"  {window}")
        for what in (*COLUMNS, "said"):
            if times := columns.get(what):
                print(f"    {what:20} {statistics.median(times):6.0f} ms, at most {max(times):6.0f} ms, n={len(times)}")
    known = {one.name for one in ALL}
    print("  out while connected without the kill switch:")
    print("    always:", "; ".join(sorted(set.intersection(*seen) & known)))
    print("    else:  ", sum(len(one - known) for one in seen), "other packets, such as",
          *sorted(set.union(*seen) - known)[:4], sep="\n      ")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=5, help="machines for each engine")
    parser.add_argument("--service", help="the service's executable; default: that of build/dev")
    options = parser.parse_args()
    for kind in ENGINES:
        show(kind, measure(kind, options.service, options.count))
    return 0


if __name__ == "__main__":
    sys.exit(main())
