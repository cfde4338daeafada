# SPDX-License-Identifier: Apache-2.0
"""Where a process engine's profile may show: in its private file while it runs, nowhere else."""

import os
from itertools import chain

import pytest

from engine_flow import OTHER_SECRET, SECRET, SING_BOX
from quorvex_world.procfs import argv_of

pytestmark = pytest.mark.bus

# A copy whose beginning the allocator has overwritten still gives most of the secret away.
PART = 12
PARTS = [secret[start:start + PART].encode() for secret in (SECRET, OTHER_SECRET)
         for start in range(0, len(secret) - PART + 1, 4)]


def files_with_secrets(flow) -> list[str]:
    found = []
    for top in ("/run", "/tmp", "/dev/shm", "/etc", "/usr/libexec"):
        root = flow.world.path(top)
        for folder, _, names in os.walk(root):
            for path in (os.path.join(folder, name) for name in names):
                if os.path.isfile(path) and not os.path.islink(path):
                    data = open(path, "rb").read()
                    if any(part in data for part in PARTS):
                        found.append(top + path.removeprefix(str(root)))
    return found


def parts_in_memory(service) -> set[bytes]:
    found, tail = set(), b""
    for piece in service.memory():
        found.update(part for part in PARTS if part in tail + piece)
        tail = piece[-PART:]
    return found


class Witness:
    """What could be seen from outside while each recorded command ran."""

    def __init__(self, flow):
        self._flow = flow
        self.seen: set[str] = set()
        for tool in flow.tools.values():
            tool.on(when=self._look)

    def _look(self, call) -> bool:
        for process in self._flow.world.processes():
            self.seen.update(argv_of(process["host_pid"]))
            try:
                with open(f"/proc/{process['host_pid']}/environ", errors="replace") as text:
                    self.seen.update(text.read().split("\0"))
            except OSError:
                pass  # It has ended.
        return False

    def secrets(self) -> list[str]:
        calls = self._flow.world.all_calls(nested=True)
        words = [word for call in calls for word in (*call.argv, *call.env.values(), call.stdin)]
        signals = [signal.text for signal in self._flow.alice.signals]
        texts = chain(self.seen, words, signals, self._flow.world.service.journal)
        return [text for text in texts if any(part.decode() in text for part in PARTS)]


FAULTS = {
    "it exits": {"exit_status": 1},
    "it prints its file": {"shell": "cat /run/quorvexvpn/* | tee /dev/fd/2; exit 1"},
}


def test_a_connect_and_a_disconnect_show_nothing(flow, engine):
    witness = Witness(flow)
    flow.start()
    assert flow.attempt(engine, kill_switch=True)["stage"] == "connected"
    assert files_with_secrets(flow) == [engine.config]
    assert flow.disconnect() == {"stage": "disconnected"}
    # The witness does see what may be seen: the name of the file.
    assert engine.config in witness.seen
    assert witness.secrets() == []
    assert files_with_secrets(flow) == []


@pytest.mark.parametrize("fault", FAULTS)
def test_a_failing_engine_shows_nothing(flow, engine, fault):
    witness = Witness(flow)
    flow.behave(engine, **FAULTS[fault])
    flow.start()
    assert flow.attempt(engine)["stage"] == "error"
    assert witness.secrets() == []
    assert files_with_secrets(flow) == []


def test_a_refusing_check_shows_nothing(flow):
    witness = Witness(flow)
    flow.tools["sing-box"].on("check", shell='tee /dev/fd/2 <"$3"; exit 1')
    flow.start()
    assert flow.attempt(SING_BOX)["stage"] == "error"
    assert witness.secrets() == []
    assert files_with_secrets(flow) == []


def test_a_dead_engine_leaves_nothing(flow, engine):
    flow.start()
    flow.up(engine)
    flow.mark()
    flow.kill_engine(engine)
    flow.world.wait(lambda: "error" in flow.stages(), what="the news of its end")
    flow.world.poll(lambda: files_with_secrets(flow) == [], what="the wiping of its files")


def test_what_a_crash_leaves_is_wiped_and_not_only_unlinked(flow, engine):
    flow.start()
    flow.up(engine)
    flow.world.run(["ln", engine.config, "/run/second-name"])
    assert sorted(files_with_secrets(flow)) == sorted([engine.config, "/run/second-name"])
    flow.world.service.kill()
    flow.world.service.wait()
    flow.start()
    assert flow.world.path("/run/second-name").read_bytes().strip(b"\0") == b""
    assert files_with_secrets(flow) == []


@pytest.mark.parametrize("fails", [False, True], ids=["it comes up", "it exits"])
def test_the_memory_of_the_service_keeps_no_secret(flow, engine, fails):
    """The kill switch still needs the text while the engine comes up, so a good search finds it
    then."""
    if fails:
        flow.behave(engine, exit_status=1)
    gate = flow.gate(engine)
    service = flow.start()
    if flow.keeps_freed_memory():
        pytest.skip("sanitizers keep freed memory on purpose")
    flow.begin(engine, kill_switch=True)
    flow.wait_run(engine)
    assert parts_in_memory(service) == set(PARTS)
    gate.open()
    flow.settled("connected", "error")
    assert parts_in_memory(service) == set()


def test_the_memory_of_the_service_keeps_no_secret_of_a_configuration_that_was_refused(flow):
    flow.tools["sing-box"].on("check", exit_status=1)
    service = flow.start()
    if flow.keeps_freed_memory():
        pytest.skip("sanitizers keep freed memory on purpose")
    assert flow.attempt(SING_BOX)["stage"] == "error"
    assert parts_in_memory(service) == set()
