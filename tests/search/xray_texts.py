# SPDX-License-Identifier: Apache-2.0
"""Xray profiles out of a seed: realistic ones with something in them that an honest writer would not put there.

What is planted would, in the right place and spelling, make Xray open a port, write or read a file, run a program
or change the machine. The places are known options, and any place with any name that the engine's own library knows
for an option.
"""

import random
from collections.abc import Callable, Sequence
from typing import Any

from json_texts import Members, Writer, fold, objects, read

# How much of a text is written as json-glib alone reads it; most of what it then says is refused.
ODD = (0, 0, 0, 0, 0.002, 0.01)


def member(place: Members, name: str) -> Any:
    return next((value for key, value in place if key == name), None)


def child(place: Members, name: str) -> Members:
    """The member as an object, made if there is none."""
    found = member(place, name)
    if not isinstance(found, Members):
        found = Members()
        place.append((name, found))
    return found


def first(root: Members, name: str) -> Members:
    """The first object of a list; one that belongs to nothing if there is none any more."""
    found = member(root, name)
    return found[0] if isinstance(found, list) and found and isinstance(found[0], Members) else Members()


class XrayTexts:
    """Profiles, the same one for a seed each time.

    `bait` is a directory whose files nobody but a misled engine touches, `ports` what only such a one opens.
    """

    def __init__(self, profiles: list[str], names: list[str], bait: str, ports: Sequence[int]):
        self.random = random.Random()
        self.profiles, self.names, self.bait, self.ports = profiles, names, bait, ports

    def text(self, seed: str) -> str:
        self.random.seed(seed)
        profile = read(self.random.choice(self.profiles))
        for _ in range(self.random.choice((1, 1, 1, 2, 3))):
            self.random.choice((self._plant_known, self._plant_blindly, self._plant_blindly, self._respell))(profile)
        return Writer(self.random, self.random.choice(ODD)).write(profile)

    def _path(self) -> str:
        return f"{self.bait}/{self.random.choice(('file', 'list.dat', 'program', 'secrets', 'new'))}"

    def _endpoint(self) -> str:
        return f"{self.random.choice(('127.0.0.1', '0.0.0.0', '[::]', ''))}:{self.random.choice(self.ports)}"

    def _value(self, depth: int = 0):
        choices: list[Callable] = [
            self._path, self._endpoint, lambda: self.random.choice(self.ports), lambda: True, lambda: False,
            lambda: None, lambda: f"ext:{self._path()}:cn", lambda: "!ext:list.dat:cn", lambda: [self._path()],
            # Taken from the working directory or from where lists lie.
            lambda: self.random.choice(("new", "list.dat", "script.lua")),
            lambda: "local", lambda: "unix", lambda: f"file://{self._path()}"]
        if depth < 2:
            choices += [lambda: Members([(self.random.choice(self.names), self._value(depth + 1))]),
                        lambda: [Members([(self.random.choice(self.names), self._value(depth + 1))])]]
        return self.random.choice(choices)()

    def _plant_blindly(self, profile: Members) -> None:
        place = self.random.choice(list(objects(profile)))
        place.insert(self.random.randint(0, len(place)), (self.random.choice(self.names), self._value()))

    def _plant_known(self, profile: Members) -> None:
        place, name, value = self.random.choice(self._known(profile))
        if self.random.random() < 0.7:
            name = fold(name, self.random)
        position = self.random.choice((0, len(place)))
        place.insert(position, (name, value))

    def _known(self, root: Members) -> list[tuple[Members, str, object]]:
        """Options that do harm, each with its place in this profile."""
        inbound, outbound = first(root, "inbounds"), first(root, "outbounds")
        stream = child(outbound, "streamSettings")
        tls, reality = child(stream, "tlsSettings"), child(stream, "realitySettings")
        tun, settings, dns = child(inbound, "settings"), child(outbound, "settings"), child(root, "dns")
        port, path = self.random.choice(self.ports), self._path()
        listener = Members([("protocol", "socks"), ("listen", "127.0.0.1"), ("port", port)])
        keys = Members([("masterKeyLog", path)])
        return [
            (root, "log", Members([("access", path)])), (child(root, "log"), "error", path),
            (child(root, "log"), "access", path),
            (root, "api", Members([("tag", "a"), ("listen", self._endpoint()), ("services", ["StatsService"])])),
            (root, "metrics", Members([("listen", self._endpoint())])),
            (root, "env", Members([("XRAY_BROWSER_DIALER", self._endpoint())])),
            (root, "inbounds", [listener]), (inbound, "protocol", "socks"), (inbound, "port", port),
            (inbound, "listen", path), (inbound, "settings", Members([("name", "bait0")])),
            (tun, "name", "bait0"), (tun, "gateway", ["10.77.0.1/24"]), (tun, "autoSystemDnsToGateway", True),
            (tun, "autoOutboundsInterface", "bait0"),
            (root, "routing", Members([("script", self.bait + "/script.lua")])),
            (child(root, "routing"), "script", self.bait + "/script.lua"), (dns, "script", self.bait + "/script.lua"),
            (dns, "hosts", Members([("ext:list.dat:cn", "192.0.2.1")])),
            (dns, "servers", [Members([("address", "1.1.1.1"), ("expectIPs", ["!ext:list.dat:cn"])])]),
            (dns, "servers", [Members([("address", "1.1.1.1"), ("domains", "a.test,ext:list.dat:cn")])]),
            (tls, "masterKeyLog", path), (reality, "masterKeyLog", path),
            (tls, "certificates", [Members([("certificateFile", path), ("keyFile", path), ("usage", "verify")])]),
            (stream, "tlsSettings", keys), (stream, "realitySettings", keys),
            (stream, "network", "xdrive"),
            (stream, "xdriveSettings", Members([("service", "local"), ("remoteFolder", self.bait + "/drive")])),
            (stream, "sockopt", Members([("customSockopt", [Members([("opt", "1"), ("value", "1")])])])),
            (outbound, "protocol", self.random.choice(("wireguard", "freedom", "direct"))),
            (settings, "noKernelTun", False), (settings, "reverse", Members([("tag", "r")])),
            (outbound, "streamSettings", Members([("security", "tls"), ("tlsSettings", keys)])),
        ]

    def _respell(self, profile: Members) -> None:
        """A member in another spelling: alone, or beside the first one with another value."""
        place = self.random.choice([one for one in objects(profile) if one])
        index = self.random.randrange(len(place))
        name, value = place[index]
        if self.random.random() < 0.5:
            place[index] = (fold(name, self.random), value)
        else:
            place.insert(self.random.randint(0, len(place)), (fold(name, self.random), self._value()))
