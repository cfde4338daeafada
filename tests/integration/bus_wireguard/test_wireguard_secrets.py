# SPDX-License-Identifier: Apache-2.0
"""Where a profile's text may show, also when things fail: in the private file while needed."""

import os

import pytest

from quorvex_world import BusError
from quorvex_world.procfs import argv_of
from wireguard_flow import (
    ADD_INTERFACE, AMNEZIA_PROFILE, CONFIG, PRESHARED_KEY, PRIVATE_KEY, PUBLIC_KEY, profile)

pytestmark = pytest.mark.bus

SECRET_COMMENT = "only the profile says so"
TEXT = profile(f"# {SECRET_COMMENT}")
NEEDLES = [PRIVATE_KEY, PRESHARED_KEY, PUBLIC_KEY, SECRET_COMMENT, "10.8.0.2/32", "[Interface]",
           "AllowedIPs"]


class Witness:
    """Looks at every process while any recorded command runs; all that may be seen from outside."""

    def __init__(self, flow):
        self.flow = flow
        self.seen: set[str] = set()
        for tool in flow.tools.values():
            tool.on(when=self._look)

    def _look(self, call) -> bool:
        for process in self.flow.world.processes():
            self.seen.update(process["argv"])
            self._read_environment(process["host_pid"])
        self.seen.update(argv_of(call.ancestors[0][0]))
        return False

    def _read_environment(self, host_pid: int) -> None:
        try:
            with open(f"/proc/{host_pid}/environ", errors="replace") as text:
                self.seen.update(text.read().split("\0"))
        except OSError:
            pass  # It has ended.

    def texts(self) -> list[str]:
        calls = self.flow.world.all_calls(nested=True)
        words = [word for call in calls for word in (*call.argv, *call.env.values(), call.stdin)]
        signals = [signal.text for signal in self.flow.alice.signals]
        return [*self.seen, *words, *signals, *self.flow.world.service.journal]

    def found(self) -> list[tuple[str, str]]:
        return [(needle, text) for text in self.texts() for needle in NEEDLES if needle in text]


@pytest.fixture
def witness(flow):
    return Witness(flow)


def files_with(flow, secret: str) -> list[str]:
    """Every file of the world's memory file systems that holds the secret."""
    found = []
    for top in ("/run", "/tmp", "/dev/shm"):
        root = flow.world.path(top)
        for folder, _, names in os.walk(root):
            for name in names:
                path = os.path.join(folder, name)
                if os.path.isfile(path) and secret.encode() in open(path, "rb").read():
                    found.append(top + path.removeprefix(str(root)))
    return found


def test_a_connect_and_a_disconnect_show_nothing(flow, witness):
    flow.start()
    assert flow.connect(TEXT, kill_switch=True)["stage"] == "connected"
    assert files_with(flow, PRIVATE_KEY) == [CONFIG]
    assert flow.disconnect() == {"stage": "disconnected"}
    # The witness does see what may be seen: the name of the file.
    assert CONFIG in witness.seen
    assert witness.found() == []
    assert files_with(flow, PRIVATE_KEY) == []


FAULTS = {
    "up fails": lambda flow: flow.wg_quick.on("up", exit_status=1, stderr="no\n"),
    "up fails half-way": lambda flow: flow.wg_quick.on("up", shell=ADD_INTERFACE, exit_status=1),
    "up makes no interface": lambda flow: flow.wg_quick.on("up"),
    "no route": lambda flow: flow.wg_quick.on("up", shell=ADD_INTERFACE),
    "dns fails": lambda flow: flow.dns_helper.on("apply-wireguard", exit_status=1),
    "nft fails": lambda flow: flow.nft.on("-f", "-", exit_status=1),
    # Its own complaint would name the line that it does not like, as the real tool does.
    "up prints the file": lambda flow: flow.wg_quick.on("up", shell='tee /dev/fd/2 <"$2"; exit 1'),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_a_failing_connect_shows_nothing(flow, witness, fault):
    flow.start()
    FAULTS[fault](flow)
    assert flow.connect(TEXT)["stage"] == "error"
    assert witness.found() == []
    assert files_with(flow, PRIVATE_KEY) == []


def test_a_refused_profile_shows_nothing(flow, witness):
    flow.start()
    with pytest.raises(BusError) as refusal:
        flow.alice.connect("p1", "wireGuard", TEXT + "PostUp = reboot\n")
    assert not [needle for needle in NEEDLES if needle in str(refusal.value)]
    assert witness.found() == []
    assert files_with(flow, PRIVATE_KEY) == []


def test_a_profile_that_lacks_its_tools_shows_nothing(flow, witness):
    flow.start()
    assert flow.connect(AMNEZIA_PROFILE)["stage"] == "error"
    assert witness.found() == []
    assert files_with(flow, PRIVATE_KEY) == []


def test_a_cancelled_connect_shows_nothing(flow, witness):
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect(TEXT)
    flow.world.wait_call("wg-quick", "up")
    flow.alice.call("Disconnect")
    gate.open()
    flow.settled("disconnected")
    assert witness.found() == []
    assert files_with(flow, PRIVATE_KEY) == []


def test_what_a_crash_leaves_is_wiped_and_not_only_unlinked(flow):
    flow.start()
    flow.connected(TEXT)
    flow.world.run(["ln", CONFIG, "/run/second-name"])
    flow.world.service.kill()
    flow.world.service.wait()
    flow.start()
    assert flow.world.path("/run/second-name").read_bytes().strip(b"\0") == b""
    assert files_with(flow, PRIVATE_KEY) == []


@pytest.mark.parametrize("fault", [None, "up fails", "dns fails"])
def test_the_memory_of_the_service_keeps_no_key(flow, fault):
    """The kill switch still needs the text while `up` runs, so a good search finds it then."""
    gate = flow.wg_quick.gate("up")
    service = flow.start()
    if flow.keeps_freed_memory():
        pytest.skip("sanitizers keep freed memory on purpose")
    if fault:
        FAULTS[fault](flow)
    flow.begin_connect(TEXT)
    flow.world.wait_call("wg-quick", "up")
    assert service.memory_contains(PRIVATE_KEY.encode())
    gate.open()
    flow.settled("connected", "error")
    assert not service.memory_contains(PRIVATE_KEY.encode())
    assert not service.memory_contains(PRESHARED_KEY.encode())
