# SPDX-License-Identifier: Apache-2.0
"""The service under test as a running process, with its journal and what can be seen of it."""

import contextlib
import os
import re
import signal
from functools import cache
from pathlib import Path
from typing import Iterator

from . import procfs
from .process import Process

INSTALLED = "/usr/libexec/quorvexvpn-service"
PASSED_THROUGH = ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "GCOV_PREFIX",
                  "GCOV_PREFIX_STRIP", "LLVM_PROFILE_FILE")
REPORTS = ("ERROR: AddressSanitizer", "runtime error:", "WARNING: ThreadSanitizer",
           "LeakSanitizer", "CRITICAL **")
CRASHES = {signal.SIGSEGV, signal.SIGABRT, signal.SIGBUS, signal.SIGILL, signal.SIGFPE,
           signal.SIGTRAP}
SANITIZER_SYMBOLS = (b"__asan_init", b"__tsan_init", b"__ubsan_handle", b"__lsan_")


class Service:
    """A run of the service. Made by World.start_service()."""

    def __init__(self, world, process: Process, executable: Path, wrapped: bool):
        self._world = world
        self.executable = executable
        self._process = process
        self._wrapped = wrapped
        self._found: int | None = None if wrapped else process.host_pid

    @property
    def is_sanitized(self) -> bool:
        return is_sanitized(self.executable, self.executable.stat().st_mtime_ns)

    @property
    def journal(self) -> list[str]:
        return self._process.lines

    @property
    def timed_journal(self) -> list[tuple[float, str]]:
        return list(self._process.reader.timed)

    @property
    def process(self) -> Process:
        """The started process: the service, or its wrapper."""
        return self._process

    @property
    def host_pid(self) -> int:
        if self._found is None:
            self._found = self._world.poll(self._find, what="the service below its wrapper")
        return self._found

    @property
    def pid(self) -> int:
        return procfs.inner_pid(self.host_pid) if self._wrapped else self._process.pid

    @property
    def alive(self) -> bool:
        return self._process.alive

    def wait_journal(self, wanted, timeout: float = 20) -> str:
        return self._process.wait_line(wanted, timeout)

    def wait(self, timeout: float = 30) -> int:
        return self._process.wait(timeout)

    def stop(self, timeout: float = 60) -> int:
        self.terminate()
        return self.wait(timeout)

    def terminate(self) -> None:
        self.signal(signal.SIGTERM)

    def kill(self) -> None:
        self.signal(signal.SIGKILL)

    def signal(self, number: int) -> None:
        if not self._wrapped:
            self._process.signal(number)
        elif self.alive:
            with contextlib.suppress(ProcessLookupError):
                os.kill(self.host_pid, number)

    def memory(self) -> Iterator[bytes]:
        return procfs.memory_regions(self.host_pid)

    def memory_contains(self, secret: bytes) -> bool:
        return procfs.memory_contains(self.host_pid, secret)

    def fds(self) -> dict[int, str]:
        return procfs.descriptors(self.host_pid)

    def threads(self) -> dict[int, str]:
        tasks = Path(f"/proc/{self.host_pid}/task")
        names = {}
        for task in tasks.iterdir():
            # A thread may end between the listing and the look.
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):
                names[int(task.name)] = (task / "comm").read_text().strip()
        return names

    def children(self) -> list[dict]:
        """The processes that the service has started and that still live."""
        listed = self._world.processes(everything=True)
        return [one for one in listed if procfs.parent_of(one["host_pid"]) == self.host_pid]

    def faults(self) -> list[str]:
        """What must fail a test whatever it asserts: sanitizer reports, criticals, crashes."""
        lines = [line for line in self.journal if any(report in line for report in REPORTS)]
        if self._process.status is not None and -self._process.status in CRASHES:
            name = signal.Signals(-self._process.status).name
            lines.append(f"the service died of {name}")
        return lines

    def _find(self) -> int | None:
        for host_pid in procfs.processes_in_namespace_of(self._world.init_pid):
            is_wrapper = host_pid == self._process.host_pid
            is_script = not is_wrapper and INSTALLED in procfs.argv_of(host_pid)[:2]
            if is_script or procfs.executable_of(host_pid) == INSTALLED:
                return host_pid
        return None


def passed_environment(world) -> dict[str, str]:
    """What the sanitizers and coverage are told. Files they name are copied into the world, which
    does not show the machine's /tmp."""
    passed = {}
    for name in PASSED_THROUGH:
        options = os.environ.get(name, "")
        for file in re.findall(r"(?:^|:)suppressions=([^:]+)", options):
            world.put_file(f"/run/world/{name}", Path(file).read_bytes())
            options = options.replace(file, f"/run/world/{name}")
        passed.update({name: options} if options else {})
    return passed


@cache
def is_sanitized(executable: Path, modified: int) -> bool:
    """Whether it was built with a sanitizer; `modified` tells one build of it from the next."""
    data = executable.read_bytes()
    return any(symbol in data for symbol in SANITIZER_SYMBOLS)
