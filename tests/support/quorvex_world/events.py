# SPDX-License-Identifier: Apache-2.0
"""One condition for everything that happens in a world: a test waits for any of it in one way."""

import os
import select
import threading
import time
POLL_INTERVAL = 0.005


class Events:
    def __init__(self):
        self.condition = threading.Condition()
        self.context = lambda: ""

    def notify(self, change=lambda: None) -> None:
        """Makes a change that waiters may be looking at and wakes them."""
        with self.condition:
            change()
            self.condition.notify_all()

    def wait(self, predicate, timeout: float, what: str, interval: float | None = None):
        """The first true value of `predicate`, asked again at each event, and each `interval` s."""
        deadline = time.monotonic() + timeout
        with self.condition:
            while not (value := predicate()):
                left = deadline - time.monotonic()
                if left <= 0:
                    raise TimeoutError(f"waited {timeout} s for {what}\n{self.context()}")
                self.condition.wait(left if interval is None else min(left, interval))
            return value


class LineReader:
    """Collects the lines of a pipe with the time of each, in a thread of its own.

    Whoever asks for the lines first takes what already is in the pipe, so that a line which was
    written before, say, a reply was sent is never missing after that reply.
    """

    def __init__(self, descriptor: int, events: Events):
        self.ended = False
        self._timed: list[tuple[float, str]] = []
        self._rest = b""
        self._descriptor = descriptor
        self._events = events
        threading.Thread(target=self._read, daemon=True).start()

    @property
    def timed(self) -> list[tuple[float, str]]:
        self._take()
        return list(self._timed)

    @property
    def lines(self) -> list[str]:
        return [line for _, line in self.timed]

    def _read(self) -> None:
        while not self.ended:
            wait_readable(self._descriptor)
            self._take()
        os.close(self._descriptor)

    def _take(self) -> None:
        """All that can be read now; under the world's lock, so two takers do not mix lines up."""
        with self._events.condition:
            while not self.ended and is_readable(self._descriptor):
                data = os.read(self._descriptor, 1 << 16)
                self.ended = not data
                *whole, self._rest = (self._rest + data).split(b"\n")
                self._append(whole + ([self._rest] if self.ended and self._rest else []))

    def _append(self, lines: list[bytes]) -> None:
        now = time.monotonic()
        self._timed.extend((now, line.decode(errors="replace")) for line in lines)
        self._events.condition.notify_all()


def wait_readable(*descriptors: int) -> None:
    """Returns when one of them has something to say, its end included."""
    poll = select.poll()
    for descriptor in descriptors:
        poll.register(descriptor, select.POLLIN)
    poll.poll()


def is_readable(descriptor: int) -> bool:
    poll = select.poll()
    poll.register(descriptor, select.POLLIN)
    return bool(poll.poll(0))
