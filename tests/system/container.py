# SPDX-License-Identifier: Apache-2.0
"""A booted Debian 12: systemd-nspawn on a root that is never written to, with a network of its own.

Everything that happens in it goes into a tmpfs. The container ends with the test process, however that ends: the
kernel then kills the first process of a process namespace in which nspawn runs, and with it all of them.
"""

import os
import shutil
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

BOOT_SECONDS = 60
LEAVES_SECONDS = 20
CGROUPS = Path("/sys/fs/cgroup")
NSPAWN = ["systemd-nspawn", "--quiet", "--boot", "--register=no", "--keep-unit", "--private-network",
          "--capability=CAP_NET_ADMIN", "--bind=/dev/net/tun", "--volatile=overlay", "--resolv-conf=off",
          "--console=read-only"]
HELD = ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
# nspawn's locks and mount points lie in /run/systemd, and its cgroups beside those of the caller: all of it in places
# that are the container's own.
APART = """
mount -t tmpfs -o mode=0755 tmpfs /run/systemd
for group; do
  [ "$group" != -- ] || break
  echo 0 >"$group/cgroup.procs"
  shift
done
shift
exec "$@"
"""


@dataclass(frozen=True)
class Done:
    """A command that has ended."""

    status: int
    stdout: str
    stderr: str


class Container:
    """A context manager. Paths and process numbers are the container's own unless they say otherwise."""

    def __init__(self, root: Path, shown: list[Path]):
        self._root = root
        self._shown = shown
        self._cgroups: list[Path] = []
        self._console: list[str] = []
        self.supervisor: subprocess.Popen | None = None
        self.leader = 0

    def __enter__(self) -> "Container":
        try:
            self._start()
            self._await_boot()
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(self, *_) -> None:
        self._end()

    def run(self, argv: list[str] | str, user: str | None = None, check: bool = True, input: str | None = None,
            timeout: float = 120) -> Done:
        """Runs a command, or a text as a shell's."""
        words = ["/bin/sh", "-c", argv] if isinstance(argv, str) else argv
        if user:
            words = ["setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", *words]
        done = subprocess.run([*self._enter(), *words], input=input, capture_output=True, text=True, timeout=timeout,
                              check=False)
        if check and done.returncode != 0:
            raise AssertionError(f"{argv} ended with {done.returncode}:\n{done.stdout}{done.stderr}\n{self.journal()}")
        return Done(done.returncode, done.stdout, done.stderr)

    def output(self, argv: list[str] | str, **more) -> str:
        return self.run(argv, **more).stdout.strip()

    def path(self, path: str) -> Path:
        """The same file seen from outside."""
        return Path(f"/proc/{self.leader}/root{path}")

    def put_file(self, path: str, data: str | bytes, mode: int = 0o644) -> None:
        target = self.path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(data.encode() if isinstance(data, str) else data)
        target.chmod(mode)

    def wait(self, condition, what: str, timeout: float = 30):
        """Polls, since what happens inside sends no events out; returns the first true value."""
        deadline = time.monotonic() + timeout
        while not (value := condition()):
            if time.monotonic() > deadline:
                raise AssertionError(f"{what} did not come within {timeout} s:\n{self.journal()}")
            time.sleep(0.05)
        return value

    def journal(self, lines: int = 60) -> str:
        done = subprocess.run([*self._enter(), "journalctl", "--no-pager", "-o", "short-precise", "-n", str(lines)],
                              capture_output=True, text=True, check=False)
        return done.stdout

    def unit_journal(self, unit: str = "quorvexvpn.service") -> list[str]:
        """The unit's own words since the boot, without times and names."""
        self.run("journalctl --sync")
        return self.output(["journalctl", "--no-pager", "-b", "-o", "cat", "-u", unit]).splitlines()

    def unit_property(self, name: str, unit: str = "quorvexvpn.service") -> str:
        return self.output(["systemctl", "show", "-p", name, "--value", unit])

    def take_interface(self, holder: int, name: str, commands: list[str]) -> None:
        """Moves an interface here from the network of a process outside, and runs `ip` commands on it."""
        subprocess.run(["nsenter", f"--net=/proc/{holder}/ns/net", "ip", "link", "set", name, "netns",
                        str(self.leader)], check=True)
        self.run(["ip", "-batch", "-"], input="\n".join(commands))

    def _enter(self) -> list[str]:
        return ["nsenter", "-t", str(self.leader), "-m", "-u", "-i", "-n", "-p", "-C", "--wdns=/"]

    def _start(self) -> None:
        self._cgroups = _make_cgroups(f"quorvex-system-{os.getpid()}")
        argv = [*NSPAWN, f"--directory={self._root}", "--machine=quorvex-system",
                *(f"--bind-ro={path}" for path in self._shown)]
        self.supervisor = subprocess.Popen(
            [*HELD, "sh", "-ec", APART, "apart", *map(str, self._cgroups), "--", *argv], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def _await_boot(self) -> None:
        deadline = time.monotonic() + BOOT_SECONDS
        while time.monotonic() < deadline:
            if self.supervisor.poll() is not None:
                raise RuntimeError(f"systemd-nspawn did not start: {self.supervisor.stderr.read()}")
            self.leader = self.leader or self._find_leader()
            if self.leader and self._system_state() in ("running", "degraded"):
                return
            time.sleep(0.05)
        raise TimeoutError("the container did not boot")

    def _find_leader(self) -> int:
        """The container's first process, which calls itself systemd: 0 while there is none."""
        below = _children(self.supervisor.pid)
        while below:
            pid = below.pop()
            if _name(pid) == "systemd":
                return pid
            below += _children(pid)
        return 0

    def _system_state(self) -> str:
        done = subprocess.run([*self._enter(), "systemctl", "is-system-running", "--wait"], capture_output=True,
                              text=True, check=False, timeout=BOOT_SECONDS)
        return done.stdout.strip()

    def _end(self) -> None:
        if self.supervisor is not None:
            self.supervisor.kill()
            self.supervisor.wait()
            self.supervisor.stderr.close()
        _remove_cgroups(self._cgroups)


def _children(pid: int) -> list[int]:
    try:
        return [int(one) for one in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]
    except OSError:
        return []


def _name(pid: int) -> str:
    try:
        return Path(f"/proc/{pid}/comm").read_text().strip()
    except OSError:
        return ""


def _make_cgroups(name: str) -> list[Path]:
    """A group in each hierarchy that systemd uses: its own of old, or the unified one."""
    hierarchies = [CGROUPS / "systemd", CGROUPS / "unified"] if (CGROUPS / "systemd").is_dir() else [CGROUPS]
    made = [hierarchy / name for hierarchy in hierarchies if (hierarchy / "cgroup.procs").exists()]
    for group in made:
        group.mkdir()
    return made


def _remove_cgroups(groups: list[Path]) -> None:
    """Deepest first; the processes in them are dying and may take their time."""
    deadline = time.monotonic() + LEAVES_SECONDS
    for group in groups:
        while group.exists():
            for folder, _, _ in os.walk(group, topdown=False):
                try:
                    os.rmdir(folder)
                except OSError:
                    continue
            if group.exists() and time.monotonic() > deadline:
                raise TimeoutError(f"{group} is not empty")


def missing_tools() -> list[str]:
    """What this machine lacks for a container."""
    return [tool for tool in ("systemd-nspawn", "nsenter", "setpriv") if shutil.which(tool) is None]
