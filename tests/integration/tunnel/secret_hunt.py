# SPDX-License-Identifier: Apache-2.0
"""Looks for keys where they must not be: in memory, in files, in command lines and environments.

A key is searched as the text that the profile holds and as the bytes that the text stands for, and also in parts: a
copy of which the allocator has overwritten the first bytes still gives most of the key away.
"""

import base64
import itertools
from array import array
from pathlib import Path
from typing import Iterator

# Each stretch of 15 bytes of a key holds one of its parts.
PART = 12
STEP = 4
PAGE = 4096
UNREADABLE = ("[vvar]", "[vvar_vclock]", "[vsyscall]")
DIRECTORIES = ("/run", "/tmp", "/dev/shm", "/etc")
SCENERY = ("/run/world/", "/run/netns/")


def parts(secret: str) -> list[bytes]:
    found = []
    for form in (secret.encode(), base64.b64decode(secret)):
        found += [form[start:start + PART] for start in range(0, len(form) - PART + 1, STEP)]
    return found


def in_memory(host_pid: int, secrets: list[str]) -> list[str]:
    """Where in a process's memory parts of the secrets stand, with what stands around them."""
    wanted = [part for secret in secrets for part in parts(secret)]
    found = []
    for address, name, data in mappings(host_pid):
        for part in wanted:
            position = data.find(part)
            if position >= 0:
                around = data[max(0, position - 64):position + 64]
                found.append(f"{name} at {address + position:#x}: {around!r}")
    return found


def mappings(host_pid: int) -> Iterator[tuple[int, str, bytes]]:
    """All that is readable and in memory, but for the read-only pages of programs and libraries."""
    with open(f"/proc/{host_pid}/mem", "rb", buffering=0) as memory:
        for line in Path(f"/proc/{host_pid}/maps").read_text().splitlines():
            span, rights, _, _, _, *name = line.split(maxsplit=5)
            from_a_file = "".join(name).startswith("/") and "w" not in rights
            if rights.startswith("r") and not line.endswith(UNREADABLE) and not from_a_file:
                start, end = (int(number, 16) for number in span.split("-"))
                for first, last in present(host_pid, start, end):
                    memory.seek(first)
                    yield first, "".join(name) or "anonymous", memory.read(last - first)


def present(host_pid: int, start: int, end: int) -> Iterator[tuple[int, int]]:
    """The stretches of a mapping that have ever been touched; most of a thread's stack never is."""
    with open(f"/proc/{host_pid}/pagemap", "rb", buffering=0) as pagemap:
        pagemap.seek(start // PAGE * 8)
        entries = array("Q", pagemap.read((end - start) // PAGE * 8))
    touched = [entry >> 62 != 0 for entry in entries]
    position = start
    for is_touched, run in itertools.groupby(touched):
        length = len(list(run)) * PAGE
        if is_touched:
            yield position, position + length
        position += length


def in_processes(world, secrets: list[str]) -> list[str]:
    """Command lines and environments of all processes of the world that hold a secret."""
    found = []
    for process in world.processes(everything=True):
        for name in ("cmdline", "environ"):
            try:
                data = Path(f"/proc/{process['host_pid']}/{name}").read_bytes()
            except OSError:
                continue  # It has ended.
            found += [f"{name} of {process['argv']}" for secret in secrets if secret.encode() in data]
    return found


def in_files(world, secrets: list[str]) -> list[str]:
    """Files that hold a secret in the directories of the world that anybody could write; the test's own left out."""
    found = []
    for top in DIRECTORIES:
        for entry in world.path(top).rglob("*"):
            name = "/" + str(entry.relative_to(world.path("/")))
            if entry.is_file() and not entry.is_symlink() and not name.startswith(SCENERY):
                data = entry.read_bytes()
                found += [name for secret in secrets if secret.encode() in data]
    return sorted(set(found))


def keeps_freed_memory(executable: Path) -> bool:
    """Whether a sanitizer's allocator is in the place of the shipped one."""
    return any(symbol in executable.read_bytes() for symbol in (b"__asan_init", b"__tsan_init"))
