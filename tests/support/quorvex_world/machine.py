# SPDX-License-Identifier: Apache-2.0
"""A private machine: namespaces, processes and files. World puts a bus and a service into it."""

import itertools
import os
import posixpath
import socket
import stat
import threading
from contextlib import ExitStack
from pathlib import Path

from . import factory_client, procfs
from .channel import Channel
from .engines import FETCHED
from .events import POLL_INTERVAL, Events, LineReader, wait_readable
from .process import CommandFailed, Completed, Process

# What systemd gives a service.
ENVIRONMENT = {
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "LANG": "C.UTF-8",
}


class Machine:
    """The test's side of a world's PID 1 (init.py)."""

    def __init__(self, writable: list[str]):
        self.events = Events()
        self.init_pid = 0
        self._writable = writable
        self._processes: dict[int, Process] = {}
        self._infrastructure: set[int] = set()
        self._answers: dict[int, list[str] | Process | OSError] = {}
        self._numbers = itertools.count(1)
        self._life = ""
        self._channel: Channel | None = None
        self._receiver: threading.Thread | None = None
        self._cleanup = ExitStack()

    # Beginning and end

    def _be_born(self) -> None:
        ours, theirs = Channel.pair()
        self._channel = ours
        factory_client.request_world(theirs, {
            "writable": self._writable, "shown": [str(FETCHED)] if FETCHED.is_dir() else []})
        self._receiver = threading.Thread(target=self._receive, daemon=True)
        self._receiver.start()
        complete = lambda: self._life and (self.init_pid or self._life == "gone")
        self.events.wait(complete, 10, "the world's first process")
        if self._life != "ready":
            raise RuntimeError(f"the world could not be made: {self._life}")

    def _end(self) -> None:
        if self._receiver:
            self._channel.close()
            self._receiver.join()
        if self.init_pid:
            # Readable when PID 1 is gone, and PID 1 goes after every other process of the world.
            wait_readable(self._init_pidfd)
            os.close(self._init_pidfd)
        for process in self._processes.values():
            process.close()
        self._cleanup.close()

    def on_exit(self, action) -> None:
        """Runs when the world has ended, for what a helper holds outside it."""
        self._cleanup.callback(action)

    # Conversation with PID 1

    def _receive(self) -> None:
        while True:
            message, descriptors = self._channel.receive()
            if message is None:
                self.events.notify(lambda: setattr(self, "_life", self._life or "gone"))
                return
            self.events.notify(lambda: self._take(message, descriptors))

    def _take(self, message: dict, descriptors: list[int]) -> None:
        event = message["event"]
        if event == "born":
            self.init_pid = message["pid"]
            self._init_pidfd = descriptors[0]
        elif event in ("ready", "broken"):
            self._life = message.get("error", event)
        elif event == "exit":
            process = self._processes[message["pid"]]
            self._infrastructure.discard(process.host_pid)
            process.on_exit(message["status"])
        else:
            self._started(message, descriptors)

    def _started(self, message: dict, descriptors: list[int]) -> None:
        """Registers a process at once, since its end may be the very next message."""
        number = message["id"]
        if message["event"] == "started":
            argv = self._answers.pop(number)
            process = Process(self.events, argv, message["pid"], descriptors[0])
            self._processes[process.pid] = process
            self._answers[number] = process
        else:
            self._answers[number] = OSError(message["error"])

    def _ask(self, request: dict, descriptors: list[int], argv: list[str]) -> Process:
        number = next(self._numbers)
        with self.events.condition:
            self._answers[number] = argv
        self._channel.send({**request, "id": number}, descriptors)
        answered = lambda: not isinstance(self._answers[number], list)
        self.events.wait(answered, 10, f"the start of {argv}")
        answer = self._answers.pop(number)
        if isinstance(answer, OSError):
            raise answer
        return answer

    # Processes

    def spawn(self, argv: list[str], user: str | None = None, netns: str | None = None,
              env: dict | None = None, umask: int = 0o022, ignore_sigpipe: bool = False,
              listed: bool = False) -> Process:
        """Starts a process whose two outputs become `lines`; not `listed` means infrastructure."""
        read, write = os.pipe2(os.O_CLOEXEC)
        request = {"argv": [str(word) for word in argv], "env": environment(env), "user": user,
                   "netns": netns, "umask": umask, "ignore_sigpipe": ignore_sigpipe}
        try:
            with open(os.devnull) as nothing:
                process = self._ask(request, [nothing.fileno(), write, write], request["argv"])
        finally:
            os.close(write)
        process.reader = LineReader(read, self.events)
        if not listed:
            self._infrastructure.add(process.host_pid)
        return process

    def run(self, argv: list[str], input: str | None = None, user: str | None = None,
            netns: str | None = None, env: dict | None = None, check: bool = True,
            timeout: float = 10) -> Completed:
        """Runs a command to its end. Its outputs are files, so a daemon it leaves can hold them."""
        request = {"argv": [str(word) for word in argv], "env": environment(env), "user": user,
                   "netns": netns}
        with ExitStack() as stack:
            streams = [stack.enter_context(os.fdopen(os.memfd_create(name), "w+b"))
                       for name in ("stdin", "stdout", "stderr")]
            streams[0].write((input or "").encode())
            streams[0].seek(0)
            descriptors = [stream.fileno() for stream in streams]
            process = self._ask(request, descriptors, request["argv"])
            status = self._wait_or_kill(process, timeout)
            outputs = [os.pread(stream.fileno(), 1 << 26, 0).decode(errors="replace")
                       for stream in streams[1:]]
        completed = Completed(request["argv"], status, *outputs)
        if check and status != 0:
            raise CommandFailed(completed)
        return completed

    def _wait_or_kill(self, process: Process, timeout: float) -> int:
        try:
            return process.wait(timeout)
        except TimeoutError:
            process.kill()
            raise

    def call_function(self, function: str, user: str | None = None, netns: str | None = None,
                      **arguments) -> tuple[socket.socket, Process]:
        """Runs one of init's functions in a fork; returns the conversation with it."""
        ours, theirs = socket.socketpair()
        request = {"function": function, "arguments": arguments, "user": user, "netns": netns}
        with theirs:
            process = self._ask(request, [theirs.fileno()], [function])
        self._infrastructure.add(process.host_pid)
        return ours, process

    def hide_process(self, host_pid: int) -> None:
        """Counts a process that was not started by spawn() as infrastructure."""
        self._infrastructure.add(host_pid)

    def processes(self, everything: bool = False) -> list[dict]:
        """Live processes but for the world's own: init, bus, polkit, clients, peers, captures."""
        listed = []
        for host_pid in procfs.processes_in_namespace_of(self.init_pid):
            own = host_pid == self.init_pid or host_pid in self._infrastructure
            if everything or not own:
                try:
                    listed.append({"pid": procfs.inner_pid(host_pid), "host_pid": host_pid,
                                   "argv": procfs.argv_of(host_pid)})
                except OSError:
                    continue
        return listed

    # Files

    def path(self, path: str) -> Path:
        """The same file seen from the test; absolute links on the way would lead outside."""
        return Path(f"/proc/{self.init_pid}/root{path}")

    def put_file(self, path: str, data: str | bytes, mode: int = 0o644) -> None:
        target = self.path(path)
        target.parent.mkdir(mode=0o755, parents=True, exist_ok=True)
        target.unlink(missing_ok=True)
        target.write_bytes(data.encode() if isinstance(data, str) else data)
        target.chmod(mode)

    def remove_tool(self, path: str) -> None:
        self.path(path).unlink()

    def chmod_tool(self, path: str, mode: int) -> None:
        self.path(path).chmod(mode)

    def read_program(self, path: str) -> bytes:
        return self.path(self.resolve(path)).read_bytes()

    def resolve(self, path: str) -> str:
        """Follows links as the world does, where an absolute one means its own root."""
        while stat.S_ISLNK(self.path(path).lstat().st_mode):
            target = os.readlink(self.path(path))
            path = posixpath.normpath(posixpath.join(posixpath.dirname(path), target))
        return path

    # Waiting and looking

    def wait(self, predicate, timeout: float = 10, what: str = "a condition"):
        return self.events.wait(predicate, timeout, what)

    def poll(self, predicate, timeout: float = 10, what: str = "a condition"):
        return self.events.wait(predicate, timeout, what, interval=POLL_INTERVAL)


def environment(more: dict | None) -> dict[str, str]:
    """The usual one with these variables set, or left out where the value is None."""
    merged = {**ENVIRONMENT, **(more or {})}
    return {name: value for name, value in merged.items() if value is not None}
