# SPDX-License-Identifier: Apache-2.0
"""Calls as long as the bus allows: a message that the service sends in answer to one must never be longer, or the bus
would throw the service out, at the word of a user who may do nothing at all."""

import pytest

pytestmark = pytest.mark.bus

# What Debian's system bus lets pass; all of the call but its padding takes less than the largest distance below.
LIMIT = 32 * 1024 * 1024
DISTANCES = [8192, 1024, 256, 240, 224, 208, 192, 128, 0]

# Made where it is sent from: 32 MiB are too much for the ordinary client's pipe.
CALLER = """
import sys
from gi.repository import Gio, GLib
bus = Gio.bus_get_sync(Gio.BusType.SYSTEM)
bus.set_exit_on_close(False)
profile = {"id": GLib.Variant("s", "p1"), "padding": GLib.Variant("s", "x" * int(sys.argv[1]))}
try:
    bus.call_sync("org.quorvexvpn.Service1", "/org/quorvexvpn/Service1", "org.quorvexvpn.Service1", "Connect",
                  GLib.Variant("(a{sv})", (profile,)), None, Gio.DBusCallFlags.NONE, 20000, None)
except GLib.Error as error:
    print(Gio.DBusError.get_remote_error(error) or error.message)
"""


def answer_to_a_call_with(front, padding: int) -> str:
    return front.world.run(["/usr/bin/python3", "-c", CALLER, str(padding)], user="bob", timeout=30).stdout.strip()


def test_refused_calls_up_to_the_limit_leave_the_service_on_the_bus(front):
    service = front.start()
    answers = [answer_to_a_call_with(front, LIMIT - distance) for distance in DISTANCES]
    assert service.alive
    assert front.alice.call("GetConnectionSnapshot") == {"stage": "disconnected"}
    refused = [answer == "org.quorvexvpn.Error.NotAuthorized" for answer in answers]
    # The longest ones exceed the limit and end with their sender's connection: so the limit has been reached.
    assert refused == sorted(refused, reverse=True)
    assert refused[0] and not refused[-1]
