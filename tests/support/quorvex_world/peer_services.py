# SPDX-License-Identifier: Apache-2.0
"""Small servers and senders inside a peer's network; each says when it is ready.

They answer with the address they saw, so that a test can tell which way the traffic came.
"""

import socket
import struct

# A frame that only captures see; no filter of a test is about this port, and nobody listens on it.
FENCE_PORT = 40999


def _family(address: str) -> int:
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def http_server(conversation: socket.socket, address: str, port: int) -> None:
    """Answers every GET with 200 and the caller's address."""
    server = socket.socket(_family(address), socket.SOCK_STREAM)
    server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    server.bind((address, port))
    server.listen(16)
    conversation.sendall(b"ready")
    while True:
        caller, source = server.accept()
        with caller:
            caller.settimeout(5)
            _answer_http(caller, source[0])


def _answer_http(caller: socket.socket, source: str) -> None:
    try:
        request = b""
        while b"\r\n\r\n" not in request:
            data = caller.recv(4096)
            if not data:
                return
            request += data
        head = f"HTTP/1.0 200 OK\r\nContent-Length: {len(source)}\r\n\r\n"
        caller.sendall((head + source).encode())
    except OSError:
        return


def udp_echo(conversation: socket.socket, address: str, port: int) -> None:
    """Answers every datagram with the caller's address, a blank and the same bytes."""
    server = socket.socket(_family(address), socket.SOCK_DGRAM)
    server.bind((address, port))
    conversation.sendall(b"ready")
    while True:
        data, source = server.recvfrom(65536)
        server.sendto(source[0].encode() + b" " + data, source)


def udp_exchange(conversation: socket.socket, address: str, port: int, text: str,
                 timeout: float) -> None:
    """Sends one datagram and reports the answer: nothing when none comes or sending is refused."""
    conversation.sendall(b"ready")
    client = socket.socket(_family(address), socket.SOCK_DGRAM)
    client.settimeout(timeout)
    try:
        client.sendto(text.encode(), (address, port))
        conversation.sendall(client.recvfrom(65536)[0])
    except OSError:
        pass


def send_fence(conversation: socket.socket, device: str, tag: int) -> None:
    """Puts one numbered UDP packet on a device, past routing and firewall: once a capture shows it,
    the capture is complete."""
    payload = struct.pack("!HHHH", FENCE_PORT, FENCE_PORT, 8 + tag, 0) + bytes(tag)
    # Documentation addresses: no host of a test has them, so the packet goes no further.
    source, target = socket.inet_aton("192.0.2.254"), socket.inet_aton("192.0.2.253")
    head = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), tag, 0, 1,
                       socket.IPPROTO_UDP, 0, source, target)
    with socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM) as raw:
        raw.sendto(head + payload, (device, 0x0800, 0, 0, b"\xff" * 6))
    conversation.sendall(b"ready")
