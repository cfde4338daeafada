# SPDX-License-Identifier: Apache-2.0
"""What the tests of the service's front share: its words, its commands, and one service with its clients.

The tools are stand-ins and recorders throughout: these tests are about what the bus shows and which command runs when.
That the real tools bring a tunnel up is shown elsewhere.
"""

import json
import re
import subprocess

from quorvex_world import BUS_NAME, BusError, Client, Pending, Signal

CONFIG = "/run/quorvexvpn/quorvexvpn.conf"
DNS_HELPER = "/usr/libexec/quorvexvpn-dns"

# The commands, as one line each, in the words in which a failing test should show them.
REMOVE_KILL_SWITCH = "/usr/sbin/nft -f -"
REVERT_OPENVPN_DNS = f"{DNS_HELPER} revert"
UP = f"/usr/bin/wg-quick up {CONFIG}"
DOWN = f"/usr/bin/wg-quick down {CONFIG}"
IPV4_ROUTES = "/usr/sbin/ip -4 route show table all"
APPLY_DNS = f"{DNS_HELPER} apply-wireguard 10.8.0.1"
REVERT_DNS = f"{DNS_HELPER} revert-wireguard"

CLEAR_GROUND = [REMOVE_KILL_SWITCH, REVERT_OPENVPN_DNS]
BRING_UP = [UP, IPV4_ROUTES, APPLY_DNS]
TAKE_DOWN = [REVERT_DNS, DOWN]
# The shutdown stops the engine, and so does the end of the record that owned it.
LAST_STOPS = [REMOVE_KILL_SWITCH] * 2

REPAIR_REQUIRED = "; cleanup repair required"
NOT_CLEANED_UP = " The failed engine could not be fully cleaned up."
KILL_SWITCH_FAILED = "The nftables leak-protection command failed."
DOWN_FAILED = "WireGuard disconnect cleanup failed."
STARTED = "QuorvexVPN Linux service started."
NAME_LOST = "QuorvexVPN Linux service lost its D-Bus name."

ERROR = "org.quorvexvpn.Error."
SHUTTING_DOWN = (ERROR + "ShuttingDown", "The QuorvexVPN service is shutting down.")
NOT_AUTHORIZED = (ERROR + "NotAuthorized", "Authorization to manage the VPN was denied.")
BUSY = (ERROR + "Busy", "Another VPN engine operation is already in progress.")
INVALID_PROFILE = ERROR + "InvalidProfile"
RUNTIME_UNAVAILABLE = ERROR + "RuntimeUnavailable"
WIREGUARD_UNAVAILABLE = ERROR + "WireGuardUnavailable"

EMPTY_REPLY = ("()", "()")

# Made with `wg genkey` for these tests; they open nothing.
PRIVATE_KEY = "SP9VNx5wb2mSgxpsbihog+1WrPp0tXu8ZNICLz1z9lM="
PUBLIC_KEY = "q2Ef1pNzYT0oYAKZL1gsG/LpsjzXpU5ApCjnVPxfqw4="

PROFILE = f"""[Interface]
PrivateKey = {PRIVATE_KEY}
Address = 10.8.0.2/32
DNS = 10.8.0.1
[Peer]
PublicKey = {PUBLIC_KEY}
Endpoint = 203.0.113.9:51820
AllowedIPs = 0.0.0.0/0
"""
SING_BOX_PROFILE = json.dumps({
    "dns": {"servers": [{"type": "tls", "server": "1.1.1.1"}]},
    "inbounds": [{"type": "tun", "auto_route": True}],
    "outbounds": [{"type": "vless", "tag": "proxy", "server": "203.0.113.9"}]})
XRAY_PROFILE = json.dumps({
    "inbounds": [{"protocol": "tun"}],
    "outbounds": [{"protocol": "vless", "tag": "proxy"}]})
OPENVPN_PROFILE = "client\nremote 203.0.113.9 1194 udp\ndev tun\n"

# "quorvex-engine-connect" is longer than the kernel takes: older GLib leaves the process's name, newer cuts it off.
WORKER_NAMES = ("quorvexvpn-serv", "quorvex-engine-")

