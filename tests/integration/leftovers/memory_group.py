# SPDX-License-Identifier: Apache-2.0
"""A control group of its own for one process, and there its end for want of memory: the kernel's own doing."""

import os
import re
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator

ROOT = Path("/sys/fs/cgroup")
VERSION_1 = ROOT / "memory"
LIMIT = 1 << 20
PAGE = os.sysconf("SC_PAGE_SIZE")
PRIVATE_CODE = re.compile(r"([0-9a-f]+)-([0-9a-f]+) r-xp .* /")
# How long an empty group may take to be given back.
REMOVAL = 5.0


def missing() -> str:
    """Why this machine cannot limit a group's memory; empty when it can."""
    if VERSION_1.is_dir():
        return ""
    enabled = ROOT / "cgroup.subtree_control"
    if enabled.exists() and "memory" in enabled.read_text().split():
        return ""
    return "no control group with a limit of memory can be made here"


def run_out_of_memory(world, host_pid: int) -> None:
    """Returns when the kernel has killed the process because its group's memory was used up.

    What it had before counts for the group that it came from. So each page of its code is written anew with what it
    holds already: each becomes a page of its own, and these soon are more than the limit allows.
    """
    with _group(f"quorvexvpn-test-{host_pid}", world) as group:
        (group / ("memory.limit_in_bytes" if _is_version_1() else "memory.max")).write_text(str(LIMIT))
        (group / "cgroup.procs").write_text(str(host_pid))
        _use_memory(host_pid)
        assert _kills(group) == 1, "the kernel has not ended it"


def _is_version_1() -> bool:
    return VERSION_1.is_dir()


@contextmanager
def _group(name: str, world) -> Iterator[Path]:
    group = (VERSION_1 if _is_version_1() else ROOT) / name
    group.mkdir()
    try:
        yield group
    finally:
        world.poll(lambda: _is_removed(group), timeout=REMOVAL, what="the end of the control group")


def _is_removed(group: Path) -> bool:
    try:
        group.rmdir()
    except OSError:
        return False
    return True


def _use_memory(host_pid: int) -> None:
    with open(f"/proc/{host_pid}/mem", "r+b", buffering=0) as memory:
        for address in _code_pages(host_pid):
            try:
                memory.seek(address)
                held = memory.read(1)
                memory.seek(address)
                memory.write(held)
            except OSError:
                return  # It is gone.


def _code_pages(host_pid: int) -> Iterator[int]:
    spans = PRIVATE_CODE.findall(Path(f"/proc/{host_pid}/maps").read_text())
    for start, end in spans:
        yield from range(int(start, 16), int(end, 16), PAGE)


def _kills(group: Path) -> int:
    file = group / ("memory.oom_control" if _is_version_1() else "memory.events")
    return int(dict(line.split() for line in file.read_text().splitlines())["oom_kill"])
