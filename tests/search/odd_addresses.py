#!/usr/bin/python3 -B
# SPDX-License-Identifier: Apache-2.0
"""Server addresses in odd spellings: one that GLib takes must never cost the others their place in the table.

Invents texts, keeps those that GLib takes as an address, asks the service's own code what becomes of each beside two
ordinary addresses, has the real nft load it on a private machine, and reads the kernel's sets back. With --as-written
nft gets the texts as they are and must refuse some: the positive control.
"""

import argparse
import json
import os
import random
import subprocess
import sys
from ipaddress import ip_address
from pathlib import Path

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
ORDINARY = ["198.51.100.7", "2001:db8::7"]
INSIDE = "--inside-the-private-machine"
GROUPS = ["0", "1", "ff", "FFFF", "db8", "2001", "fe80", "0000", "00a", "ffff", "64", "ff9b", "ABCD"]
NUMBERS = ["0", "1", "10", "127", "255", "198", "51", "01", "256", "300", "08", "0x1"]
SCOPES = ["%lo", "%1", "%5", "%", "%eth0", "%0"]


def enter_private_machine() -> None:
    if INSIDE not in sys.argv:
        os.execvp("unshare", ["unshare", "--net", "/usr/bin/python3", "-B", *sys.argv, INSIDE])
    sys.argv.remove(INSIDE)


def ipv4(chance: random.Random) -> str:
    return ".".join(chance.choice(NUMBERS) for _ in range(chance.choice([4, 4, 4, 3, 2])))


def ipv6(chance: random.Random) -> str:
    groups = [chance.choice(GROUPS) for _ in range(chance.randint(0, 8))]
    text = ":".join(groups)
    if chance.random() < 0.8 and len(groups) < 8:
        gap = chance.randint(0, len(groups))
        text = ":".join(groups[:gap]) + "::" + ":".join(groups[gap:])
    if chance.random() < 0.3:
        text += (":" if text and not text.endswith(":") else "") + ipv4(chance)
    return text + (chance.choice(SCOPES) if chance.random() < 0.2 else "")


def text(chance: random.Random) -> str:
    made = ipv4(chance) if chance.random() < 0.2 else ipv6(chance)
    if chance.random() < 0.05:
        made = chance.choice(["[", " ", "+", "0x", "::ffff:"]) + made + chance.choice(["]", " ", "/64", ""])
    return made


def is_taken_by_glib(candidate: str) -> bool:
    try:
        return Gio.InetAddress.new_from_string(candidate) is not None
    except TypeError:
        return False


def candidates(seed: str, count: int) -> list[str]:
    chance = random.Random(seed)
    found: dict[str, None] = {}
    while len(found) < count:
        made = text(chance)
        if is_taken_by_glib(made):
            found[made] = None
    return list(found)


def handed(program: str, texts: list[str]) -> list[list[str]]:
    """What the service hands to nft, for each of the texts beside the ordinary ones."""
    lines = subprocess.run([program], input="\n".join(texts) + "\n", text=True, capture_output=True, check=True).stdout
    return [line.split("\t")[:-1] for line in lines.splitlines()]


def ruleset(addresses: list[str]) -> str:
    """Two sets, to be read back; an element looks as in the service's own rules."""
    sets = ""
    for name, of_family in (("ipv4", lambda one: ":" not in one), ("ipv6", lambda one: ":" in one)):
        elements = ", ".join(one for one in addresses if of_family(one))
        chosen = f"elements = {{ {elements} }};" if elements else ""
        sets += f"  set {name} {{ type {name}_addr; {chosen} }}\n"
    return f"table inet search\ndelete table inet search\ntable inet search {{\n{sets}}}\n"


def is_loaded(addresses: list[str]) -> bool:
    done = subprocess.run(["/usr/sbin/nft", "-f", "-"], input=ruleset(addresses), text=True, capture_output=True)
    return done.returncode == 0


def read_back() -> set:
    listed = subprocess.run(["/usr/sbin/nft", "-n", "-j", "list", "table", "inet", "search"], capture_output=True,
                            check=True).stdout
    sets = [one["set"] for one in json.loads(listed)["nftables"] if "set" in one]
    return {ip_address(element) for one in sets for element in one.get("elem", [])}


def refused(lists: list[list[str]]) -> list[list[str]]:
    """Those that nft does not load, found by halving."""
    if is_loaded([address for one in lists for address in one]):
        return []
    if len(lists) == 1:
        return lists
    middle = len(lists) // 2
    return refused(lists[:middle]) + refused(lists[middle:])


def meaning(address: str):
    """The address itself, without a scope."""
    made = Gio.InetAddress.new_from_string(address).to_string().partition("%")[0]
    return ip_address(made)


def fault(written: str, left: list[str]) -> str:
    """What is wrong with what became of one text, but for nft's refusal."""
    if left[-2:] != ORDINARY:
        return "an ordinary address is lost"
    if len(left) == 3 and meaning(left[0]) != meaning(written):
        return "it became another address"
    if len(left) == 2 and "%" not in written:
        return "it was left out without a scope"
    return ""


def main() -> int:
    enter_private_machine()
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=5000)
    parser.add_argument("--seed", default="addresses")
    parser.add_argument("--handed-addresses", default=str(ROOT / "build/dev/tests/search/handed_addresses"))
    parser.add_argument("--as-written", action="store_true", help="the positive control")
    options = parser.parse_args()
    texts = candidates(options.seed, options.count)
    if options.as_written:
        found = refused([[one] for one in texts])
        print(f"{len(texts)} texts that GLib takes, {len(found)} that nft does not, such as",
              *[one[0] for one in found[:5]])
        return 0 if found else 1
    lists = handed(options.handed_addresses, texts)
    findings = [f"{one}: nft refuses {left}" for one, left in zip(texts, lists) if refused([left])] \
        if refused(lists) else []
    findings += [f"{one}: {what}" for one, left in zip(texts, lists) if (what := fault(one, left))]
    expected = {meaning(one) for left in lists for one in left}
    if not findings and (read := read_back()) != expected:
        findings.append(f"the kernel has other addresses: {read ^ expected}")
    rewritten = sum(one != left[0] and len(left) == 3 for one, left in zip(texts, lists))
    print(f"{len(texts)} texts that GLib takes: {rewritten} written anew, {sum(len(left) == 2 for left in lists)} left "
          f"out, {len(findings)} findings", *findings[:20], sep="\n")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
