# SPDX-License-Identifier: Apache-2.0
"""What every search shares: verdicts of our side, a private machine full of canaries, and the run of an engine.

A search generates profiles, asks Verdicts for the text that the service would hand to the engine, and runs the real
engine on it inside an Arena. Whatever the engine does there beyond its tunnel is an act, and an act of an accepted
profile is a finding: it opens a canary, writes a file, runs a program, talks to a socket, or listens.
"""

import argparse
import ctypes
import os
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable, Iterable

ROOT = Path(__file__).resolve().parents[2]
CANARIES = Path("/run/canary")
FOLDER = Path("/run/work")
OUR_FILES = Path("/run/search")
# Nothing may be left in these, unless the checkout itself lies there.
EMPTY_FOLDERS = [folder for folder in map(Path, ("/run", "/tmp", "/root", "/var/lib")) if folder not in ROOT.parents]
# The ports that profiles name, so that a socket on one of them is the profile's own doing.
# The kernel chooses none of these by itself for what goes out.
PORTS = range(27001, 27021)
INSIDE = "--inside-the-private-machine"

IN_ACCESS, IN_MODIFY, IN_OPEN, IN_CREATE = 0x1, 0x2, 0x20, 0x100


def enter_private_machine() -> None:
    """Starts this very program again in namespaces of its own; goes on inside only."""
    if INSIDE in sys.argv:
        sys.argv.remove(INSIDE)
        return
    command = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child=KILL", "--mount-proc",
               "/usr/bin/python3", "-B", *sys.argv, INSIDE]
    os.execvp(command[0], command)


def _run(*command: str) -> None:
    subprocess.run(command, check=True)


def furnish() -> None:
    """A network with a way out that leads nowhere, and empty folders where an engine might leave something."""
    _run("mount", "--make-rprivate", "/")
    _run("mount", "-t", "sysfs", "sysfs", "/sys")
    for folder in EMPTY_FOLDERS:
        _run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", str(folder))
    for folder in (CANARIES, FOLDER, OUR_FILES):
        folder.mkdir()
    _run("ip", "link", "add", "out", "type", "veth", "peer", "name", "far")
    for link in ("lo", "out", "far"):
        _run("ip", "link", "set", link, "up")
    _run("ip", "address", "add", "10.99.0.1/24", "dev", "out")
    _run("ip", "address", "add", "fd99::1/64", "dev", "out", "nodad")
    _run("ip", "route", "add", "default", "via", "10.99.0.2")
    _run("ip", "-6", "route", "add", "default", "via", "fd99::2")


class Verdicts:
    """The service's verdict on profile after profile, from one process."""

    def __init__(self, program: str, rules_only: bool):
        command = [program] + (["--rules-only"] if rules_only else [])
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.pid = self._process.pid

    def ask(self, protocol: str, profile: bytes) -> tuple[str, bytes]:
        """("accepted", the engine's text), or "refused" or "failed" with the sentence."""
        stdin, stdout = self._process.stdin, self._process.stdout
        stdin.write(f"{protocol} {len(profile)}\n".encode() + profile)
        stdin.flush()
        verdict, length = stdout.readline().split()
        return verdict.decode(), stdout.read(int(length))


class Canaries:
    """Files that nobody but a profile names, a program and a socket among them, and a watch over them."""

    def __init__(self, more: dict[str, bytes] | None = None):
        self._libc = ctypes.CDLL(None, use_errno=True)
        self._files = {"file": b"canary\n", "key.pem": b"canary\n", "list.json": b'{"version":1,"rules":[]}\n',
                       **(more or {})}
        self.restore()

    def paths(self) -> list[str]:
        return [str(CANARIES / name) for name in (*self._files, "program", "socket", "new", "")]

    def restore(self) -> None:
        for folder in (CANARIES, FOLDER):
            shutil.rmtree(folder)
            folder.mkdir()
        for name, data in self._files.items():
            (CANARIES / name).write_bytes(data)
        program = CANARIES / "program"
        program.write_text(f"#!/bin/sh\ntouch {CANARIES}/ran\nexec sleep 5\n")
        program.chmod(0o755)
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.bind(str(CANARIES / "socket"))
        self._socket.listen()
        self._socket.setblocking(False)
        self._watch = self._libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        for folder in (CANARIES, FOLDER):
            mask = IN_OPEN | IN_ACCESS | IN_MODIFY | IN_CREATE
            if self._libc.inotify_add_watch(self._watch, str(folder).encode(), mask) < 0:
                raise OSError(ctypes.get_errno(), "inotify_add_watch")

    @property
    def watched(self) -> list:
        return [self._watch, self._socket]

    def acts(self) -> set[str]:
        """What was done to the canaries since they were put there."""
        found = {f"touches {name or 'the folder'}" for name in self._touched()}
        if (CANARIES / "ran").exists():
            found.add("runs the program")
        return found | self._visits()

    def close(self) -> None:
        os.close(self._watch)
        self._socket.close()

    def _touched(self) -> Iterable[str]:
        while select.select([self._watch], [], [], 0)[0]:
            data = os.read(self._watch, 65536)
            while data:
                length = struct.unpack_from("iIII", data)[3]
                yield data[16:16 + length].rstrip(b"\0").decode()
                data = data[16 + length:]

    def _visits(self) -> set[str]:
        try:
            self._socket.accept()[0].close()
            return {"talks to the socket"}
        except BlockingIOError:
            return set()


