#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Measures the service on a private machine and prints the figures: memory, wake-ups, start, connect, disconnect.

Times come from the signals as an unprivileged client receives them, so they include the bus and polkit.
"""

import argparse
import os
import re
import statistics
import sys
import time
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "support"), str(TESTS / "integration" / "tunnel")]

from quorvex_world import BUS_NAME, World  # noqa: E402
from tunnel_steps import Machine, furnish  # noqa: E402

BY_HAND = "/run/by-hand/quorvexvpn.conf"
IDLE_SECONDS = 10


def row(name: str, text: str) -> None:
    print(f"{name:44} {text}", flush=True)


def times(name: str, seconds: list[float]) -> None:
    ms = [one * 1000 for one in seconds]
    row(name, f"median {statistics.median(ms):6.1f} ms   min {min(ms):6.1f}   max {max(ms):6.1f}   ({len(ms)} runs)")


def memory(name: str, host_pid: int) -> None:
    rollup = Path(f"/proc/{host_pid}/smaps_rollup").read_text()
    sizes = {key: int(value) for key, value in re.findall(r"^(\w+): +(\d+) kB", rollup, re.M)}
    row(f"memory, {name}", f"RSS {sizes['Rss']} kB   PSS {sizes['Pss']} kB   anonymous {sizes['Anonymous']} kB")


def switches(host_pid: int) -> dict[str, int]:
    """How often each thread has gone to sleep by itself: each such time is one wake-up."""
    counts = {}
    for task in Path(f"/proc/{host_pid}/task").iterdir():
        status = (task / "status").read_text()
        name = (task / "comm").read_text().strip()
        counts[f"{name}/{task.name}"] = int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M).group(1))
    return counts


def wake_ups(name: str, host_pid: int, seconds: int) -> None:
    before = switches(host_pid)
    time.sleep(seconds)
    after = switches(host_pid)
    per_second = {task: (count - before.get(task, 0)) / seconds for task, count in after.items()}
    busy = ", ".join(f"{task.partition('/')[0]} {rate:.1f}" for task, rate in per_second.items() if rate)
    row(f"wake-ups, {name}", f"{sum(per_second.values()):.1f} per second over {seconds} s ({busy or 'none'})")


def measure_start(world: World, runs: int) -> list[float]:
    """From before exec to the bus's word that the name is owned."""
    observer = world.client("root")
    seconds = []
    for _ in range(runs):
        world.wait(lambda: not observer.owners.get(BUS_NAME), what="a free name")
        began = time.monotonic()
        service = world.start_service()
        seconds.append(time.monotonic() - began)
        service.stop()
    return seconds


def through_service(machine: Machine, kill_switch: bool) -> tuple[float, float]:
    """Seconds from the call to the stage that ends it, up and down."""
    machine.alice.mark()
    began = time.monotonic()
    machine.alice.connect("home", "wireGuard", machine.wireguard.profile(), kill_switch=kill_switch)
    up = machine.alice.wait_stage("connected").time - began
    machine.alice.wait_log("WireGuard tunnel connected.")
    machine.alice.mark()
    began = time.monotonic()
    machine.alice.call("Disconnect")
    down = machine.alice.wait_stage("disconnected").time - began
    machine.alice.wait_log("VPN tunnel disconnected.")
    return up, down


def by_hand(machine: Machine) -> tuple[float, float]:
    """Seconds of the bare tool in the same world; its profile lacks DNS, which the service takes out as well."""
    began = time.monotonic()
    machine.world.run(["/usr/bin/wg-quick", "up", BY_HAND])
    middle = time.monotonic()
    machine.world.run(["/usr/bin/wg-quick", "down", BY_HAND])
    return middle - began, time.monotonic() - middle


def compare(machine: Machine, runs: int) -> None:
    """The ways take turns, so that whatever else the machine does meets all of them alike."""
    machine.world.put_file(BY_HAND, machine.wireguard.profile(dns=None), mode=0o600)
    plain, closed, bare = [], [], []
    for _ in range(runs):
        plain.append(through_service(machine, False))
        closed.append(through_service(machine, True))
        bare.append(by_hand(machine))
    for which, words in ((0, ("Connect to \"connected\"", "wg-quick up by hand")),
                         (1, ("Disconnect to \"disconnected\"", "wg-quick down by hand"))):
        times(words[0], [one[which] for one in plain])
        times(f"{words[0]}, kill switch", [one[which] for one in closed])
        times(words[1], [one[which] for one in bare])


def measure(service: str, runs: int, idle: int) -> None:
    with World(service=service) as world:
        furnish(world)
        times("exec to bus name", measure_start(world, runs))
        machine = Machine(world, world.start_service(), world.client("alice"))
        time.sleep(1)
        memory("idle, never connected", machine.service.host_pid)
        wake_ups("idle", machine.service.host_pid, idle)
        compare(machine, runs)
        machine.connect(kill_switch=True)
        time.sleep(1)
        memory("connected", machine.service.host_pid)
        wake_ups("connected", machine.service.host_pid, idle)
        row("threads, open files while connected", f"{len(machine.service.threads())}, {len(machine.service.fds())}")
        began = time.monotonic()
        status = machine.service.stop()
        row("SIGTERM while connected to exit", f"{(time.monotonic() - began) * 1000:.1f} ms, status {status}")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--service", required=True, metavar="PATH", help="the service's executable")
    parser.add_argument("--runs", type=int, default=20, help="how often each time is taken")
    parser.add_argument("--idle", type=int, default=IDLE_SECONDS, help="seconds over which wake-ups are counted")
    options = parser.parse_args()
    size = Path(options.service).stat().st_size
    row("executable", f"{size / 1024:.0f} kB")
    row("machine", f"{os.cpu_count()} processors, load {os.getloadavg()[0]:.1f}, kernel {os.uname().release}")
    measure(options.service, options.runs, options.idle)


if __name__ == "__main__":
    main()
