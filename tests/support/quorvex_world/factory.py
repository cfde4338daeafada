# SPDX-License-Identifier: Apache-2.0
"""The process that worlds are forked from.

It loads GLib once, so that neither a world nor a bus client inside it pays for that again, and it
has one thread, so that forking is safe, which cannot be said of a test process. It ends when the
test process does.
"""

import gc
import os
import signal
import socket
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

from gi.repository import Gio, GLib  # noqa: E402,F401  (every fork has them)

from quorvex_world import init, kernel  # noqa: E402
from quorvex_world.channel import Channel  # noqa: E402


def launch(world: Channel, options: dict) -> None:
    """Forks PID 1 of a new world, hands its descriptor to the test and waits for its end."""
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    os.setsid()
    # The other namespaces are PID 1's alone: nothing of the world may outlive it, not even this.
    kernel.unshare(kernel.CLONE_NEWPID)
    child = os.fork()
    if child == 0:
        init.run(world, options)
        os._exit(0)
    world.send({"event": "born", "pid": child}, [os.pidfd_open(child)])
    # A plain close: shutting the socket down would end the conversation of PID 1 as well.
    world.socket.close()
    os.waitpid(child, 0)


def serve(requests: Channel) -> None:
    while True:
        options, descriptors = requests.receive()
        if options is None:
            return
        world_fd = descriptors[0]
        if os.fork() == 0:
            requests.socket.close()
            in_child(world_fd, options)
        os.close(world_fd)


def in_child(world_fd: int, options: dict) -> None:
    try:
        launch(Channel(socket.socket(fileno=world_fd)), options)
    finally:
        os._exit(0)


def main() -> None:
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)
    gc.collect()
    gc.freeze()
    serve(Channel(socket.socket(fileno=int(sys.argv[1]))))


if __name__ == "__main__":
    main()
