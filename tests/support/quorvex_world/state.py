# SPDX-License-Identifier: Apache-2.0
"""A comparable picture of what a tunnel service may change: network, files, processes."""

import difflib
import re
import stat
from dataclasses import dataclass, fields
from pathlib import Path

# What a tunnel's tools may set for each interface.
SETTINGS = " ".join([*(f"/proc/sys/net/ipv4/conf/*/{name}" for name in ("rp_filter", "forwarding", "route_localnet")),
                     *(f"/proc/sys/net/ipv6/conf/*/{name}" for name in ("accept_ra", "forwarding", "disable_ipv6")),
                     "/proc/sys/net/ipv4/ip_forward"])
# Where engines and the service leave files and sockets.
FOLDERS = {"runtime_files": "/run/quorvexvpn", "ground_files": "/run/quorvexvpn-ground",
           "wireguard_files": "/run/wireguard", "amnezia_files": "/run/amneziawg",
           "openvpn_files": "/run/openvpn"}
# Each section's command; /media is the host's /usr, where no stand-in replaces a tool.
COMMANDS = {
    "links": "/media/bin/ip -o link",
    "addresses": "/media/bin/ip -o address",
    # Their order says only which of several came first.
    "routes4": "/media/bin/ip -4 route show table all | sort",
    "routes6": "/media/bin/ip -6 route show table all | sort",
    "rules4": "/media/bin/ip -4 rule",
    "rules6": "/media/bin/ip -6 rule",
    "nftables": "/media/sbin/nft list ruleset",
    "listening": "/media/bin/ss -Hlntu | tr -s ' ' | sort",
    "settings": f"grep -s . {SETTINGS}",
}
SEPARATOR = "=-=-="
# Numbers that differ between equal states.
VOLATILE = (
    (re.compile(r"^\d+: ", re.M), ""),
    (re.compile(r"\\ +"), " "),
    (re.compile(r" *valid_lft \S+ preferred_lft \S+"), ""),
    (re.compile(r" expires \S+"), ""),
    (re.compile(r"packets \d+ bytes \d+"), "packets # bytes #"),
)


@dataclass
class State:
    links: list[str]
    addresses: list[str]
    routes4: list[str]
    routes6: list[str]
    rules4: list[str]
    rules6: list[str]
    nftables: list[str]
    listening: list[str]
    settings: list[str]
    processes: list[str]
    runtime_files: list[str]
    ground_files: list[str]
    wireguard_files: list[str]
    amnezia_files: list[str]
    openvpn_files: list[str]
    # wg-quick leaves it at 1 even after an orderly `down`, so it takes no part in comparisons.
    src_valid_mark: int


def take(world) -> State:
    script = f"; echo {SEPARATOR}; ".join(COMMANDS.values())
    output = world.run(["/bin/sh", "-c", script], timeout=20).stdout
    sections = [_clean(part) for part in output.split(SEPARATOR + "\n")]
    return State(
        **dict(zip(COMMANDS, sections, strict=True)),
        processes=sorted(" ".join(process["argv"]) for process in world.processes()),
        **{name: _list(world.path(path)) for name, path in FOLDERS.items()},
        src_valid_mark=_sysctl(world, "net/ipv4/conf/all/src_valid_mark"))


def diff_states(before: State, after: State) -> str:
    """Line by line what came (+) and went (-); empty when nothing did."""
    lines = []
    for field in fields(State):
        if field.name == "src_valid_mark":
            continue
        old, new = getattr(before, field.name), getattr(after, field.name)
        changes = list(difflib.unified_diff(old, new, lineterm="", n=0))[2:]
        lines += [f"{field.name}: {line}" for line in changes if not line.startswith("@@")]
    return "\n".join(lines)


def _clean(text: str) -> list[str]:
    for pattern, replacement in VOLATILE:
        text = pattern.sub(replacement, text)
    return [line.rstrip() for line in text.splitlines()]


def _list(directory: Path) -> list[str]:
    """Names below a directory with their modes; the directory itself is the first line."""
    if not directory.exists():
        return []
    entries = [directory, *sorted(directory.rglob("*"))]
    return [f"{stat.filemode(entry.lstat().st_mode)} {entry.relative_to(directory.parent)}"
            for entry in entries]


def _sysctl(world, name: str) -> int:
    return int(world.run(["/bin/cat", f"/proc/sys/{name}"]).stdout)
