# SPDX-License-Identifier: Apache-2.0
"""Messages that the bus daemon passes and GDBus cannot read: they must cost nobody more than an answer."""

import pytest

pytestmark = pytest.mark.bus

# Written by hand, since no library builds such messages. The daemon ends the connection of a
# sender whom it does not believe.
SENDER = r'''
import os, socket, struct, sys

TYPE, DESTINATION = sys.argv[1], sys.argv[2]
PATH, MEMBER = b"/org/quorvexvpn/Service1", b"Connect"


def pad(data, size):
    return data + bytes(-len(data) % size)


def text(value):
    return struct.pack("<I", len(value)) + value + b"\0"


def field(code, signature, value):
    return bytes([code, 1]) + signature + b"\0" + value


def body(depth):
    """`depth` variants in one another, and in the innermost a value of the type."""
    inner = TYPE.encode()
    data = b"\x01v\0" * depth + bytes([len(inner)]) + inner + b"\0"
    if TYPE == "y":
        return b"v", data + b"\x07"
    if TYPE[0] == "(":
        return b"v", pad(data, 8) + b"\x07"
    return b"v", pad(data, 4) + bytes(4)


def message(serial, depth, type_, name):
    signature, content = body(depth)
    fields = b""
    for one in (field(1, b"o", text(PATH)), field(2, b"s", text(b"org.quorvexvpn.Service1")),
                field(3, b"s", text(MEMBER)), field(6, b"s", text(name)),
                field(8, b"g", bytes([len(signature)]) + signature + b"\0")):
        fields = pad(fields, 8) + one
    header = struct.pack("<cBBBIII", b"l", type_, 0, 1, len(content), serial, len(fields)) + fields
    return pad(header, 8) + content


def connect():
    bus = socket.socket(socket.AF_UNIX)
    bus.connect("/run/dbus/system_bus_socket")
    bus.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
    assert bus.recv(4096).startswith(b"OK")
    hello = pad(struct.pack("<cBBBIII", b"l", 1, 0, 1, 0, 1, 0), 8)
    fields = b""
    for one in (field(1, b"o", text(b"/org/freedesktop/DBus")), field(2, b"s", text(b"org.freedesktop.DBus")),
                field(3, b"s", text(b"Hello")), field(6, b"s", text(b"org.freedesktop.DBus"))):
        fields = pad(fields, 8) + one
    bus.sendall(b"BEGIN\r\n" + pad(struct.pack("<cBBBIII", b"l", 1, 0, 1, 0, 1, len(fields)) + fields, 8))
    return bus


for depth in range(66):
    for type_ in (1, 4):
        bus = connect()
        bus.sendall(message(2, depth, type_, DESTINATION.encode()))
        bus.shutdown(socket.SHUT_WR)
        while bus.recv(65536):
            pass
print("sent")
'''


GROUND = "/run/quorvexvpn-ground"
UNGUARDED = "Messages from the bus are not guarded: no connection through the relay."
TYPES = {"variants": "y", "arrays": "a" * 32 + "y", "structs": "(" * 32 + "y" + ")" * 32,
         "both": "a" * 32 + "(" * 32 + "y" + ")" * 32}


@pytest.mark.parametrize("innermost", TYPES.values(), ids=TYPES)
def test_they_end_neither_the_service_nor_a_tunnel(front, innermost):
    service = front.start()
    front.connected(kill_switch=True)
    for destination in ("org.quorvexvpn.Service1", *unique_names(front)):
        sent = front.world.run(["/usr/bin/python3", "-c", SENDER, innermost, destination], user="bob", timeout=60)
        assert sent.stdout == "sent\n"
    assert front.alice.call("GetConnectionSnapshot")["stage"] == "connected"
    assert service.alive and "table inet quorvexvpn" in front.world.run(["/media/sbin/nft", "list", "tables"]).stdout
    assert len([line for line in service.journal if "cannot be read was dropped" in line]) <= 1


@pytest.mark.parametrize("left", ["socket", "folder"])
def test_a_start_that_was_killed_amid_its_first_steps_leaves_nothing_to_the_next(front, left):
    folder = front.world.path(GROUND)
    folder.mkdir(mode=0o700)
    if left == "socket":
        front.world.put_file(f"{GROUND}/bus", "")
    front.start()
    assert not folder.exists()


def test_a_service_that_cannot_be_guarded_says_so_and_serves(front):
    front.world.path(f"{GROUND}/bus").mkdir(parents=True)
    front.world.tolerate(UNGUARDED)
    service = front.start()
    front.connected()
    assert len([line for line in service.journal if UNGUARDED in line]) == 1


def unique_names(front) -> list[str]:
    """All connections of the service to the bus, by whatever name they can be addressed."""
    names = [name for name in front.bus("ListNames")[0] if name.startswith(":")]
    return [name for name in names
            if front.bus("GetConnectionUnixProcessID", "(s)", name)[0] == front.service.pid]
