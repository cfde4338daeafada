# SPDX-License-Identifier: Apache-2.0
"""A world: one private machine for one test. README.md beside this package shows its use."""

import os
import shutil
import signal
from pathlib import Path

from . import bus, peers, state, tools
from .capture import Capture
from .client import BUS_NAME, Client
from .machine import Machine
from .process import Process
from .service import INSTALLED, Service, passed_environment
from .stand_ins import Behaviour, Call, StandIn, StandIns

REPOSITORY = Path(__file__).resolve().parents[3]
DEFAULT_SERVICE = REPOSITORY / "build/dev/service/quorvexvpn-service"
USERS = {"alice": 64101, "bob": 64102}
# Longer than any stop that waits for tools with their time-outs.
LAST_STOP = 60.0


class WorldFault(AssertionError):
    """The service reported memory errors, races or criticals, or crashed, whatever the test saw."""


class World(Machine):
    """A context manager; everything in it is gone when it is left, or when the test dies."""

    def __init__(self, service: str | os.PathLike | None = None, allow=("alice",),
                 data: str | os.PathLike | None = None, writable=(), bus: bool = True):
        super().__init__([str(path) for path in writable])
        chosen = service or os.environ.get("QUORVEXVPN_SERVICE") or DEFAULT_SERVICE
        self.executable = Path(chosen).resolve()
        self.data = Path(data or REPOSITORY / "data")
        self.events.context = self._describe
        self.services: list[Service] = []
        self.bus: Process | None = None
        self.polkit: Process | None = None
        self._with_bus = bus
        self._allowed = list(allow)
        self._tolerated: list[str] = []
        self._clients: dict[str, Client] = {}
        self._every_client: list[Client] = []
        self._installed: tuple | None = None
        self._stand_ins = StandIns(self)

    # Beginning and end

    def __enter__(self) -> "World":
        try:
            self._be_born()
            self._furnish()
            if self._with_bus:
                self.start_bus()
                self.start_polkit()
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(self, kind, error, trace) -> None:
        try:
            self._stop_sanitized()
        finally:
            self._end()
        if faults := self._faults():
            raise WorldFault("\n".join(["the service itself is at fault:", *faults])) from error

    def tolerate(self, text: str) -> None:
        """Lets faults whose line holds this text pass; for tests that cause them on purpose."""
        self._tolerated.append(text)

    def _furnish(self) -> None:
        """What a fresh root shows that a test must not see, and what a test needs to find."""
        for directory, mode in (("/run/world", 0o755), ("/run/lock", 0o1777)):
            self.path(directory).mkdir()
            self.path(directory).chmod(mode)
        shutil.rmtree(self.path("/usr/libexec/quorvexvpn"), ignore_errors=True)
        for leftover in self.path("/usr/libexec").glob("quorvexvpn*"):
            leftover.unlink()
        # A machine has the engines that its test puts there; /media keeps what Debian installed.
        self.path("/usr/sbin/openvpn").unlink(missing_ok=True)
        for name, line in (("passwd", "{0}:x:{1}:{1}::/nonexistent:/bin/sh\n"),
                           ("group", "{0}:x:{1}:\n")):
            with self.path(f"/etc/{name}").open("a") as table:
                table.writelines(line.format(*user) for user in USERS.items())

    def _stop_sanitized(self) -> None:
        """Leaks are reported at the end of a process only, so that end must come by itself."""
        for service in self.services:
            if service.alive and service.is_sanitized:
                self._stand_ins.release()
                service.signal(signal.SIGCONT)
                service.stop(LAST_STOP)

    def _faults(self) -> list[str]:
        """Asked when the world has ended, since only then no line can come any more."""
        found = [line for service in self.services for line in service.faults()]
        return [line for line in found if not any(text in line for text in self._tolerated)]

    def _end(self) -> None:
        self._stand_ins.close()
        super()._end()

    # Bus and polkit

    def start_bus(self) -> None:
        bus.install_policies(self, self.data)
        self.bus = bus.start_bus(self)

    def kill_bus(self) -> None:
        self.bus.kill()
        self.bus.wait()

    def start_polkit(self) -> None:
        bus.write_rules(self, self._allowed)
        self.polkit = bus.start_polkit(self)

    def stop_polkit(self) -> None:
        self.polkit.kill()
        self.polkit.wait()

    def polkit_allow(self, *users: str) -> None:
        self._allowed += [user for user in users if user not in self._allowed]
        self._renew_polkit()

    def polkit_refuse(self, *users: str) -> None:
        self._allowed = [user for user in self._allowed if user not in users]
        self._renew_polkit()

    def _renew_polkit(self) -> None:
        """A new polkitd has surely read the new rules; a running one re-reads them some time."""
        self.stop_polkit()
        self.start_polkit()

    def client(self, user: str, new: bool = False) -> Client:
        if new or user not in self._clients:
            conversation, _ = self.call_function("bus_client", user, watched_names=[BUS_NAME])
            client = Client(self.events, user, conversation)
            self._every_client.append(client)
            self._clients.setdefault(user, client)
            return client
        return self._clients[user]

    # The service

    @property
    def service(self) -> Service:
        return self.services[-1]

    def start_service(self, env: dict | None = None, wrapper: list[str] = (),
                      executable: str | os.PathLike | None = None, wait: bool = True,
                      umask: int = 0o022) -> Service:
        """Runs the executable as systemd would; with `wait`, returns when it owns its name."""
        chosen = Path(executable or self.executable)
        self._install_service(chosen)
        observer = self.client("root") if wait else None
        earlier = observer.owners.get(BUS_NAME, "") if wait else ""
        passed = {**passed_environment(self), **(env or {})}
        process = self.spawn([*wrapper, INSTALLED], env=passed, umask=umask, ignore_sigpipe=True,
                             listed=True)
        service = Service(self, process, chosen, bool(wrapper))
        self.services.append(service)
        if wait:
            self._wait_owner(observer, earlier, service)
        return service

    def _wait_owner(self, observer: Client, earlier: str, service: Service) -> None:
        """Waits until the service owns its name, and fails at once when it ends instead.

        The news that an earlier service has lost the name may still be under way, so its owner of
        then does not count.
        """
        def owned() -> bool:
            return observer.owners.get(BUS_NAME, "") not in ("", earlier)
        self.events.wait(lambda: owned() or not service.alive, 20, f"an owner of {BUS_NAME}")
        if not service.alive:
            raise AssertionError(f"the service ended with {service.process.status} before it "
                                 f"owned {BUS_NAME}:\n" + "\n".join(service.journal))

    def _install_service(self, executable: Path) -> None:
        if not executable.exists():
            raise FileNotFoundError(f"{executable}: build the service, or name it by --service "
                                    "or QUORVEXVPN_SERVICE")
        found = executable.stat()
        version = (executable, found.st_mtime_ns, found.st_size)
        if self._installed != version:
            self.path(INSTALLED).unlink(missing_ok=True)
            shutil.copyfile(executable, self.path(INSTALLED))
            self.path(INSTALLED).chmod(0o755)
            self._installed = version

    # Stand-ins

    def stand_in(self, path: str, **behaviour) -> StandIn:
        """Replaces a program by one that records each call and does as told; by default exits 0."""
        return self._stand_ins.install(path, Behaviour(**behaviour), keep_real=False)

    def recorder(self, path: str) -> StandIn:
        """Replaces a program by one that records each call and then becomes the program."""
        return self._stand_ins.install(path, Behaviour(become_real=True), keep_real=True)

    def calls(self, name: str, *words: str, nested: bool = False) -> list[Call]:
        return self._stand_ins.calls(name, words, nested)

    def all_calls(self, nested: bool = False) -> list[Call]:
        return self._stand_ins.calls(None, (), nested)

    def wait_call(self, name: str, *words: str, count: int = 1, timeout: float = 20) -> Call:
        """Waits until this many such calls have begun and returns the last of them."""
        def begun() -> Call | None:
            found = self.calls(name, *words)
            return found[count - 1] if len(found) >= count else None
        return self.events.wait(begun, timeout, f"call {count} of {name} {' '.join(words)}")

    def wait_ended(self, call: Call, timeout: float = 20) -> Call:
        self.events.wait(lambda: call.ended, timeout, f"the end of {call.argv}")
        return call

    def standard_tools(self) -> dict[str, StandIn]:
        return tools.standard_tools(self)

    def real_tools(self) -> dict[str, StandIn]:
        return tools.real_tools(self)

    # Network

    def peer(self, name: str) -> peers.Peer:
        return peers.Peer(self, name)

    def link(self, peer: peers.Peer, ours: str, theirs: str, v6: tuple[str, str] | None = None,
             device: str = "phys0", metric: int = 100) -> None:
        peers.link(self, peer, ours, theirs, v6, device, metric)

    def use_resolver(self, *addresses: str) -> None:
        """Names are looked up there; without an address, nowhere."""
        self.put_file("/etc/resolv.conf", "options attempts:1 timeout:2\n"
                      + "".join(f"nameserver {address}\n" for address in addresses))

    def interface_exists(self, name: str) -> bool:
        return self.path(f"/sys/class/net/{name}").exists()

    def http_get(self, url: str, timeout: float = 5, user: str | None = None) -> peers.HttpReply:
        return peers.http_get(self, url, timeout, user, None)

    def udp_exchange(self, address: str, port: int, text: str = "hello",
                     timeout: float = 2) -> str | None:
        return peers.udp_exchange(self, address, port, text, timeout, None)

    def capture(self, device: str, expression: str = "", fence_from=None) -> Capture:
        return Capture(self, None, device, expression, fence_from)

    def state(self) -> state.State:
        return state.take(self)

    def _describe(self) -> str:
        """What a failed wait shows: the last lines of each journal, calls and signals."""
        parts = []
        for service in self.services:
            status = service.process.status
            parts.append("journal" + (f", ended with {status}" if status is not None else ""))
            parts += ["  " + line for line in service.journal[-25:]]
        for call in self.all_calls(nested=True)[-15:]:
            parts.append(f"call {call.argv} {'running' if call.ended is None else call.status}")
        for client in self._every_client:
            parts += [f"signal to {client.user}: {one.text}" for one in client.signals[-8:]]
        return "\n".join(parts)
