# SPDX-License-Identifier: Apache-2.0
"""A name server for a few names, inside a peer's network."""

import socket
import struct

TYPES = {1: socket.AF_INET, 28: socket.AF_INET6}
NO_SUCH_NAME = 3
ANSWER_FLAGS = 0x8580  # An authoritative answer to a query, recursion available.
NAME_OF_QUESTION = 0xC00C
SECONDS_TO_LIVE = 60


def run(conversation: socket.socket, address: str, port: int, names: dict[str, list[str]],
        silent: bool) -> None:
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    server = socket.socket(family, socket.SOCK_DGRAM)
    server.bind((address, port))
    conversation.sendall(b"ready")
    while True:
        query, source = server.recvfrom(4096)
        if not silent:
            server.sendto(answer(query, names), source)


def answer(query: bytes, names: dict[str, list[str]]) -> bytes:
    """The whole reply to a query with one question; an empty list of addresses is no error."""
    name, end = read_name(query)
    (kind,) = struct.unpack_from("!H", query, end)
    known = names.get(name.lower())
    records = [record(kind, one) for one in known or [] if is_of_kind(one, kind)]
    flags = ANSWER_FLAGS | (NO_SUCH_NAME if known is None else 0)
    head = query[:2] + struct.pack("!5H", flags, 1, len(records), 0, 0)
    return head + query[12:end + 4] + b"".join(records)


def read_name(query: bytes) -> tuple[str, int]:
    """The question's name and the place behind it."""
    labels, place = [], 12
    while length := query[place]:
        labels.append(query[place + 1:place + 1 + length].decode())
        place += 1 + length
    return ".".join(labels), place + 1


def is_of_kind(address: str, kind: int) -> bool:
    return kind in TYPES and (":" in address) == (TYPES[kind] == socket.AF_INET6)


def record(kind: int, address: str) -> bytes:
    data = socket.inet_pton(TYPES[kind], address)
    return struct.pack("!HHHIH", NAME_OF_QUESTION, kind, 1, SECONDS_TO_LIVE, len(data)) + data
