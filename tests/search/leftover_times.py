#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""How soon the stage tells what has befallen a tunnel, and how soon the machine is as it was, for engine and event.

"told" is the time from the event to the stage "error"; "clean" the time from the call of Disconnect to its last stage,
or from the start of the next service to its bus name. At that moment the machine is compared with what it was, item by
item; a difference is printed and makes the exit status 1.
"""

import argparse
import statistics
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / folder)
                for folder in ("support", "integration/tunnel", "integration/leaks", "integration/leftovers")]

from leftover_events import EVENTS  # noqa: E402
from leftover_steps import KINDS, Times, scene  # noqa: E402
from quorvex_world import World, engines  # noqa: E402

CANNOT_RUN = 77


def measure(service: str, kind, event: str, kill_switch: bool) -> Times:
    with World(service=service) as world:
        one = scene(world, kind, kill_switch)
        one.up()
        EVENTS[event](one)
        one.expect_as_before()
        return one.times


def shown(seconds: list[float | None]) -> str:
    known = [1000 * one for one in seconds if one is not None]
    return f"{statistics.median(known):6.0f} {max(known):6.0f}" if known else f"{'-':>6} {'-':>6}"


def row(service: str, kind, event: str, kill_switch: bool, count: int) -> bool:
    """One line of the table; whether all was well."""
    found, state = [], "closed" if kill_switch else "open"
    for _ in range(count):
        try:
            found.append(measure(service, kind, event, kill_switch))
        except (AssertionError, TimeoutError) as error:
            print(f"finding: {kind.kit}, {event}, {state}: {error}", flush=True)
    told, clean = shown([one.told for one in found]), shown([one.cleaned for one in found])
    print(f"{kind.kit:10} {event:26} {state:7} {told}   {clean}   n={len(found)}", flush=True)
    return len(found) == count


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=3, help="how often each is measured")
    parser.add_argument("--service", help="the service's executable; default: that of build/dev")
    parser.add_argument("--event", choices=EVENTS, help="this one alone")
    options = parser.parse_args()
    for kind in KINDS:
        if reason := engines.missing(kind.kit):
            print("skipped:", reason)
            return CANNOT_RUN
    print(f"{'milliseconds: median, most':45} {'told':>13}   {'clean':>13}")
    events = [options.event] if options.event else list(EVENTS)
    wells = [row(options.service, kind, event, kill_switch, options.count)
             for event in events for kind in KINDS for kill_switch in (False, True)]
    return int(not all(wells))


if __name__ == "__main__":
    sys.exit(main())
