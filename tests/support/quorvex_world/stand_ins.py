# SPDX-License-Identifier: Apache-2.0
"""Stand-ins and recorders: programs of a world replaced by one that reports and does as told.

A stand-in serves for faults and exact recording only; that the real tool works is shown with the
real tool. The program in place is stand_in.c; it asks here, over a socket in the world's /run, what
to do.
"""

import os
import posixpath
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
from dataclasses import dataclass, field
from functools import cache
from pathlib import Path
from typing import Callable

from .events import is_readable, wait_readable
from .procfs import ancestors_of, inner_pid

SOCKET_PATH = "/run/world/stand-ins"
ASIDE = "/run/world/aside"


@cache
def program() -> bytes:
    """The compiled stand_in.c; kept in memory, so a killed test run leaves nothing behind."""
    source = Path(__file__).with_name("stand_in.c")
    with tempfile.TemporaryDirectory(prefix="quorvex-world-") as directory:
        target = Path(directory, "stand-in")
        subprocess.run(["cc", "-O2", "-static", "-s", "-o", target, source], check=True)
        return target.read_bytes()


@dataclass
class Behaviour:
    """What a stand-in does in one call; README.md tells the order in which the fields act."""

    exit_status: int | None = None
    stdout: str = ""
    stderr: str = ""
    shell: str = ""
    die_by: int = 0
    hang: bool = False
    ignore_term: bool = False
    read_stdin: bool = True
    become_real: bool = False
    react: Callable | None = None


@dataclass
class Call:
    """One call. `status` stays None when it was killed from outside or became the real tool."""

    program: str
    argv: list[str]
    env: dict[str, str]
    host_pid: int
    pid: int
    ancestors: list[tuple[int, str]]
    nested: bool
    began: float
    stdin: str = ""
    ended: float | None = None
    status: int | None = None
    pidfd: int = field(default=-1, repr=False)

    @property
    def is_unsettled(self) -> bool:
        """The process is gone, but its record does not say so yet."""
        return self.ended is None and is_readable(self.pidfd)

    @property
    def name(self) -> str:
        return posixpath.basename(self.program)

    def matches(self, words: tuple[str, ...]) -> bool:
        return tuple(self.argv[1:1 + len(words)]) == words


class Gate:
    """Holds calls until it is opened; opening is for good."""

    def __init__(self):
        self._read, self._write = os.pipe2(os.O_CLOEXEC)
        self.is_open = False

    def open(self) -> None:
        if not self.is_open:
            self.is_open = True
            os.close(self._write)

    def __del__(self):
        self.open()
        os.close(self._read)

    def hold(self, connection: socket.socket) -> None:
        """Returns when the gate is open or the held program is dead."""
        wait_readable(self._read, connection.fileno())


@dataclass
class Rule:
    words: tuple[str, ...]
    behaviour: Behaviour
    when: Callable[[Call], bool] | None = None
    left: int | None = None

    def applies(self, call: Call) -> bool:
        fits = self.left != 0 and call.matches(self.words)
        return fits and (self.when is None or self.when(call))


@dataclass
class StandIn:
    """A replaced program: its rules, its gates and, for a recorder, the real tool moved aside."""

    path: str
    default: Behaviour
    real: str | None = None
    rules: list[Rule] = field(default_factory=list)
    gates: list[tuple[tuple[str, ...], bool, Gate]] = field(default_factory=list)

    def on(self, *words: str, when=None, times: int | None = None, **behaviour) -> "StandIn":
        """Sets what calls do whose arguments begin with `words`; the newest matching rule wins."""
        self.rules.insert(0, Rule(words, Behaviour(**behaviour), when, times))
        return self

    def gate(self, *words: str, after: bool = False) -> Gate:
        gate = Gate()
        self.gates.append((words, after, gate))
        return gate

    def behaviour_for(self, call: Call) -> Behaviour:
        for rule in self.rules:
            if rule.applies(call):
                if rule.left is not None:
                    rule.left -= 1
                return self._resolve(rule.behaviour, call)
        return self._resolve(self.default, call)

    def _resolve(self, behaviour: Behaviour, call: Call) -> Behaviour:
        return (behaviour.react(call) or self.default) if behaviour.react else behaviour


class Conversation:
    """Our side of what stand_in.c says and does."""

    def __init__(self, connection: socket.socket):
        self.connection = connection

    def order(self, letter: str, text: str = "") -> None:
        data = text.encode()
        self.connection.sendall(letter.encode() + struct.pack("!I", len(data)) + data)

    def answer(self) -> bytes:
        (length,) = struct.unpack("!I", self._exactly(4))
        return self._exactly(length)

    def all_input(self) -> str:
        self.order("R")
        pieces = []
        while piece := self.answer():
            pieces.append(piece)
        return b"".join(pieces).decode(errors="replace")

    def _exactly(self, length: int) -> bytes:
        data = b""
        while len(data) < length:
            piece = self.connection.recv(length - len(data))
            if not piece:
                raise ConnectionError("the stand-in is gone")
            data += piece
        return data


