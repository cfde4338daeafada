# SPDX-License-Identifier: Apache-2.0
"""What the WireGuard tests share: profiles, the commands that the service runs, a service's client.

The tools are stand-ins and recorders throughout: these tests are about which command runs when,
with what, and what the service makes of its failure. That the real tools bring a tunnel up is
shown elsewhere.
"""

import os
import stat
from pathlib import Path

from quorvex_world.procfs import status_fields

DIRECTORY = "/run/quorvexvpn"
CONFIG = f"{DIRECTORY}/quorvexvpn.conf"
SING_BOX_CONFIG = f"{DIRECTORY}/sing-box.json"
XRAY_CONFIG = f"{DIRECTORY}/xray.json"
OPENVPN_CONFIG = f"{DIRECTORY}/openvpn.ovpn"
OPENVPN_PID = f"{DIRECTORY}/openvpn.pid"
OTHER_FILES = (SING_BOX_CONFIG, XRAY_CONFIG, OPENVPN_CONFIG, OPENVPN_PID)

WG_QUICK = "/usr/bin/wg-quick"
AWG_DIRECTORY = "/usr/libexec/quorvexvpn"
AWG_QUICK = f"{AWG_DIRECTORY}/awg-quick"
AWG = f"{AWG_DIRECTORY}/awg"
AWG_ENGINE = f"{AWG_DIRECTORY}/amneziawg-go"
DNS_HELPER = "/usr/libexec/quorvexvpn-dns"
IP = "/usr/sbin/ip"
NFT = "/usr/sbin/nft"
RESOLVECTL = "/usr/bin/resolvectl"
TIMEOUT = "/usr/bin/timeout"

# The commands, as one line each, in the words in which a failing test should show them.
REMOVE_KILL_SWITCH = f"{NFT} -f -"
APPLY_KILL_SWITCH = REMOVE_KILL_SWITCH
REVERT_OPENVPN_DNS = f"{DNS_HELPER} revert"
UP = f"{WG_QUICK} up {CONFIG}"
DOWN = f"{WG_QUICK} down {CONFIG}"
AWG_UP = f"{AWG_QUICK} up {CONFIG}"
AWG_DOWN = f"{AWG_QUICK} down {CONFIG}"
IPV4_ROUTES = f"{IP} -4 route show table all"
IPV6_ROUTES = f"{IP} -6 route show table all"
APPLY_DNS = f"{DNS_HELPER} apply-wireguard 10.8.0.1"
REVERT_DNS = f"{DNS_HELPER} revert-wireguard"

CLEAR_GROUND = [REMOVE_KILL_SWITCH, REVERT_OPENVPN_DNS]
BRING_UP = [UP, IPV4_ROUTES, APPLY_DNS]
TAKE_DOWN = [REVERT_DNS, DOWN]
STOP_TUNNEL = [REMOVE_KILL_SWITCH, *TAKE_DOWN]

REMOVAL_SCRIPT = "table inet quorvexvpn\ndelete table inet quorvexvpn\n"
REPAIR_REQUIRED = "; cleanup repair required"
NOT_CLEANED_UP = " The failed engine could not be fully cleaned up."
ADMINISTRATOR_REPAIR = (
    "The WireGuard interface exists without its private configuration; "
    "administrator repair is required.")
KILL_SWITCH_FAILED = "The nftables leak-protection command failed."

# Made with `wg genkey` and `wg genpsk` for these tests; they open nothing.
PRIVATE_KEY = "SP9VNx5wb2mSgxpsbihog+1WrPp0tXu8ZNICLz1z9lM="
PRESHARED_KEY = "pX1U6DJ+c8poNWQR5a+U2pb5PS2YCJSQCc82KIWfTnU="
PUBLIC_KEY = "q2Ef1pNzYT0oYAKZL1gsG/LpsjzXpU5ApCjnVPxfqw4="

# /usr/bin/ip is the program itself; the service's /usr/sbin/ip is a recorder here.
ADD_INTERFACE = ("/usr/bin/ip tuntap add dev quorvexvpn mode tun && "
                 "/usr/bin/ip link set quorvexvpn up")
ADD_TUNNEL = f"{ADD_INTERFACE} && /usr/bin/ip -4 route add default dev quorvexvpn"
REMOVE_INTERFACE = "/usr/bin/ip link delete dev quorvexvpn"


