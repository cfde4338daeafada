# SPDX-License-Identifier: Apache-2.0
"""The test process's one factory of worlds, started at the first need and again after a fork."""

import os
import subprocess
import threading
from pathlib import Path

from .channel import Channel

_lock = threading.Lock()
_running: tuple[int, Channel, subprocess.Popen] | None = None


def request_world(end_for_init: Channel, options: dict) -> None:
    """Asks for a new world, whose PID 1 speaks over the given end; ours of it is closed."""
    global _running
    with _lock:
        # Python's standard channel of a forked test process still belongs to its parent.
        if _running is None or _running[0] != os.getpid():
            _running = (os.getpid(), *_start())
    _running[1].send(options, [end_for_init.fileno()])
    end_for_init.socket.close()


def _start() -> tuple[Channel, subprocess.Popen]:
    ours, theirs = Channel.pair()
    factory = subprocess.Popen(
        ["/usr/bin/python3", "-I", "-B", Path(__file__).with_name("factory.py"),
         str(theirs.fileno())],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, pass_fds=[theirs.fileno()],
        start_new_session=True)
    theirs.socket.close()
    return ours, factory
