#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Looks for an OpenVPN profile that the service accepts and with which OpenVPN, as root, does what no profile may.

A profile is a realistic one with dangerous lines in it, hidden where OpenVPN's reading of a text and a plain one part:
behind quotes, backslashes, a byte order mark, tags that close for one reader only, and the borders of its line pieces.
"""

import random
import re
import subprocess
import sys
from pathlib import Path
from typing import Callable

from search_world import CANARIES, OUR_FILES, PORTS, ROOT, Case, Engine, arguments, enter_private_machine, search

PROGRAM = Path("/usr/sbin/openvpn")
HELPER = Path("/usr/libexec/quorvexvpn-dns")
SKIPPED = 77
# The service's own command line.
COMMAND = [str(PROGRAM), "--config", "{config}", "--script-security", "2", "--up", str(HELPER), "--down", str(HELPER),
           "--down-pre", "--auth-nocache", "--writepid", str(OUR_FILES / "openvpn.pid"), "--verb", "3",
           "--suppress-timestamps"]
# What it prints just before it opens its socket to the server.
UP = b"[AF_INET"
PIECE = 255
MARK = "\ufeff"
# The one that takes any text comes often, so that the engine gets far.
BLOCKS = ["ca", "cert", "key", "tls-auth", "tls-crypt", "pkcs12", "crl-verify", "dh", *["auth-user-pass"] * 8]
LOGIN = "user\npassword"

Dice = random.Random


def canary(dice: Dice) -> str:
    return str(CANARIES / dice.choice(("file", "key.pem", "program", "new", "socket")))


def port(dice: Dice) -> str:
    return str(dice.choice(PORTS))


def dangerous_line(dice: Dice) -> str:
    """What an engine must not get to read as a directive."""
    path, number = canary(dice), port(dice)
    return dice.choice([
        f"log {path}", f"log-append {path}", f"status {path} 1", f"writepid {path}", f"config {path}", f"cd {path}",
        f"ca {path}", f"cert {path}", f"key {path}", f"pkcs12 {path}", f"auth-user-pass {path}", f"tls-auth {path} 1",
        f"tls-crypt {path}", f"extra-certs {path}", f"crl-verify {path}", f"dh {path}", f"askpass {path}",
        f"plugin {CANARIES}/program", f"up {CANARIES}/program", f"ipchange {CANARIES}/program",
        f"tls-verify {CANARIES}/program", f"management 127.0.0.1 {number}", f"management {CANARIES}/new unix",
        f"lport {number}", f"local 127.0.0.1\nlport {number}", f"bind\nport {number}", f"http-proxy 10.99.0.2 1 {path}",
        f"socks-proxy 10.99.0.2 1 {path}", "daemon", f"replay-persist {path}", f"chroot {CANARIES}", f"capath {path}",
        f"genkey secret {path}", f"tmp-dir {path}", f"tls-export-cert {path}", f"iproute {CANARIES}/program",
        f"port-share 127.0.0.1 {number} {path}", f"mode server\ntls-server\nlport {number}", "dev tap7", "dev tun7",
        f"proto tcp-server\nlport {number}", f"providers {path}", f"engine {path}", f"memstats {path}",
        f"http-proxy-user-pass {path}", f"auth-gen-token-secret {path}", f"pkcs11-providers {CANARIES}/program"])


def any_option(dice: Dice, names: list[str]) -> str:
    words = [canary(dice), port(dice), "0", "1", "x", "auto", "10.99.0.2", "tcp-server", "\"a b\"", "[inline]", "tun"]
    return " ".join([dice.choice(names), *dice.sample(words, dice.choice((0, 0, 1, 1, 2, 3)))])


def quote_name(line: str, dice: Dice) -> str:
    name, _, rest = line.partition(" ")
    quote = dice.choice("\"'")
    return dice.choice((f"{quote}{name}{quote} {rest}", f"{quote}--{name}{quote} {rest}", f"{quote}{name}{quote}{rest}"))


def escape(line: str, dice: Dice) -> str:
    place = dice.randint(0, len(line))
    return dice.choice((f"\\ {line}", f"\\\t{line}", f"{line}\\", f"{line[:place]}\\{line[place:]}"))


def spell(line: str, dice: Dice) -> str:
    return dice.choice((f"--{line}", f"  {line}\r", line.replace(" ", "\t"), line.upper(), line.title(), f"{line} # x",
                        f"{line} ; x", f"nobind\r{line}", f"#\r{line}", f"\v{line}\f", f"----{line}", f"\\#\\\n{line}"))


def filling(dice: Dice) -> str:
    """As many bytes as OpenVPN reads at once, or nearly."""
    return dice.choice("x \t") * (PIECE * dice.randint(1, 3) + dice.choice((0, 0, 0, -1, 1, -4, -5)))


def early_end(line: str, dice: Dice) -> str:
    """A block that ends before its end for a reader that looks at pieces or at the beginnings of lines."""
    name = dice.choice(BLOCKS)
    end = dice.choice((f"</{name}> x", f"</{name}>x", f" \t</{name}>\\", f"{filling(dice)}</{name}>",
                       f"{filling(dice)} </{name}> x", f"</{name}></{name}>", f"\"</{name}>\"", f"</{name.upper()}>"))
    return f"<{name}>\n{LOGIN}\n{end}\n{line}\n<{name}>\n{LOGIN}\n</{name}>"


def late_end(line: str, dice: Dice) -> str:
    """A block that goes on for such a reader."""
    name = dice.choice(BLOCKS)
    end = dice.choice((f"</{name.upper()}>", f"{' ' * (PIECE - 3)}</{name}>", f"</{name}\v>", f"</{name.title()}>"))
    return f"<{name}>\n{LOGIN}\n{end}\n{line}\n<{name}>\n{LOGIN}\n</{name}>\n{line}"


def odd_beginning(line: str, dice: Dice) -> str:
    """A block that begins for one reader only."""
    name = dice.choice((*BLOCKS, "connection", "http-proxy-user-pass", "plugin", "up"))
    begin = dice.choice((f"--<{name}>", f"\"<{name}>\"", f"'<{name}>'", f"\\ <{name}>", f"<{name}> # x", f"<{name.upper()}>",
                         f"<{name}>\\", f"\v<{name}>", f"<{name} >"))
    return f"{begin}\n{line}\nremote 10.99.0.2\n</{name}>\n{line}"


def long_line(line: str, dice: Dice) -> str:
    return dice.choice((f"# {filling(dice)}\n{line}", f"#{filling(dice)}{line}", f"verb 3 {filling(dice)}{line}",
                        f"dev tun #{filling(dice)}{line}", f"{filling(dice)}{line}"))


def ignored(line: str, dice: Dice) -> str:
    name = line.split()[0]
    return f"ignore-unknown-option {dice.choice((name, name.upper(), 'connection', 'no-iv'))}\n{line}"


class OpenVpnProfiles:
    """Makes a profile of a name: a realistic one with up to three lines more."""

    def __init__(self, files: list[Path], names: list[str]):
        self._texts = [reachable(file.read_text(encoding="utf-8-sig")) for file in files]
        self._names = names
        self._hide: list[Callable[[str, Dice], str]] = [
            quote_name, quote_name, escape, spell, early_end, early_end, late_end, odd_beginning, long_line, ignored]

    def case(self, name: str) -> Case:
        dice = Dice(name)
        lines = dice.choice(self._texts).split("\n")
        if dice.random() < 0.3:
            lines = [line for line in lines if line != "nobind"]
        for _ in range(dice.choice((1, 1, 1, 1, 2, 3))):
            lines.insert(dice.choice((0, len(lines), dice.randint(0, len(lines)))), self._line(dice))
        text = "\n".join(lines)
        if dice.random() < 0.15:
            text = MARK + text
        if dice.random() < 0.1:
            text = text.replace("\n", "\r\n")
        return Case("openvpn", text.encode())

    def _line(self, dice: Dice) -> str:
        line = dangerous_line(dice) if dice.random() < 0.75 else any_option(dice, self._names)
        for _ in range(dice.choice((0, 1, 1, 1, 1, 1, 2))):
            line = dice.choice(self._hide)(line, dice)
        return line


def reachable(text: str) -> str:
    """With a server that needs no look-up and has a route, so that the engine gets as far as its socket."""
    return re.sub(r"^((?:--|\s*)remote) \S+", r"\1 10.99.0.2", text, flags=re.MULTILINE)


def option_names() -> list[str]:
    shown = subprocess.run([PROGRAM, "--help"], stdout=subprocess.PIPE, text=True).stdout
    return sorted(set(re.findall(r"^--([a-z0-9-]+)", shown, flags=re.MULTILINE)))


def put_helper() -> None:
    """OpenVPN starts only with the service's DNS helper there; this one does nothing."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", HELPER.parent], check=True)
    HELPER.write_text("#!/bin/sh\nexit 0\n")
    HELPER.chmod(0o755)


def main() -> int:
    if not PROGRAM.exists():
        print("skipped: no OpenVPN on this machine; it is Debian's package openvpn")
        return SKIPPED
    enter_private_machine()
    options = arguments(__doc__.splitlines()[0])
    put_helper()
    files = sorted((ROOT / "tests/data/profiles/openvpn").glob("*.ovpn"))
    return search(options, Engine(COMMAND, UP), OpenVpnProfiles(files, option_names()).case)


if __name__ == "__main__":
    sys.exit(main())