def profile(*interface_lines: str, dns: str = "DNS = 10.8.0.1") -> str:
    """A valid profile with more lines in its Interface section."""
    lines = ["[Interface]", f"PrivateKey = {PRIVATE_KEY}", "Address = 10.8.0.2/32", dns,
             *interface_lines, "[Peer]", f"PublicKey = {PUBLIC_KEY}",
             f"PresharedKey = {PRESHARED_KEY}", "Endpoint = 203.0.113.9:51820",
             "AllowedIPs = 0.0.0.0/0", ""]
    return "\n".join(lines)


PROFILE = profile()
AMNEZIA_PROFILE = profile("Jc = 4", "Jmin = 40", "Jmax = 70")


def without_dns(text: str) -> bytes:
    """What the private file holds for a profile whose only DNS line is the usual one."""
    return text.replace("DNS = 10.8.0.1\n", "").encode()


class Flow:
    """A service among recording tools, its client, and the commands since the last look."""

    def __init__(self, world):
        self.world = world
        self.tools = world.standard_tools()
        self._seen = 0
        self._marked = 0
        self._old_threads: set[int] = set()

    @property
    def wg_quick(self):
        return self.tools["wg-quick"]

    @property
    def dns_helper(self):
        return self.tools["quorvexvpn-dns"]

    @property
    def ip(self):
        return self.tools["ip"]

    @property
    def nft(self):
        return self.tools["nft"]

    @property
    def alice(self):
        return self.world.client("alice")

    def start(self, **options):
        """Starts the service and forgets what its recovery of a clean machine ran."""
        service = self.world.start_service(**options)
        self.commands()
        return service

    def add_amnezia_tools(self):
        """Stand-ins for the AmneziaWG tools; `up` and `down` make and remove a real interface."""
        quick = self.world.stand_in(AWG_QUICK)
        quick.on("up", shell=ADD_TUNNEL)
        quick.on("down", shell=REMOVE_INTERFACE)
        self.world.stand_in(AWG)
        self.world.stand_in(AWG_ENGINE)
        return quick

    # Operations, each to its end.

    def begin_connect(self, config: str = PROFILE, protocol: str = "wireGuard",
                      kill_switch: bool = False) -> None:
        self.mark()
        self.alice.connect("p1", protocol, config, kill_switch=kill_switch)

    def connect(self, config: str = PROFILE, **options) -> dict:
        """Connects and returns the snapshot in which that ended."""
        self.begin_connect(config, **options)
        return self.settled("connected", "error")

    def connected(self, config: str = PROFILE, **options) -> None:
        """Connects, which must succeed, and forgets the commands of it."""
        snapshot = self.connect(config, **options)
        assert snapshot["stage"] == "connected", snapshot
        self.commands()

    def connect_without_recovery(self, config: str = PROFILE) -> list[str]:
        """Begins a connect that must fail, and holds the recovery after it, which would hide what
        the start itself leaves; returns the files there are by then."""
        hold = Hold(self, "nft", number=2)
        self.begin_connect(config)
        hold.wait()
        files = self.files()
        hold.release()
        return files

    def begin_disconnect(self) -> None:
        self.mark()
        self.alice.call("Disconnect")

    def disconnect(self) -> dict:
        """Disconnects and returns the snapshot in which that ended."""
        self.begin_disconnect()
        return self.settled("disconnected", "error")

    def settled(self, *stages: str) -> dict:
        """Waits for one of the stages, and for the end of the worker, which would be busy else."""
        self.world.wait(lambda: set(stages) & set(self.stages()), 40, f"one of {stages}")
        self.world.poll(self.is_idle, what="the end of the worker")
        return self.snapshot()

    def mark(self) -> None:
        """Stages, logs and threads count from here."""
        self._marked = len(self.alice.signals)
        self._old_threads = set(self.world.poll(self._threads, what="the list of threads"))

    def stages(self) -> list[str]:
        return [one.value["stage"] for one in self._signals("SnapshotChanged")]

    def logs(self) -> list[tuple[str, str]]:
        return [(one.value["level"], one.value["message"]) for one in self._signals("LogEmitted")]

    def _signals(self, name: str) -> list:
        return [one for one in self.alice.signals[self._marked:] if one.name == name]

    def is_idle(self) -> bool:
        """Whether every thread that began since the mark as a worker has ended. GLib names its own
        threads; for a worker's name the kernel has no room, so it keeps that of the main thread or
        is cut after 15 bytes, as the version of GLib has it."""
        threads = self._threads() or {}
        main = threads.get(self.world.service.host_pid)
        new = [name for number, name in threads.items() if number not in self._old_threads]
        return main is not None and not any(name in (main, "quorvex-engine-") for name in new)

    def _threads(self) -> dict[int, str] | None:
        """None when the list was cut short, as it is when one of the threads ends under it."""
        threads = self.world.service.threads()
        count = int(status_fields(self.world.service.host_pid)["Threads"])
        return threads if len(threads) == count else None

    # What there is to see.

    def snapshot(self) -> dict:
        return self.alice.call("GetConnectionSnapshot")

    def repair_required(self) -> bool:
        return self.alice.call("GetRuntimeInfo")["summary"].endswith(REPAIR_REQUIRED)

    def commands(self) -> list[str]:
        """The commands since the last look, in order."""
        calls = self.world.all_calls()
        lines = [" ".join(call.argv) for call in calls[self._seen:]]
        self._seen = len(calls)
        return lines

    def files(self) -> list[str]:
        directory = self.world.path(DIRECTORY)
        return sorted(os.listdir(directory)) if directory.exists() else []

    def put_private(self, path: str, data: str | bytes = "leftover\n") -> None:
        """Leaves a file in the private directory as an earlier run of the service would have."""
        directory = self.world.path(DIRECTORY)
        directory.mkdir(mode=0o700, exist_ok=True)
        self.world.put_file(path, data if isinstance(data, bytes) else data.encode(), mode=0o600)

    def add_interface(self) -> None:
        self.world.run(["/bin/sh", "-c", ADD_INTERFACE])

    def remove_interface(self) -> None:
        self.world.run(["/bin/sh", "-c", REMOVE_INTERFACE])

    def keeps_freed_memory(self) -> bool:
        """Sanitizers do so on purpose."""
        program = Path(f"/proc/{self.world.service.host_pid}/exe").read_bytes()
        return b"__asan_init" in program or b"__tsan_init" in program

    def interface_exists(self) -> bool:
        return self.world.interface_exists("quorvexvpn")


