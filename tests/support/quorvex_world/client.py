# SPDX-License-Identifier: Apache-2.0
"""A caller on a world's bus: the outer half of bus_agent.py, with everything it has received."""

import itertools
import json
import socket
import threading
from dataclasses import dataclass
from typing import Any

from .events import Events

BUS_NAME = "org.quorvexvpn.Service1"
OBJECT_PATH = "/org/quorvexvpn/Service1"
INTERFACE = "org.quorvexvpn.Service1"
BUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
DO_NOT_QUEUE = 4

# Longer than the longest bounded tool call of the service, so that a late reply is still a reply.
CALL_TIMEOUT = 30.0


class BusError(Exception):
    """An error reply: its exact name and message."""

    def __init__(self, name: str, message: str):
        super().__init__(f"{name}: {message}")
        self.name = name
        self.message = message


@dataclass(frozen=True)
class Variant:
    """A value with the GVariant type it must travel with."""

    signature: str
    value: Any


@dataclass(frozen=True)
class Body:
    """A message's contents: plain values, and the GVariant text that tells types and order."""

    values: list
    signature: str
    text: str

    @property
    def value(self) -> Any:
        return self.values[0] if len(self.values) == 1 else (tuple(self.values) or None)


@dataclass(frozen=True)
class Signal(Body):
    name: str
    time: float
    sender: str
    path: str
    interface: str


def as_variant(value: Any) -> Variant:
    """The variant that a desktop client would send for a plain value."""
    if isinstance(value, Variant):
        return value
    if isinstance(value, bool):
        return Variant("b", value)
    if isinstance(value, int):
        return Variant("x", value)
    if isinstance(value, (list, tuple)):
        return Variant("as", list(value))
    return Variant("s", value)


def to_json(value: Any) -> Any:
    if isinstance(value, Variant):
        return {"$variant": [value.signature, to_json(value.value)]}
    if isinstance(value, dict):
        return {key: to_json(inner) for key, inner in value.items()}
    if isinstance(value, (list, tuple)):
        return [to_json(inner) for inner in value]
    return value


class Pending:
    """A call on its way."""

    def __init__(self, client: "Client", what: str):
        self._client = client
        self._what = what
        self.answer: Body | BusError | None = None
        self.answered_at: float | None = None

    @property
    def done(self) -> bool:
        return self.answer is not None

    def reply(self, timeout: float = CALL_TIMEOUT) -> Body:
        wanted = f"the reply to {self._what}"
        over = lambda: self.answer or self._client.closed
        self._client.events.wait(over, timeout, wanted)
        answer = self.answer or BusError("local.closed", "the connection ended before the reply")
        if isinstance(answer, BusError):
            raise BusError(answer.name, answer.message)
        return answer

    def result(self, timeout: float = CALL_TIMEOUT) -> Any:
        return self.reply(timeout).value