# /usr/bin/ip is the program itself; the service's /usr/sbin/ip is a recorder here.
ADD_INTERFACE = "/usr/bin/ip tuntap add dev quorvexvpn mode tun && /usr/bin/ip link set quorvexvpn up"


class Front:
    """A service among recording tools, the clients of one desktop, and the commands since the last look."""

    def __init__(self, world):
        self.world = world
        self.tools = world.standard_tools()
        self.alice: Client = world.client("alice")
        self._seen = 0
        self._marks: dict[int, int] = {}
        self._residents: set[int] = set()

    @property
    def wg_quick(self):
        return self.tools["wg-quick"]

    @property
    def nft(self):
        return self.tools["nft"]

    @property
    def wg(self):
        return self.tools["wg"]

    @property
    def bob(self) -> Client:
        return self.world.client("bob")

    @property
    def root(self) -> Client:
        return self.world.client("root")

    @property
    def service(self):
        return self.world.service

    def start(self, forget: bool = True, **options):
        """Starts the service and, unless told not to, forgets what it said and ran until it owned its name."""
        service = self.world.start_service(**options)
        # The answer comes after the signal of the start.
        self.snapshot()
        self._residents = set(service.threads())
        if forget:
            self.forget()
        return service

    def start_without_waiting(self):
        return self.world.start_service(wait=False)

    # Operations, each to its end.

    def begin_connect(self, profile_id: str = "p1", config: str = PROFILE, **more) -> None:
        self.alice.connect(profile_id, more.pop("protocol", "wireGuard"), config, **more)

    def connect(self, *arguments, **more) -> dict:
        """Connects and returns the snapshot in which that ended."""
        self.forget()
        self.begin_connect(*arguments, **more)
        return self.settled("connected", "error")

    def connected(self, *arguments, **more) -> None:
        """Connects, which must succeed, and forgets the commands and signals of it."""
        snapshot = self.connect(*arguments, **more)
        assert snapshot["stage"] == "connected", snapshot
        self.forget()

    def disconnect(self) -> dict:
        self.forget()
        self.alice.call("Disconnect")
        return self.settled("disconnected", "error")

    def settled(self, *stages: str) -> dict:
        """Waits for one of the stages and for the end of the workers, so that the next call does not find one."""
        self.world.wait(lambda: set(stages) & set(self.stages()), 40, f"one of {stages}")
        self.world.poll(lambda: not self.workers(), what="the end of the workers")
        # Answered after every signal of the workers, so none of them is still on its way to this client.
        return self.snapshot()

    # What there is to see.

    def snapshot(self) -> dict:
        return self.alice.call("GetConnectionSnapshot")

    def summary(self) -> str:
        return self.alice.call("GetRuntimeInfo")["summary"]

    def repair_required(self) -> bool:
        return self.summary().endswith(REPAIR_REQUIRED)

    def workers(self) -> list[int]:
        """The threads that carry out a connect or a disconnect."""
        threads = self.service.threads()
        return [one for one, name in threads.items() if name in WORKER_NAMES and one not in self._residents]

    def commands(self) -> list[str]:
        """The commands since the last look, in order."""
        calls = self.world.all_calls()
        lines = [" ".join(call.argv) for call in calls[self._seen:]]
        self._seen = len(calls)
        return lines

    def forget(self) -> None:
        """Commands and alice's signals count from here."""
        self.commands()
        self.mark(self.alice)

    def mark(self, client: Client) -> None:
        client.mark()
        self._marks[id(client)] = len(client.signals)

    def signals(self, client: Client | None = None) -> list[Signal]:
        """What a client (alice) has received since its mark, without the network's own news."""
        client = client or self.alice
        heard = client.signals[self._marks.get(id(client), 0):]
        return [one for one in heard if one.name != "NetworkPathChanged"]

    def heard(self, client: Client | None = None) -> list[tuple[str, str]]:
        """The same as (name, exact text with types), times masked."""
        return [(one.name, masked(one.text)) for one in self.signals(client)]

    def stages(self, client: Client | None = None) -> list[str]:
        return [one.value["stage"] for one in self.signals(client) if one.name == "SnapshotChanged"]

    def logs(self, client: Client | None = None) -> list[tuple[str, str]]:
        entries = [one.value for one in self.signals(client) if one.name == "LogEmitted"]
        return [(entry["level"], entry["message"]) for entry in entries]

    def wait_stages(self, *stages: str) -> None:
        """For a service that has ended: its last words may still be on their way."""
        self.world.wait(lambda: len(self.stages()) >= len(stages), what=f"{stages}")
        assert self.stages() == list(stages)

    def bus(self, member: str, signature: str = "()", *arguments, client: Client | None = None):
        """A question to the bus itself."""
        return (client or self.root).raw_call(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member, signature, *arguments)

    def name_has_owner(self) -> bool:
        return self.bus("NameHasOwner", "(s)", BUS_NAME)


