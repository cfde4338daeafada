# SPDX-License-Identifier: Apache-2.0
"""PID 1 of a world: mounts its file systems, starts what the test asks for, dies with the test.

The kernel ends every process of the world when PID 1 ends, and PID 1 ends when its channel to the
test process is closed. So nothing outlives a test, not even one that was killed.
"""

import os
import pwd
import resource
import select
import signal
import socket
import sys
import traceback

from quorvex_world import bus_agent, dns_server, kernel, peer_services
from quorvex_world.channel import Channel

# The host's /usr, where no test replaces a tool: an empty directory of every Debian root.
ORIGINAL_USR = "/media"

# Directories whose contents on the host would change what the tests see.
EMPTY_DIRECTORIES = (
    "/usr/share/dbus-1/system.d",
    "/usr/share/dbus-1/system-services",
    "/etc/dbus-1/system.d",
    "/usr/share/polkit-1/actions",
    "/usr/share/polkit-1/rules.d",
    "/etc/polkit-1/rules.d",
)

# What a forked child can do without starting another interpreter.
FUNCTIONS = {
    "bus_client": bus_agent.run,
    "http_server": peer_services.http_server,
    "udp_echo": peer_services.udp_echo,
    "dns_server": dns_server.run,
    "udp_exchange": peer_services.udp_exchange,
    "fence": peer_services.send_fence,
    "quieten_ipv6": lambda conversation: quieten_ipv6(),
}


def mount_world(writable: list[str], shown: list[str]) -> None:
    """A private machine: read-only but for what is ours, and no /run, /tmp and /sys but ours."""
    kernel.mount("none", "/", flags=kernel.MS_REC | kernel.MS_PRIVATE)
    kept = [(path, os.open(path, os.O_PATH), flags) for paths, flags in ((writable, 0), (shown, kernel.MS_RDONLY))
            for path in paths]
    kernel.mount("/usr", ORIGINAL_USR, flags=kernel.MS_BIND)
    kernel.make_tree_read_only("/")
    mount_overlays()
    kernel.mount("tmpfs", "/run", "tmpfs", options="mode=0755")
    for shared in ("/tmp", "/dev/shm"):
        kernel.mount("tmpfs", shared, "tmpfs", options="mode=1777")
    kernel.mount("proc", "/proc", "proc")
    # The interfaces of a new network namespace show only in a sysfs mounted inside it.
    kernel.mount("sysfs", "/sys", "sysfs")
    for directory in EMPTY_DIRECTORIES:
        os.makedirs(directory, exist_ok=True)
        kernel.mount("tmpfs", directory, "tmpfs", options="mode=0755")
    for path, descriptor, flags in kept:
        bind(descriptor, path, flags)


def quieten_ipv6() -> None:
    """No address is tentative for a second, nobody asks for routers: states compare at once."""
    for name in ("all", "default"):
        for setting in ("accept_dad", "router_solicitations"):
            try:
                with open(f"/proc/sys/net/ipv6/conf/{name}/{setting}", "w") as file:
                    file.write("0")
            except FileNotFoundError:
                return  # A machine without IPv6.


def mount_overlays() -> None:
    kernel.mount("tmpfs", "/tmp", "tmpfs", options="mode=0700")
    for name in ("usr", "etc"):
        upper, work = f"/tmp/{name}-upper", f"/tmp/{name}-work"
        os.makedirs(upper, mode=0o755)
        os.makedirs(work, mode=0o755)
        options = f"lowerdir=/{name},upperdir={upper},workdir={work}"
        kernel.mount("overlay", f"/{name}", "overlay", options=options)
    kernel.detach("/tmp")


def bind(descriptor: int, path: str, flags: int) -> None:
    """Shows one directory of the host inside the world: for coverage data and the like, and what a
    checkout below one of the world's own directories would not have."""
    os.makedirs(path, exist_ok=True)
    kernel.mount(f"/proc/self/fd/{descriptor}", path, flags=kernel.MS_BIND)
    kernel.mount("none", path, flags=kernel.MS_BIND | kernel.MS_REMOUNT | flags)
    os.close(descriptor)