class StandIns:
    """All stand-ins of one world and the record of their calls."""

    def __init__(self, world):
        self._world = world
        self._by_path: dict[str, StandIn] = {}
        self._calls: list[Call] = []
        self._release = Gate()
        self._listener: socket.socket | None = None

    def install(self, path: str, default: Behaviour, keep_real: bool) -> StandIn:
        self._listen()
        real = self._move_aside(path) if keep_real else None
        self._world.put_file(path, program(), mode=0o755)
        self._by_path[path] = StandIn(path, default, real)
        return self._by_path[path]

    def calls(self, name: str | None, words: tuple[str, ...], nested: bool) -> list[Call]:
        with self._world.events.condition:
            settled = lambda: not any(call.is_unsettled for call in self._calls)
            self._world.events.wait(settled, 5, "the records of ended calls")
            return [call for call in self._calls
                    if (name is None or name in (call.name, call.program))
                    and call.matches(words) and (nested or not call.nested)]

    def release(self) -> None:
        """Opens all gates, ends what hangs and lets every later call succeed, so that a service can
        be stopped in peace."""
        self._release.open()
        for stand_in in self._by_path.values():
            for _, _, gate in stand_in.gates:
                gate.open()

    def close(self) -> None:
        self.release()
        if self._listener:
            # shutdown() wakes the thread in accept(); close() alone would not.
            self._listener.shutdown(socket.SHUT_RDWR)
            self._listener.close()

    def _move_aside(self, path: str) -> str:
        """Each gets a directory of its own: wg-quick looks for helpers beside itself first."""
        already = self._by_path.get(path)
        if already and already.real:
            return already.real
        aside = f"{ASIDE}/{path.strip('/').replace('/', '.')}/{posixpath.basename(path)}"
        self._world.put_file(aside, self._world.read_program(path), mode=0o755)
        return aside

    def _listen(self) -> None:
        if self._listener:
            return
        path = str(self._world.path(SOCKET_PATH))
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        os.chmod(path, 0o777)
        self._listener.listen(64)
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self) -> None:
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._begin(connection)

    def _begin(self, connection: socket.socket) -> None:
        """Records in the order of connecting; the rest of each call has its own thread."""
        peer = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
        host_pid = struct.unpack("3i", peer)[0]
        try:
            call = self._describe(host_pid)
            call.pidfd = os.pidfd_open(host_pid)
        except OSError:
            connection.close()
            return
        self._world.events.notify(lambda: self._calls.append(call))
        threading.Thread(target=self._serve, args=(connection, call), daemon=True).start()

    def _describe(self, host_pid: int) -> Call:
        now = time.monotonic()
        proc = Path(f"/proc/{host_pid}")
        argv = proc.joinpath("cmdline").read_bytes().split(b"\0")[:-1]
        env = proc.joinpath("environ").read_bytes().split(b"\0")[:-1]
        ancestors = ancestors_of(host_pid, self._world.init_pid)
        running = {call.host_pid for call in self._calls if call.ended is None}
        return Call(
            program=os.readlink(proc / "exe"),
            argv=[word.decode(errors="replace") for word in argv],
            env=dict(entry.decode(errors="replace").partition("=")[::2] for entry in env),
            host_pid=host_pid, pid=inner_pid(host_pid), ancestors=ancestors,
            nested=any(pid in running for pid, _ in ancestors), began=now)

    def _serve(self, connection: socket.socket, call: Call) -> None:
        status = None
        try:
            with connection:
                status = self._conduct(Conversation(connection), call)
        except OSError:
            pass  # It was killed; the record says so by its missing status.
        if status is None and self._release.is_open:
            kill(call.pidfd)
        wait_readable(call.pidfd)
        self._world.events.notify(lambda: self._end(call, status))

    def _end(self, call: Call, status: int | None) -> None:
        call.ended, call.status = time.monotonic(), status
        os.close(call.pidfd)

    def _conduct(self, talk: Conversation, call: Call) -> int | None:
        """Leads one call through its behaviour to the status it was told to end with, if any."""
        stand_in = self._by_path[call.program]
        # Rules may look at the input, so it is read before one is chosen.
        if self._reads_input(stand_in, call):
            text = talk.all_input()
            self._world.events.notify(lambda: setattr(call, "stdin", text))
        behaviour = stand_in.default if self._release.is_open else stand_in.behaviour_for(call)
        if behaviour.ignore_term:
            talk.order("T")
        self._pass_gates(stand_in, call, talk, after=False)
        status = self._act(behaviour, talk)
        self._pass_gates(stand_in, call, talk, after=True)
        return self._finish(behaviour, stand_in, talk, status)

    def _reads_input(self, stand_in: StandIn, call: Call) -> bool:
        """By the newest rule for these words; its `when` cannot be asked before there is input."""
        rules = [rule for rule in stand_in.rules if rule.left != 0 and call.matches(rule.words)]
        return (rules[0].behaviour if rules else stand_in.default).read_stdin

    def _pass_gates(self, stand_in: StandIn, call: Call, talk: Conversation, after: bool) -> None:
        for words, is_after, gate in list(stand_in.gates):
            if is_after == after and call.matches(words):
                gate.hold(talk.connection)

    def _act(self, behaviour: Behaviour, talk: Conversation) -> int:
        status = 0
        if behaviour.shell:
            talk.order("S", behaviour.shell)
            status = talk.answer()[0]
        talk.order("O", behaviour.stdout)
        talk.order("E", behaviour.stderr)
        return status if behaviour.exit_status is None else behaviour.exit_status

    def _finish(self, behaviour: Behaviour, stand_in: StandIn, talk: Conversation,
                status: int) -> int | None:
        if behaviour.hang:
            talk.order("H")
            self._release.hold(talk.connection)
            return None
        if behaviour.die_by:
            talk.order("K", str(int(behaviour.die_by)))
            return -int(behaviour.die_by)
        if behaviour.become_real:
            talk.order("X", stand_in.real)
            return None
        talk.order("Q", str(status))
        return status


def kill(pidfd: int) -> None:
    try:
        signal.pidfd_send_signal(pidfd, signal.SIGKILL)
    except ProcessLookupError:
        pass
