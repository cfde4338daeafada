# SPDX-License-Identifier: Apache-2.0
"""The inner half of a bus client: a GDBus connection under a real user's id, driven by JSON lines.

The outer half is client.py. Only GDBus speaks to the bus here, so the service sees the caller it is
made for.
"""

import json
import os
import socket
import time

from gi.repository import Gio, GLib

ADDRESS = "unix:path=/run/dbus/system_bus_socket"
INTERFACE = "org.quorvexvpn.Service1"


def decode(value):
    """JSON to what GLib.Variant takes; a variant travels as {"$variant": [signature, value]}."""
    if isinstance(value, dict):
        if "$variant" in value:
            signature, inner = value["$variant"]
            return GLib.Variant(signature, decode(inner))
        return {key: decode(inner) for key, inner in value.items()}
    if isinstance(value, list):
        return [decode(inner) for inner in value]
    return value


def describe(body: GLib.Variant | None) -> dict:
    """A message body as plain values and as GVariant text, which alone tells types and order."""
    if body is None:
        return {"values": [], "signature": "()", "text": "()"}
    return {"values": list(body.unpack()), "signature": body.get_type_string(),
            "text": body.print_(True)}


class Agent:
    def __init__(self, conversation: socket.socket, watched_names: list[str]):
        self.conversation = conversation
        self.loop = GLib.MainLoop()
        flags = Gio.DBusConnectionFlags
        self.bus = Gio.DBusConnection.new_for_address_sync(
            ADDRESS, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None)
        self.bus.connect("closed", lambda *_: self.tell(event="closed"))
        self.subscribe()
        for name in watched_names:
            self.watch_owner(name)
        self.tell(event="connected", unique_name=self.bus.get_unique_name())

    def tell(self, **message) -> None:
        message["time"] = time.monotonic()
        self.conversation.sendall(json.dumps(message).encode() + b"\n")

    def subscribe(self) -> None:
        """By interface, not by name: the first log entry goes out before the name is owned."""
        self.bus.signal_subscribe(
            None, INTERFACE, None, None, None, Gio.DBusSignalFlags.NONE, self.on_signal)
        self.settle()

    def settle(self) -> None:
        """Match rules are sent without waiting; one answered call proves that the bus has them."""
        self.bus.call_sync(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
            None, None, Gio.DBusCallFlags.NONE, -1, None)

    def watch_owner(self, name: str) -> None:
        # GDBus asks for the present owner itself and reports each change from then on.
        Gio.bus_watch_name_on_connection(
            self.bus, name, Gio.BusNameWatcherFlags.NONE,
            lambda connection, name, owner: self.tell(event="owner", name=name, owner=owner),
            lambda connection, name: self.tell(event="owner", name=name, owner=""))

    def on_signal(self, connection, sender, path, interface, name, body) -> None:
        self.tell(event="signal", sender=sender, path=path, interface=interface, name=name,
                  **describe(body))

    def call(self, request: dict) -> None:
        message = Gio.DBusMessage.new_method_call(
            request["destination"], request["path"], request["interface"], request["member"])
        if request["signature"] != "()":
            arguments = tuple(decode(value) for value in request["arguments"])
            message.set_body(GLib.Variant(request["signature"], arguments))
        self.bus.send_message_with_reply(
            message, Gio.DBusSendMessageFlags.NONE, request["timeout_ms"], None,
            self.on_reply, request["id"])

    def on_reply(self, connection, result, number: int) -> None:
        try:
            reply = connection.send_message_with_reply_finish(result)
        except GLib.Error as error:
            local = "local." + error.domain
            self.tell(event="reply", id=number, error=local, message=error.message)
            return
        body = describe(reply.get_body())
        if reply.get_message_type() == Gio.DBusMessageType.ERROR:
            text = body["values"][0] if body["values"] else ""
            self.tell(event="reply", id=number, error=reply.get_error_name(), message=text)
        else:
            self.tell(event="reply", id=number, **body)

    def run(self) -> None:
        self.requests = LineSource(self.conversation)
        GLib.io_add_watch(self.conversation.fileno(), GLib.PRIORITY_DEFAULT,
                          GLib.IOCondition.IN | GLib.IOCondition.HUP, self.on_readable)
        self.loop.run()

    def on_readable(self, source, condition) -> bool:
        lines = self.requests.read()
        if lines is None:
            self.loop.quit()
            return False
        for line in lines:
            self.call(json.loads(line))
        return True


class LineSource:
    """Whole lines from a socket, as many as one read brings."""

    def __init__(self, conversation: socket.socket):
        self.conversation = conversation
        self.rest = b""

    def read(self) -> list[bytes] | None:
        data = self.conversation.recv(1 << 16)
        if not data:
            return None
        *lines, self.rest = (self.rest + data).split(b"\n")
        return lines


def run(conversation: socket.socket, watched_names: list[str]) -> None:
    try:
        agent = Agent(conversation, watched_names)
    except GLib.Error as error:
        refusal = {"event": "refused", "error": error.message}
        conversation.sendall(json.dumps(refusal).encode() + b"\n")
        return
    agent.run()
    if not agent.bus.is_closed():
        agent.bus.close_sync(None)
    # GLib's worker thread is of no use any more, and nothing here needs an orderly end.
    os._exit(0)