def prepare_child(request: dict) -> None:
    """What every child needs before it becomes somebody else: signals, session, network, user."""
    for number in (signal.SIGCHLD, signal.SIGINT, signal.SIGTERM, signal.SIGXFSZ):
        signal.signal(number, signal.SIG_DFL)
    ignored = request.get("ignore_sigpipe")
    signal.signal(signal.SIGPIPE, signal.SIG_IGN if ignored else signal.SIG_DFL)
    os.setsid()
    os.umask(request.get("umask", 0o022))
    os.chdir(request.get("cwd", "/"))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if request.get("netns"):
        kernel.enter_network(f"/run/netns/{request['netns']}")
    if request.get("user"):
        become(request["user"])


def become(user: str) -> None:
    entry = pwd.getpwnam(user)
    os.setgroups([])
    os.setresgid(entry.pw_gid, entry.pw_gid, entry.pw_gid)
    os.setresuid(entry.pw_uid, entry.pw_uid, entry.pw_uid)


def execute(request: dict, standard: list[int]) -> None:
    for target, descriptor in enumerate(standard):
        os.dup2(descriptor, target)
    os.execvpe(request["argv"][0], request["argv"], request["env"])


def call_function(request: dict, descriptors: list[int]) -> None:
    """Runs one of FUNCTIONS; its conversation with the test is the one socket that came along."""
    conversation = os.dup2(descriptors[0], 3)
    os.closerange(4, 1024)
    FUNCTIONS[request["function"]](socket.socket(fileno=conversation), **request["arguments"])


class Init:
    """The event loop of PID 1: requests from the test on one side, dead children on the other."""

    def __init__(self, channel: Channel):
        self.channel = channel
        self.watched: set[int] = set()
        self.wake_read, self.wake_write = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
        signal.signal(signal.SIGCHLD, lambda number, frame: None)
        signal.set_wakeup_fd(self.wake_write, warn_on_full_buffer=False)

    def serve(self) -> None:
        while True:
            ready, _, _ = select.select([self.channel, self.wake_read], [], [])
            if self.wake_read in ready:
                os.read(self.wake_read, 4096)
            self.reap()
            if self.channel in ready and not self.answer():
                return

    def reap(self) -> None:
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            if pid in self.watched:
                self.watched.discard(pid)
                code = os.waitstatus_to_exitcode(status)
                self.channel.send({"event": "exit", "pid": pid, "status": code})

    def answer(self) -> bool:
        request, descriptors = self.channel.receive()
        if request is None:
            return False
        try:
            self.start(request, descriptors)
        except OSError as error:
            self.channel.send({"event": "failed", "id": request["id"], "error": str(error)})
        for descriptor in descriptors:
            os.close(descriptor)
        return True

    def start(self, request: dict, descriptors: list[int]) -> None:
        error_read, error_write = os.pipe2(os.O_CLOEXEC)
        pid = os.fork()
        if pid == 0:
            self.in_child(request, descriptors, error_write)
        os.close(error_write)
        with os.fdopen(error_read) as report:
            error = report.read()
        if error:
            raise OSError(error)
        self.watched.add(pid)
        pidfd = os.pidfd_open(pid)
        self.channel.send({"event": "started", "id": request["id"], "pid": pid}, [pidfd])
        os.close(pidfd)

    def in_child(self, request: dict, descriptors: list[int], error_write: int) -> None:
        try:
            signal.set_wakeup_fd(-1)
            prepare_child(request)
            if "argv" in request:
                execute(request, descriptors)
            os.close(error_write)
            call_function(request, descriptors)
            os._exit(0)
        except OSError as error:
            report_failure(error_write, f"{request.get('argv', request.get('function'))}: {error}")
        except BaseException:
            traceback.print_exc(file=sys.stderr)
        os._exit(127)


def report_failure(descriptor: int, text: str) -> None:
    try:
        os.write(descriptor, text.encode())
    except OSError:
        # The function had already begun; its own conversation ends with it.
        print(text, file=sys.stderr)


def run(channel: Channel, options: dict) -> None:
    try:
        kernel.unshare(kernel.CLONE_NEWNS | kernel.CLONE_NEWNET)
        mount_world(options.get("writable", []), options.get("shown", []))
        kernel.raise_loopback()
        quieten_ipv6()
        channel.send({"event": "ready"})
    except OSError as error:
        channel.send({"event": "broken", "error": str(error)})
        return
    Init(channel).serve()
