# SPDX-License-Identifier: Apache-2.0
"""What /proc of the test's own process namespace tells about the processes of a world."""

import os
from pathlib import Path
from typing import Iterator

PIECE = 1 << 22
UNREADABLE = ("[vvar]", "[vvar_vclock]", "[vsyscall]")
# Only the shadow memory of sanitizers is larger; it holds no data, and reading it takes for ever.
LARGEST_REGION = 1 << 32


def status_fields(host_pid: int) -> dict[str, str]:
    text = Path(f"/proc/{host_pid}/status").read_text(errors="replace")
    pairs = (line.partition(":") for line in text.splitlines())
    return {key: value.strip() for key, _, value in pairs}


def is_alive(host_pid: int) -> bool:
    """As long as one of its threads is: the last one closes the files."""
    fields = status_fields(host_pid)
    return fields["State"][0] not in "ZX" or int(fields["Threads"]) > 1


def inner_pid(host_pid: int) -> int:
    """The process id that the process itself sees."""
    return int(status_fields(host_pid)["NSpid"].split()[-1])


def ancestors_of(host_pid: int, stop: int) -> list[tuple[int, str]]:
    """Parents, nearest first, as (host's process id, name), up to but without `stop`."""
    chain = []
    parent = int(status_fields(host_pid)["PPid"])
    while parent not in (0, 1, stop):
        fields = status_fields(parent)
        chain.append((parent, fields["Name"]))
        parent = int(fields["PPid"])
    return chain


def argv_of(host_pid: int) -> list[str]:
    """Empty when the process is gone."""
    try:
        data = Path(f"/proc/{host_pid}/cmdline").read_bytes()
    except OSError:
        return []
    return [word.decode(errors="replace") for word in data.split(b"\0")[:-1]]


def processes_in_namespace_of(init_pid: int) -> Iterator[int]:
    """Live processes of the same process namespace, zombies left out, by number."""
    wanted = os.readlink(f"/proc/{init_pid}/ns/pid")
    for name in sorted(filter(str.isdigit, os.listdir("/proc")), key=int):
        try:
            if os.readlink(f"/proc/{name}/ns/pid") == wanted and is_alive(int(name)):
                yield int(name)
        except (OSError, KeyError):
            continue


def parent_of(host_pid: int) -> int:
    try:
        return int(status_fields(host_pid)["PPid"])
    except (OSError, KeyError):
        return -1


def executable_of(host_pid: int) -> str:
    try:
        return os.readlink(f"/proc/{host_pid}/exe")
    except OSError:
        return ""


def descriptors(host_pid: int) -> dict[int, str]:
    table = {}
    for name in os.listdir(f"/proc/{host_pid}/fd"):
        try:
            table[int(name)] = os.readlink(f"/proc/{host_pid}/fd/{name}")
        except FileNotFoundError:
            continue  # Closed since it was listed.
    return table


def memory_regions(host_pid: int) -> Iterator[bytes]:
    """The bytes of each readable region, in pieces; what the kernel refuses to show is left out."""
    with open(f"/proc/{host_pid}/mem", "rb", buffering=0) as memory:
        for start, end in _readable_spans(host_pid):
            yield from _read_span(memory, start, end)


def memory_contains(host_pid: int, secret: bytes) -> bool:
    """Whether the bytes stand anywhere in the process's memory, also across two pieces."""
    tail = b""
    for piece in memory_regions(host_pid):
        if secret in tail + piece:
            return True
        tail = piece[-len(secret):]
    return False


def _readable_spans(host_pid: int) -> Iterator[tuple[int, int]]:
    for line in Path(f"/proc/{host_pid}/maps").read_text().splitlines():
        span, rights = line.split(maxsplit=2)[:2]
        if rights.startswith("r") and not line.endswith(UNREADABLE):
            start, end = (int(number, 16) for number in span.split("-"))
            if end - start <= LARGEST_REGION:
                yield start, end


def _read_span(memory, start: int, end: int) -> Iterator[bytes]:
    for position in range(start, end, PIECE):
        try:
            memory.seek(position)
            yield memory.read(min(PIECE, end - position))
        except (OSError, OverflowError):
            return
