#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""Looks for sing-box profiles that the service accepts and that make the real sing-box do what none may do.

Realistic profiles are changed at random: every option name that the program itself knows, in any spelling, at any
place, with values that name canaries, ports and programs; second names; whole objects that open something; odd JSON.
"""

import random
import sys
from pathlib import Path
from typing import Any

sys.path.insert(0, str(Path(__file__).resolve().parent))

from json_texts import Members, Writer, fold, names_in, objects, read  # noqa: E402
from search_world import CANARIES, PORTS, ROOT, Case, Engine, arguments, enter_private_machine, search  # noqa: E402

PROGRAM = ROOT / "build/engines/sing-box"
SKIPPED = 77
# Of the tunnel, and the redirection of TCP, which listens on a port of the kernel's choice.
OWN_ADDRESSES = ("tcp 010013AC ", "tcp6 BADCFEFD000076980000000001000000 ", "tcp6 " + "0" * 32 + " ")


def own_socket(text: str) -> bool:
    return text.startswith(tuple(f"listens on {address}" for address in OWN_ADDRESSES)) and \
        int(text.rsplit(" ", 1)[1]) not in PORTS


def canary(dice: random.Random) -> str:
    return str(CANARIES / dice.choice(("file", "key.pem", "list.json", "program", "socket", "new", "")))


def dangers(dice: random.Random) -> list[tuple[str, Any]]:
    """Members, with the name of the member whose object they belong into, that open something. Root is ""."""
    path, port = canary(dice), dice.choice(PORTS)
    listen = Members([("listen", "0.0.0.0"), ("listen_port", port)])
    ssh = Members([("type", "ssh"), ("tag", "danger"), ("server", "198.51.100.7"), ("private_key_path", path)])
    tor = Members([("type", "tor"), ("tag", "danger"), ("executable_path", str(CANARIES / "program")),
                   ("data_directory", path)])
    plugin = Members([("type", "shadowsocks"), ("tag", "danger"), ("server", "198.51.100.7"), ("server_port", 1),
                      ("method", "aes-128-gcm"), ("password", "x"), ("plugin", "v2ray-plugin"),
                      ("plugin_opts", f"tls;cert={path}")])
    rule_set = Members([("type", "local"), ("tag", "danger"), ("format", "source"), ("path", path)])
    wireguard = Members([("type", "wireguard"), ("tag", "danger"), ("address", ["10.7.0.2/32"]),
                         ("private_key", "YNXtAzepDqRv9H52osJVDQnznT5AM11eCK3ESpwSt04="), ("listen_port", port)])
    return [
        ("", ("log", Members([("output", path)]))),
        ("", ("experimental", Members([("clash_api", Members([("external_controller", f"0.0.0.0:{port}")]))]))),
        ("", ("experimental", Members([("cache_file", Members([("enabled", True), ("path", path)]))]))),
        ("", ("inbounds", [Members([("type", dice.choice(("mixed", "socks", "http"))), *listen])])),
        ("", ("services", [Members([("type", "resolved"), *listen])])),
        ("", ("certificate", Members([("certificate_directory_path", [str(CANARIES)])]))),
        ("", ("endpoints", [wireguard])),
        ("", ("outbounds", [dice.choice((ssh, tor, plugin))])),
        ("outbounds", dice.choice((ssh, tor, plugin))),
        ("dns", ("servers", [Members([("type", "hosts"), ("tag", "danger"), ("path", path)])])),
        ("route", ("rule_set", [rule_set])),
        ("outbound", ("tls", Members([("enabled", True), ("ech", Members([("enabled", True),
                                                                          ("config_path", path)]))]))),
        ("outbound", ("protect_path", str(CANARIES / "socket"))),
        ("outbound", ("netns", path)),
    ]


def value_of(tree: Members, name: str) -> Any:
    return next((value for known, value in tree if known == name), None)


def add_danger(tree: Members, dice: random.Random) -> None:
    place, danger = dice.choice(dangers(dice))
    outbounds = value_of(tree, "outbounds")
    if type(outbounds) is not list or not outbounds:
        return
    if place == "outbounds":
        outbounds.append(Members(respell(danger, dice)))
        return
    target = {"": tree, "outbound": outbounds[0]}.get(place, value_of(tree, place))
    if isinstance(target, Members):
        target.insert(dice.randint(0, len(target)), respell(Members([danger]), dice)[0])


def respell(members: Members, dice: random.Random) -> Members:
    """The members with some names in other spellings, all the way down."""
    odds = dice.choice((0, 0.2, 0.6))

    def again(value: Any) -> Any:
        if isinstance(value, Members):
            return respell(value, dice)
        return [again(one) for one in value] if isinstance(value, list) else value
    return Members((fold(name, dice) if dice.random() < odds else name, again(value)) for name, value in members)


def value(dice: random.Random) -> Any:
    path = canary(dice)
    return dice.choice((path, [path], True, False, dice.choice(PORTS), "0.0.0.0", f"0.0.0.0:{dice.choice(PORTS)}",
                        f"unix:{path}", f"file://{path}", "direct", "local", "tor", 0, "", None, [], Members(),
                        Members([("path", path)]), Members([("enabled", True), ("path", path)]), 2 ** 64, 2 ** 63 - 1))


class SingBoxProfiles:
    """Makes a profile of a name: a realistic one, changed up to three times."""

    def __init__(self, files: list[Path], names: list[str]):
        self._files = files
        self._names = names
        self._changes = (add_danger, add_danger, self._add_option, self._add_option, repeat_option, change_value,
                         change_name)

    def case(self, name: str) -> Case:
        dice = random.Random(name)
        file = dice.choice(self._files)
        tree = read(file.read_text())
        for _ in range(dice.randint(1, 3)):
            dice.choice(self._changes)(tree, dice)
        text = Writer(dice, odd=dice.choice((0, 0, 0, 0.01))).write(tree)
        return Case(file.stem.split("-")[0], text.encode("utf-8", "surrogatepass"))

    def _add_option(self, tree: Members, dice: random.Random) -> None:
        """Any option of the program's at any place."""
        target = dice.choice(list(objects(tree)))
        name = dice.choice(self._names)
        target.insert(dice.randint(0, len(target)),
                      (fold(name, dice) if dice.random() < 0.4 else name, value(dice)))