class Client:
    """One connection to the bus. Made by World.client()."""

    def __init__(self, events: Events, user: str, conversation: socket.socket):
        self.events = events
        self.user = user
        self.signals: list[Signal] = []
        self.owners: dict[str, str] = {}
        self.unique_name = ""
        self.closed = False
        self._refusal = ""
        self._pending: dict[int, Pending] = {}
        self._numbers = itertools.count(1)
        self._marked = 0
        self._conversation = conversation
        threading.Thread(target=self._receive, daemon=True).start()
        events.wait(lambda: self.unique_name or self.closed, 10, f"the bus connection of {user}")
        if self.closed:
            raise ConnectionError(f"the bus did not take {user}: {self._refusal}")

    # Calls

    def call(self, member: str, *arguments: Any, timeout: float = CALL_TIMEOUT) -> Any:
        return self.call_async(member, *arguments).result(timeout)

    def call_reply(self, member: str, *arguments: Any, timeout: float = CALL_TIMEOUT) -> Body:
        return self.call_async(member, *arguments).reply(timeout)

    def call_async(self, member: str, *arguments: Any) -> Pending:
        """A call of the service; a dictionary argument becomes a{sv}."""
        signature = "(" + "a{sv}" * len(arguments) + ")"
        values = [{key: as_variant(value) for key, value in one.items()} for one in arguments]
        return self.raw_call_async(BUS_NAME, OBJECT_PATH, INTERFACE, member, signature, *values)

    def raw_call(self, destination: str, path: str, interface: str, member: str,
                 signature: str = "()", *arguments: Any, timeout: float = CALL_TIMEOUT) -> Any:
        return self.raw_call_async(
            destination, path, interface, member, signature, *arguments).result(timeout)

    def raw_call_async(self, destination: str, path: str, interface: str, member: str,
                       signature: str = "()", *arguments: Any) -> Pending:
        if self.closed:
            raise ConnectionError(f"{self.user} has left the bus")
        number = next(self._numbers)
        pending = self._pending[number] = Pending(self, f"{member} of {self.user}")
        request = {
            "id": number, "destination": destination, "path": path, "interface": interface,
            "member": member, "signature": signature, "arguments": to_json(arguments),
            # The waiting is done here; the inner half only must not give up before.
            "timeout_ms": 600_000,
        }
        self._conversation.sendall(json.dumps(request).encode() + b"\n")
        return pending

    def connect(self, profile_id: Any, protocol: Any, raw_config: Any, **more: Any) -> None:
        self.connect_async(profile_id, protocol, raw_config, **more).result()

    def connect_async(self, profile_id: Any, protocol: Any, raw_config: Any,
                      kill_switch: Any = False, extra: dict | None = None,
                      omit: tuple[str, ...] = ()) -> Pending:
        profile = {"id": profile_id, "protocol": protocol, "rawConfig": raw_config,
                   "killSwitch": kill_switch, **(extra or {})}
        kept = {key: value for key, value in profile.items() if key not in omit}
        return self.call_async("Connect", kept)

    def introspect(self, path: str = OBJECT_PATH) -> str:
        return self.raw_call(BUS_NAME, path, "org.freedesktop.DBus.Introspectable", "Introspect")

    def own_name(self, name: str) -> int:
        """RequestName's answer: 1 is the owner now, 3 another one is."""
        return self.raw_call(*BUS, "RequestName", "(su)", name, DO_NOT_QUEUE)

    def close(self) -> None:
        """Leaves the bus, as a desktop application that ends; returns when it has left."""
        if not self.closed:
            self._conversation.shutdown(socket.SHUT_WR)
            self.events.wait(lambda: self.closed, 10, f"the leave of {self.user}")

    # Signals

    @property
    def stages(self) -> list[str]:
        return [signal.value["stage"] for signal in self._named("SnapshotChanged")]

    @property
    def snapshots(self) -> list[dict]:
        return [signal.value for signal in self._named("SnapshotChanged")]

    @property
    def logs(self) -> list[tuple[str, str]]:
        entries = [signal.value for signal in self._named("LogEmitted")]
        return [(entry["level"], entry["message"]) for entry in entries]

    def mark(self) -> None:
        """From here on the waits only count what arrives later."""
        with self.events.condition:
            self._marked = len(self.signals)

    def wait_stage(self, stage: str, timeout: float = 20) -> Signal:
        return self.wait_signal(
            "SnapshotChanged", lambda signal: signal.value["stage"] == stage, timeout, stage)

    def wait_log(self, text: str, level: str | None = None, timeout: float = 20) -> Signal:
        def matches(signal: Signal) -> bool:
            entry = signal.value
            return text in entry["message"] and level in (None, entry["level"])
        return self.wait_signal("LogEmitted", matches, timeout, text)

    def wait_signal(self, name: str, matches=lambda signal: True, timeout: float = 20,
                    what: str = "") -> Signal:
        def search() -> Signal | None:
            recent = self.signals[self._marked:]
            return next((one for one in recent if one.name == name and matches(one)), None)
        return self.events.wait(search, timeout, f"{self.user}: {name} {what}")

    def _named(self, name: str) -> list[Signal]:
        with self.events.condition:
            return [signal for signal in self.signals if signal.name == name]

    # Receiving

    def _receive(self) -> None:
        with self._conversation.makefile("rb") as lines:
            try:
                for line in lines:
                    message = json.loads(line)
                    self.events.notify(lambda: self._take(message))
            except OSError:
                pass
        self._conversation.close()
        self.events.notify(lambda: setattr(self, "closed", True))

    def _take(self, message: dict) -> None:
        getattr(self, "_on_" + message.pop("event"))(**message)

    def _on_connected(self, unique_name: str, time: float) -> None:
        self.unique_name = unique_name

    def _on_refused(self, error: str) -> None:
        self._refusal = error

    def _on_closed(self, time: float) -> None:
        self.closed = True

    def _on_owner(self, name: str, owner: str, time: float) -> None:
        self.owners[name] = owner

    def _on_signal(self, **fields: Any) -> None:
        self.signals.append(Signal(**fields))

    def _on_reply(self, id: int, time: float, error: str | None = None, message: str = "",
                  **body: Any) -> None:
        pending = self._pending.pop(id)
        pending.answered_at = time
        pending.answer = BusError(error, message) if error is not None else Body(**body)
