#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""The word "connected" put to the test over many connects, by machines that never stop sending.

A packet that belongs into the tunnel and leaves in the clear after the word is a finding. Every second connect is made
without the kill switch, and every fifth right after a crash that left an engine behind. With --trust-connecting the
word "connecting" is taken for it, and every connect must be a finding.
"""

import argparse
import statistics
import sys
import time
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / folder)
                for folder in ("support", "integration/tunnel", "integration/leaks", "integration/leftovers")]

from leftover_steps import KINDS  # noqa: E402
from quorvex_world import World, engines  # noqa: E402
from word_steps import WATCHED, WATCHED_AFTER_CRASH, Word, connect_and_watch, crash, word_machine  # noqa: E402

CONNECTS_OF_A_MACHINE = 50
CRASH_EVERY = 5
CANNOT_RUN = 77


class Series:
    """The connects of one engine."""

    def __init__(self, kind, options: argparse.Namespace):
        self.kind = kind
        self.options = options
        self.words: list[Word] = []
        self.findings = 0

    def run(self) -> None:
        began = time.monotonic()
        while len(self.words) < self.options.count:
            with World(service=self.options.service) as world:
                machine = word_machine(world, self.kind)
                for _ in range(min(CONNECTS_OF_A_MACHINE, self.options.count - len(self.words))):
                    self.connect(machine)
        seconds = sorted(word.delay() for word in self.words)
        print(f"{self.kind.kit:10} {len(self.words):4} connects, {self.findings} false; to the word: median "
              f"{statistics.median(seconds):.3f} s, at most {seconds[-1]:.3f} s; {time.monotonic() - began:.0f} s",
              flush=True)

    def connect(self, machine) -> None:
        number = len(self.words)
        after_crash = number % CRASH_EVERY == CRASH_EVERY - 1
        if after_crash:
            machine.connect(kill_switch=number % 4 > 1)
            crash(machine)
        else:
            machine.await_all()
        word = connect_and_watch(machine, kill_switch=number % 2 == 1,
                                 seconds=WATCHED_AFTER_CRASH if after_crash else WATCHED, stage=self.options.stage)
        self.words.append(word)
        if word.after:
            self.findings += 1
            print(f"finding: {self.kind.kit}, connect {number}{', after a crash' if after_crash else ''}: "
                  f"{len(word.after)} packets", *word.describe(), sep="\n  ", flush=True)
        machine.disconnect()


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=200, help="connects of each engine")
    parser.add_argument("--engine", choices=[kind.kit for kind in KINDS], help="this one alone")
    parser.add_argument("--service", help="the service's executable; default: that of build/dev")
    parser.add_argument("--trust-connecting", dest="stage", action="store_const", const="connecting",
                        default="connected", help="the positive control")
    options = parser.parse_args()
    kinds = [kind for kind in KINDS if options.engine in (None, kind.kit)]
    for kind in kinds:
        if reason := engines.missing(kind.kit):
            print("skipped:", reason)
            return CANNOT_RUN
    runs = [Series(kind, options) for kind in kinds]
    for one in runs:
        one.run()
    if options.stage == "connecting":
        return int(any(one.findings < len(one.words) for one in runs))
    return int(any(one.findings for one in runs))


if __name__ == "__main__":
    sys.exit(main())