def repeat_option(tree: Members, dice: random.Random) -> None:
    """A second value beside one that is there, mostly in another spelling."""
    target = dice.choice([one for one in objects(tree) if one])
    name, old = dice.choice(target)
    target.insert(dice.randint(0, len(target)),
                  (fold(name, dice) if dice.random() < 0.8 else name, dice.choice((old, value(dice)))))


def change_value(tree: Members, dice: random.Random) -> None:
    target = dice.choice([one for one in objects(tree) if one])
    place = dice.randrange(len(target))
    target[place] = (target[place][0], value(dice))


def change_name(tree: Members, dice: random.Random) -> None:
    target = dice.choice([one for one in objects(tree) if one])
    place = dice.randrange(len(target))
    target[place] = (fold(target[place][0], dice), target[place][1])


def main() -> int:
    if not PROGRAM.exists():
        print("skipped: no real sing-box on this machine; tests/support/engines brings it")
        return SKIPPED
    enter_private_machine()
    options = arguments(__doc__.splitlines()[0])
    # Python reads no comments, and the fetched program is built without uTLS.
    files = sorted(file for file in (ROOT / "tests/data/profiles/sing-box").glob("*.json")
                   if not any(word in file.read_text() for word in ("/*", '"utls"')))
    engine = Engine([str(PROGRAM), "run", "-c", "{config}", "--disable-color"], b"sing-box started", own_socket)
    return search(options, engine, SingBoxProfiles(files, names_in(PROGRAM)).case)


if __name__ == "__main__":
    sys.exit(main())