class Hold:
    """Holds one call of a tool, counted from now on, until it is released."""

    def __init__(self, flow, name: str, *words: str, number: int = 1):
        self._flow = flow
        self._name, self._words = name, words
        self._number = len(flow.world.calls(name, *words)) + number
        self._gate = None
        flow.tools[name].on(*words, when=self._is_the_one)

    def _is_the_one(self, call) -> bool:
        # Asked while the call waits for its answer: a gate set now holds it, and those after it.
        seen = len(self._flow.world.calls(self._name, *self._words))
        if self._gate is None and seen == self._number:
            self._gate = self._flow.tools[self._name].gate(*self._words)
        return False

    def wait(self) -> None:
        self._flow.world.wait_call(self._name, *self._words, count=self._number)
        self._flow.world.poll(lambda: self._gate, what=f"the hold of {self._name}")

    def release(self) -> None:
        self._gate.open()


def base_name(path: str) -> str:
    return path.rpartition("/")[2]


def environment_of(service) -> dict[str, str]:
    with open(f"/proc/{service.host_pid}/environ") as text:
        return dict(entry.partition("=")[::2] for entry in text.read().split("\0")[:-1])


def mode_of(path) -> int:
    return stat.S_IMODE(os.lstat(path).st_mode)


def failure(sentence: str) -> dict:
    """The snapshot of a failed connect."""
    return {"stage": "error", "activeProfileId": "p1", "lastError": sentence}


def stop_failure(sentence: str) -> dict:
    """The snapshot of a failed disconnect or of a failed recovery at start-up."""
    return {"stage": "error", "lastError": sentence}


TRACE = "/run/trace"


def straced(path: str, trace: str = "", inject: str = "") -> dict:
    """Options of a start under strace, which sees, or makes fail, the system calls on one path."""
    what = ["-e", f"inject={inject}"] if inject else ["-e", f"trace={trace}"]
    # A leak sanitizer cannot work in a process that is traced.
    sanitizer = {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"}
    return {"wrapper": ["strace", "-f", "-qq", "-o", TRACE, *what, "-P", path], "env": sanitizer}