class Hold:
    """Holds one call of a tool, counted from now on, until it is released; the calls before it pass."""

    def __init__(self, front: Front, name: str, *words: str, number: int = 1):
        self._front, self._name, self._words = front, name, words
        self._number = len(front.world.calls(name, *words)) + number
        self._gate = None
        front.tools[name].on(*words, when=self._is_the_one)

    def _is_the_one(self, call) -> bool:
        # Asked while the call waits for its answer, so a gate set now holds this call and those after it.
        if self._gate is None and len(self._front.world.calls(self._name, *self._words)) == self._number:
            self._gate = self._front.tools[self._name].gate(*self._words)
        return False

    def wait(self) -> None:
        self._front.world.wait(lambda: self._gate, 20, f"call {self._number} of {self._name}")

    def release(self) -> None:
        self._gate.open()


class OwnerLog(dict):
    """Takes the place of a client's table of owners and notes how many signals had come before each change."""

    def __init__(self, client: Client):
        super().__init__(client.owners)
        self._client = client
        self._changes: list[tuple[str, str, int]] = []
        client.owners = self

    def __setitem__(self, name: str, owner: str) -> None:
        self._changes.append((self.get(name, ""), owner, len(self._client.signals)))
        super().__setitem__(name, owner)

    def arrivals(self) -> list[tuple[str, int]]:
        return [(owner, count) for _, owner, count in self._changes if owner]

    def departures(self) -> list[tuple[str, int]]:
        return [(before, count) for before, owner, count in self._changes if before and not owner]


def refusal(pending: Pending) -> tuple[str, str]:
    """The name and the message with which a call was refused."""
    try:
        answer = pending.result()
    except BusError as error:
        return error.name, error.message
    raise AssertionError(f"the call was answered: {answer}")


def refused(client: Client, member: str, *arguments) -> tuple[str, str]:
    return refusal(client.call_async(member, *arguments))


def refused_connect(client: Client, profile_id="p2", protocol="wireGuard", config=PROFILE, **more) -> tuple[str, str]:
    return refusal(client.connect_async(profile_id, protocol, config, **more))


def reply(client: Client, member: str, *arguments) -> tuple[str, str]:
    """Signature and exact text of an answer."""
    body = client.call_reply(member, *arguments)
    return body.signature, body.text


def masked(text: str) -> str:
    return re.sub(r"int64 \d+", "int64 #", text)


def snapshot_text(stage: str, profile_id: str = "", error: str = "") -> str:
    entries = [f"'stage': <'{stage}'>"]
    entries += [f"'activeProfileId': <'{profile_id}'>"] if profile_id else []
    entries += [f"'lastError': <'{error}'>"] if error else []
    entries += ["'connectedAtEpochMillis': <int64 #>"] if stage == "connected" else []
    return "({" + ", ".join(entries) + "},)"


def snapshot_signal(stage: str, profile_id: str = "", error: str = "") -> tuple[str, str]:
    return "SnapshotChanged", snapshot_text(stage, profile_id, error)


def log_signal(level: str, message: str) -> tuple[str, str]:
    return "LogEmitted", f"({{'level': <'{level}'>, 'message': <'{message}'>, 'timestamp': <int64 #>}},)"


def real_public_key(private_key: str) -> str:
    """What the machine's own wg derives, apart from any world."""
    return subprocess.run(["/usr/bin/wg", "pubkey"], input=private_key + "\n", capture_output=True, text=True,
                          check=True).stdout.strip()