def _addresses(name: str) -> Iterable[tuple[str, int, str]]:
    """Address, port and state of the sockets in a table of the network's."""
    for line in Path(f"/proc/net/{name}").read_text().splitlines()[1:]:
        words = line.split()
        address, port = words[1].split(":")
        yield address, int(port, 16), words[3]


def sockets() -> set[str]:
    """The sockets that wait for somebody: TCP that listens, UDP on ports that are not the kernel's choice."""
    found = set()
    first, last = map(int, Path("/proc/sys/net/ipv4/ip_local_port_range").read_text().split())
    for name in ("tcp", "tcp6"):
        found |= {f"listens on {name} {address} {port}" for address, port, state in _addresses(name)
                  if state == "0A"}
    for name in ("udp", "udp6"):
        found |= {f"listens on {name} {address} {port}" for address, port, _ in _addresses(name)
                  if port in PORTS or not first <= port <= last}
    for line in Path("/proc/net/unix").read_text().splitlines()[1:]:
        words = line.split()
        if len(words) > 7 and words[7] != str(CANARIES / "socket"):
            found.add(f"listens on unix {words[7]}")
    return found


def children_of(pid: int) -> set[str]:
    found = set()
    for tasks in Path(f"/proc/{pid}/task").glob("*/children"):
        for child in tasks.read_text().split():
            try:
                found.add("runs " + Path(f"/proc/{child}/cmdline").read_text().replace("\0", " ").strip())
            except FileNotFoundError:
                found.add("runs something short")
    return found


def strays() -> set[Path]:
    """Files that are left where nothing should be."""
    return {path for folder in EMPTY_FOLDERS for path in folder.rglob("*")
            if not path.is_dir() and not {OUR_FILES, CANARIES} & set(path.parents)}


def _ends_within(process: subprocess.Popen, seconds: float) -> bool:
    """An engine that closes its output may live on: it writes into a file from then on."""
    try:
        process.wait(timeout=seconds)
        return True
    except subprocess.TimeoutExpired:
        return False


@dataclass
class Engine:
    """How an engine is run: {config} stands for its configuration's path."""
    command: list[str]
    # What stands in a line of its output once it is up.
    up: bytes
    # Which sockets are its tunnel's own.
    own_socket: Callable[[str], bool] = lambda socket_text: False
    config: str = "config"
    environment: dict[str, str] = field(default_factory=lambda: {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})


@dataclass
class Run:
    started: bool
    acts: set[str]
    output: str


def _poke() -> None:
    """Traffic of the machine, so that the engine turns to its server."""
    for family, address in ((socket.AF_INET, "203.0.113.9"), (socket.AF_INET6, "2001:db8:113::9")):
        for kind, port in ((socket.SOCK_STREAM, 80), (socket.SOCK_DGRAM, 53)):
            with socket.socket(family, kind) as one:
                one.setblocking(False)
                try:
                    one.connect((address, port))
                    one.send(b"\x12\x34\x01\x00\x00\x01\0\0\0\0\0\0\x01x\x04test\0\0\x01\0\x01")
                except OSError:
                    pass


