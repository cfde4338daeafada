#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Shows whether a run of tests left the machine as it was.

  host_state.py snapshot FILE    writes down what tests of a tunnel service could leave behind
  host_state.py compare FILE     compares with now; exit status 1 and the differences if any;
                                 a third argument is the patience in seconds
"""

from __future__ import annotations

import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

COMMANDS = {
    "links": "ip -o link",
    "addresses": "ip -o address",
    "IPv4 routes": "ip -4 route show table all",
    "IPv6 routes": "ip -6 route show table all",
    "IPv4 rules": "ip -4 rule",
    "IPv6 rules": "ip -6 rule",
    "nftables": "nft list ruleset",
}
# Numbers that change by themselves.
VOLATILE = re.compile(
    r" *valid_lft \S+ preferred_lft \S+| expires \S+|(?<=packets )\d+|(?<=bytes )\d+")
OURS = re.compile(
    rb"quorvex_world/factory|/usr/libexec/quorvexvpn|/run/quorvexvpn|"
    rb"(^|/)(wg-quick|wireguard-go|awg-quick|amneziawg-go|sing-box|xray|openvpn)(\0|$)")
FOLDERS = ("/run", "/run/netns", "/run/wireguard", "/run/quorvexvpn", "/etc/wireguard")
LEFTOVERS = (("/usr/libexec", "quorvexvpn*"), ("/tmp", "quorvex-*"), ("/dev/shm", "quorvex*"),
             ("/sys/fs/cgroup", "quorvexvpn-test-*"), ("/sys/fs/cgroup/memory", "quorvexvpn-test-*"))
# The kernel takes a network namespace down some time after its last process.
PATIENCE_SECONDS = "5"


def output_of(command: str) -> list[str]:
    try:
        done = subprocess.run(command.split(), capture_output=True, text=True, check=False)
    except FileNotFoundError:
        return []
    return [VOLATILE.sub("", line).rstrip() for line in done.stdout.splitlines()]


def mounts() -> list[str]:
    """Mount points with their kinds; the numbers before them differ from boot to boot."""
    lines = Path("/proc/self/mountinfo").read_text().splitlines()
    return sorted(" ".join([line.split()[4], *line.split(" - ")[1].split()[:2]]) for line in lines)


def our_processes() -> dict[int, str]:
    """Processes with a name of ours, this one and its parents (which may mention one) left out."""
    found = {}
    mine = {os.getpid(), os.getppid()}
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            words = Path(f"/proc/{name}/cmdline").read_bytes()
            program = b"\0".join(words.split(b"\0")[:5])
            if int(name) not in mine and not is_shell(words) and OURS.search(program):
                found[int(name)] = words.replace(b"\0", b" ").decode(errors="replace").strip()
        except OSError:
            continue
    return found


def is_shell(words: bytes) -> bool:
    """A shell's command text may mention anything."""
    return os.path.basename(words.split(b"\0")[0].decode(errors="replace")) in ("sh", "bash", "ssh")


def our_namespaces(processes: dict[int, str]) -> list[str]:
    """Namespaces other than this process's own that a process of ours lives in."""
    found = set()
    for kind in ("mnt", "net", "pid"):
        own = os.readlink(f"/proc/self/ns/{kind}")
        for number, words in processes.items():
            try:
                other = os.readlink(f"/proc/{number}/ns/{kind}")
            except OSError:
                continue
            if other != own:
                found.add(f"{other} {words[:60]}")
    return sorted(found)


def snapshot() -> dict[str, list[str]]:
    state = {name: output_of(command) for name, command in COMMANDS.items()}
    processes = our_processes()
    state["mounts"] = mounts()
    state["processes"] = [f"{number} {words[:90]}" for number, words in sorted(processes.items())]
    state["namespaces"] = our_namespaces(processes)
    for folder in FOLDERS:
        state[folder] = sorted(os.listdir(folder)) if os.path.isdir(folder) else ["(absent)"]
    for folder, pattern in LEFTOVERS:
        state[f"{folder}/{pattern}"] = sorted(path.name for path in Path(folder).glob(pattern))
    return state


def differences(before: dict[str, list[str]], after: dict[str, list[str]]) -> list[str]:
    lines = []
    for name in before:
        gone = [line for line in before[name] if line not in after.get(name, [])]
        come = [line for line in after.get(name, []) if line not in before[name]]
        # That somebody's own namespace has ended meanwhile is no trace of ours.
        lines += [f"{name}: - {line}" for line in gone if name != "namespaces"]
        lines += [f"{name}: + {line}" for line in come]
    return lines


def compare(before: dict[str, list[str]], patience: float) -> int:
    deadline = time.monotonic() + patience
    while found := differences(before, snapshot()):
        if time.monotonic() > deadline:
            print("\n".join(found))
            return 1
        time.sleep(0.1)
    return 0


def main(arguments: list[str]) -> int:
    match arguments:
        case ["snapshot", path]:
            Path(path).write_text(json.dumps(snapshot(), indent=1))
            return 0
        case ["compare", path, *patience]:
            before = json.loads(Path(path).read_text())
            return compare(before, float((patience or [PATIENCE_SECONDS])[0]))
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
