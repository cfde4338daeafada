# SPDX-License-Identifier: Apache-2.0
"""Processes of a world, held by a descriptor, so that a signal never meets a reused number."""

import os
import signal
from dataclasses import dataclass
from pathlib import Path

from .events import Events, LineReader


@dataclass
class Completed:
    """How a command ended and what it wrote."""

    argv: list[str]
    status: int
    stdout: str
    stderr: str


class CommandFailed(AssertionError):
    def __init__(self, completed: Completed):
        outputs = completed.stdout + completed.stderr
        super().__init__(f"{completed.argv} ended with {completed.status}\n{outputs}")
        self.completed = completed


class Process:
    """Started by the world's init. `status`: the exit status, or minus the signal that ended it."""

    def __init__(self, events: Events, argv: list[str], pid: int, pidfd: int):
        self.argv = argv
        self.pid = pid
        self.status: int | None = None
        self.reader: LineReader | None = None
        self._events = events
        self._pidfd = pidfd
        self.host_pid = _pid_behind(pidfd)

    @property
    def alive(self) -> bool:
        return self.status is None

    @property
    def lines(self) -> list[str]:
        return self.reader.lines if self.reader else []

    def signal(self, number: int) -> None:
        try:
            signal.pidfd_send_signal(self._pidfd, number)
        except ProcessLookupError:
            pass

    def terminate(self) -> None:
        self.signal(signal.SIGTERM)

    def kill(self) -> None:
        self.signal(signal.SIGKILL)

    def wait(self, timeout: float = 10) -> int:
        self._events.wait(lambda: self.status is not None, timeout, f"the end of {self.argv}")
        return self.status

    def wait_line(self, wanted, timeout: float = 10) -> str:
        """The first line of output that holds the text, or for which the predicate is true."""
        matches = wanted if callable(wanted) else lambda line: wanted in line

        def search() -> tuple[str] | None:
            found = next(((line,) for line in self.lines if matches(line)), None)
            return found or self._gave_up(wanted)
        return self._events.wait(search, timeout, f"a line with {wanted!r} of {self.argv}")[0]

    def _gave_up(self, wanted) -> None:
        """Nothing can come any more: fail now, not at the deadline."""
        if self.reader and self.reader.ended and self.status is not None:
            output = "\n".join(self.lines)
            raise AssertionError(f"{self.argv} ended without {wanted!r}:\n{output}")

    def on_exit(self, status: int) -> None:
        self._events.notify(lambda: setattr(self, "status", status))

    def close(self) -> None:
        os.close(self._pidfd)


def _pid_behind(pidfd: int) -> int:
    """The process id as the test's own process namespace counts it; -1 when it is gone already."""
    for line in Path(f"/proc/self/fdinfo/{pidfd}").read_text().splitlines():
        if line.startswith("Pid:"):
            return int(line.split()[1])
    return -1