class Arena:
    """Runs an engine on texts, one after the other, and tells what it did."""

    START_SECONDS = 0.5
    ACT_SECONDS = 0.04

    def __init__(self, engine: Engine, canaries: Canaries, keep: set[int]):
        self._keep = keep | {os.getpid()}
        self._engine = engine
        self._canaries = canaries
        self._before = sockets()

    def run(self, text: bytes) -> Run:
        config = OUR_FILES / self._engine.config
        config.write_bytes(text)
        command = [word.format(config=config) for word in self._engine.command]
        process = subprocess.Popen(command, cwd=FOLDER, env=self._engine.environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        started, output = self._wait_until_up(process)
        acts = set()
        if started:
            _poke()
            select.select(self._canaries.watched, [], [], self.ACT_SECONDS)
            acts |= {act for act in sockets() - self._before if not self._engine.own_socket(act)}
            acts |= children_of(process.pid)
        acts |= self._end(process)
        return Run(started, acts, output.decode(errors="replace"))

    def _wait_until_up(self, process: subprocess.Popen) -> tuple[bool, bytes]:
        """Until the engine says that it is up, or ends; one that says nothing counts as up after a while."""
        output, deadline = b"", time.monotonic() + self.START_SECONDS
        while (left := deadline - time.monotonic()) > 0:
            if select.select([process.stdout], [], [], left)[0]:
                data = os.read(process.stdout.fileno(), 65536)
                output += data
                if not data:
                    return not _ends_within(process, left), output
                if self._engine.up in output:
                    return True, output
        return True, output

    def _end(self, process: subprocess.Popen) -> set[str]:
        try:
            process.send_signal(signal.SIGTERM)
            process.wait(timeout=8)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        process.stdout.close()
        # Before the strays: looking for them touches the folders, too.
        acts = self._canaries.acts()
        for path in strays():
            acts.add(f"writes {path}")
            path.unlink()
        self._canaries.close()
        self._canaries.restore()
        self._end_orphans()
        return acts

    def _end_orphans(self) -> None:
        """This process is the first of its namespace, so an engine's orphans are its children now."""
        for child in Path("/proc").glob("[0-9]*"):
            if int(child.name) not in self._keep:
                try:
                    os.kill(int(child.name), signal.SIGKILL)
                    os.waitpid(int(child.name), 0)
                except (ProcessLookupError, ChildProcessError):
                    pass


@dataclass
class Case:
    protocol: str
    text: bytes


def arguments(description: str) -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--seed", default="0", help="names the series; the same series comes again")
    parser.add_argument("--count", type=int, default=300, help="how many profiles")
    parser.add_argument("--only", type=int, help="number of the one profile to try and to show")
    parser.add_argument("--without-second-check", action="store_true",
                        help="the positive control: with the rules alone the search must find something")
    parser.add_argument("--handed-text", default=str(ROOT / "build/dev/tests/search/handed_text"),
                        help="the program that gives the service's verdicts")
    return parser.parse_args()


def search(options: argparse.Namespace, engine: Engine, generate: Callable[[str], Case],
           more_canaries: dict[str, bytes] | None = None, arena_type: type[Arena] = Arena) -> int:
    """Tries the series and prints what came of it. Exit status 1 for a finding; the other way round as a control.

    To be called in a private machine. `generate` makes the profile of a name, the same one each time.
    """
    # Before the folders are emptied: the program may lie in one.
    verdicts = Verdicts(options.handed_text, options.without_second_check)
    furnish()
    arena = arena_type(engine, Canaries(more_canaries), keep={verdicts.pid})
    counts: Counter[str] = Counter()
    numbers = range(options.count) if options.only is None else [options.only]
    started = time.monotonic()
    for number in numbers:
        case = generate(f"{options.seed}-{number}")
        verdict, text = verdicts.ask(case.protocol, case.text)
        counts[verdict] += 1
        if options.only is not None:
            print(case.text.decode(errors="replace"), "\n->", verdict, text.decode(errors="replace"))
        if verdict != "accepted":
            continue
        run = arena.run(text)
        counts["started" if run.started else "refused by the engine"] += 1
        if options.only is not None:
            print("->", run)
        if run.acts:
            counts["findings"] += 1
            print(f"finding: --seed {options.seed} --only {number}: {'; '.join(sorted(run.acts))}", flush=True)
    print(f"{len(numbers)} profiles in {time.monotonic() - started:.0f} s:",
          ", ".join(f"{count} {what}" for what, count in sorted(counts.items())))
    if options.without_second_check:
        return 0 if counts["findings"] else 1
    return 1 if counts["findings"] else 0
