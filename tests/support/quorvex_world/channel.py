# SPDX-License-Identifier: Apache-2.0
"""One message per packet: a dictionary as JSON, and the descriptors that go with it."""

import json
import socket
import threading

LARGEST_MESSAGE = 1 << 18
MOST_DESCRIPTORS = 16


class Channel:
    """A SOCK_SEQPACKET socket on which either side may send at any time."""

    def __init__(self, end: socket.socket):
        self.socket = end
        self._sending = threading.Lock()

    @staticmethod
    def pair() -> tuple["Channel", "Channel"]:
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        return Channel(ours), Channel(theirs)

    def send(self, message: dict, descriptors=()) -> None:
        with self._sending:
            socket.send_fds(self.socket, [json.dumps(message).encode()], list(descriptors))

    def receive(self) -> tuple[dict | None, list[int]]:
        """The next message; None once the other side is gone."""
        try:
            data, descriptors, _, _ = socket.recv_fds(
                self.socket, LARGEST_MESSAGE, MOST_DESCRIPTORS, socket.MSG_CMSG_CLOEXEC)
        except OSError:
            return None, []
        return (json.loads(data) if data else None), descriptors

    def fileno(self) -> int:
        return self.socket.fileno()

    def close(self) -> None:
        """Ends the conversation also for a thread that is waiting in receive()."""
        try:
            self.socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self.socket.close()
