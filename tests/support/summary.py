# SPDX-License-Identifier: Apache-2.0
"""The honest end of a test run: what ran, what passed, what was skipped and why.

Reads the JUnit files that ctest wrote into the folder given, one a preset. An entry of ctest is one
executable of unit tests or one file of black-box tests; what GoogleTest or pytest say at the end
counts.
Exit status 1 when anything failed, or when nothing ran at all.
"""

from __future__ import annotations

import re
import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter
from pathlib import Path

KINDS = ("unit", "bus", "tunnel", "system")
PYTEST_COUNT = re.compile(r"(\d+) (passed|failed|skipped|errors?)\b")
PYTEST_SKIP = re.compile(r"^SKIPPED \[\d+\] .*?: (.*)$", re.MULTILINE)
# The last line that pytest prints, whatever it counted.
PYTEST_CLOSING = re.compile(r"^=*\s*((?:\d+ \w+(?:, )?)+) in [\d.]+s", re.MULTILINE)
# GoogleTest's closing lines; the tests that were skipped or failed are named below each.
GOOGLETEST_COUNTS = (("passed", re.compile(r"^\[  PASSED  \] (\d+) tests?\.", re.MULTILINE)),
                     ("failed", re.compile(r"^\[  FAILED  \] (\d+) tests?, listed", re.MULTILINE)),
                     ("skipped", re.compile(r"^\[  SKIPPED \] (\d+) tests?, listed", re.MULTILINE)))

# The folders of tests that are neither the bus's nor unit tests.
TUNNEL_FOLDERS = ("tunnel/", "leaks/", "leftovers/", "faults/", "search/")


def kind_of(name: str) -> str:
    """The kind of an entry by its name: files stand in the folder of their kind."""
    if name.startswith("unit/"):
        return "unit"
    if name.startswith("system/"):
        return "system"
    return "tunnel" if name.startswith(TUNNEL_FOLDERS) else "bus"


def counts_in(output: str) -> Counter[str]:
    """What the test program itself counted; empty when it did not come to its end."""
    counts: Counter[str] = Counter()
    for word, pattern in GOOGLETEST_COUNTS:
        counts[word] += sum(int(number) for number in pattern.findall(output))
    if closing := PYTEST_CLOSING.findall(output):
        for number, word in PYTEST_COUNT.findall(closing[-1]):
            counts["failed" if word.startswith("error") else word] += int(number)
    return +counts


def count_entry(case: ElementTree.Element) -> tuple[Counter[str], list[str]]:
    """What one entry adds to the counts, and the reasons of its skips."""
    output = case.findtext("system-out") or ""
    counts = counts_in(output)
    if case.get("status") == "fail" and not counts["failed"]:
        counts["failed"] += 1
    elif not counts:
        ran = case.get("status") == "run" and case.find("skipped") is None
        counts["passed" if ran else "skipped"] += 1
    reasons = PYTEST_SKIP.findall(output)
    if counts["skipped"] and not reasons:
        reasons = [f"{case.get('name')}: did not run"]
    return counts, reasons


def summarise(path: Path) -> tuple[Counter[str], list[str]]:
    """Prints one line a kind for one preset."""
    by_kind: dict[str, Counter[str]] = {kind: Counter() for kind in KINDS}
    reasons: list[str] = []
    failures: list[str] = []
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        counts, why = count_entry(case)
        by_kind[kind_of(case.get("name", ""))].update(counts)
        reasons += why
        if counts["failed"]:
            failures.append(case.get("name", ""))
    for kind, counts in by_kind.items():
        if counts:
            print(f"  {path.stem:<11} {kind:<7} {counts['passed']:>5} passed"
                  f" {counts['failed']:>3} failed {counts['skipped']:>3} skipped")
    for name in failures:
        print(f"  failed: {path.stem} {name}")
    return sum(by_kind.values(), Counter()), reasons


def main() -> int:
    """Summarises all presets; the closing line is for whoever reads only that."""
    total: Counter[str] = Counter()
    reasons: Counter[str] = Counter()
    print("Summary")
    for path in sorted(Path(sys.argv[1]).glob("*.xml")):
        counts, why = summarise(path)
        total.update(counts)
        reasons.update(why)
    for reason, number in sorted(reasons.items()):
        print(f"  skipped {number}: {reason}")
    print(f"{total['passed']} passed, {total['failed']} failed, {total['skipped']} skipped")
    return 0 if total["passed"] and not total["failed"] else 1


if __name__ == "__main__":
    sys.exit(main())
