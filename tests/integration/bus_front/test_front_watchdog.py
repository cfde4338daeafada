# SPDX-License-Identifier: Apache-2.0
"""Reports to systemd's watchdog: the service tells that it is alive, also while polkit keeps it waiting, and a service
that hangs tells nothing.

systemd's end of the socket is the test's own, since no world has a systemd. The interval is a tenth of a second, so
that a wait of many intervals is short.
"""

import signal
import socket
import time

import pytest

from quorvex_world import Process, World

pytestmark = pytest.mark.bus

INTERVAL = 0.1
SOCKET = "/run/world/notify"
ENVIRONMENT = {"WATCHDOG_USEC": str(int(INTERVAL * 1_000_000)), "NOTIFY_SOCKET": SOCKET}
ALIVE = b"WATCHDOG=1"
ABSTRACT_LISTENER = """
import socket
ears = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
ears.bind("\\0quorvex-notify")
print("listening", flush=True)
print(ears.recv(100).decode(), flush=True)
"""


class Listener:
    """systemd's end: what has been reported, and when."""

    def __init__(self, world: World):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(world.path(SOCKET)))

    def wait_report(self, timeout: float = 20) -> bytes:
        self._socket.settimeout(timeout)
        return self._socket.recv(1000)

    def drain(self) -> None:
        self._socket.setblocking(False)
        try:
            while True:
                self._socket.recv(1000)
        except BlockingIOError:
            pass

    def is_silent_for(self, seconds: float) -> bool:
        self.drain()
        try:
            self.wait_report(seconds)
        except TimeoutError:
            return True
        return False

    def assert_steady(self, intervals: int) -> None:
        """No interval passes without a report; generous to a busy machine, which is none of the service's faults."""
        self.drain()
        end = time.monotonic() + intervals * INTERVAL
        while time.monotonic() < end:
            assert self.wait_report(timeout=20 * INTERVAL) == ALIVE


@pytest.fixture
def listener(front) -> Listener:
    return Listener(front.world)


def test_an_idle_service_reports_in_each_interval(front, listener):
    front.start(env=ENVIRONMENT)
    listener.assert_steady(intervals=20)


def test_a_socket_without_a_file_will_do(front):
    """systemd may give its socket a name in the abstract space, which belongs to a network namespace."""
    ears = front.world.spawn(["/usr/bin/python3", "-c", ABSTRACT_LISTENER])
    ears.wait_line("listening")
    front.start(env={**ENVIRONMENT, "NOTIFY_SOCKET": "@quorvex-notify"})
    ears.wait_line("WATCHDOG=1")


def test_reports_go_on_while_polkit_does_not_answer(front, listener):
    front.start(env=ENVIRONMENT)
    front.world.polkit.signal(signal.SIGSTOP)
    waiting = front.alice.call_async("Disconnect")
    listener.assert_steady(intervals=30)
    assert not waiting.done
    front.world.polkit.signal(signal.SIGCONT)
    waiting.result()
    listener.assert_steady(intervals=10)


def test_reports_go_on_while_a_worker_works(front, listener):
    front.start(env=ENVIRONMENT)
    gate = front.wg_quick.gate("up")
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    listener.assert_steady(intervals=30)
    gate.open()
    front.settled("connected")


def test_reports_go_on_until_the_last_stop_has_ended(front, listener):
    service = front.start(env=ENVIRONMENT)
    front.commands()
    gate = front.nft.gate("-f")
    service.terminate()
    front.world.wait_call("nft", "-f")
    listener.assert_steady(intervals=30)
    gate.open()
    assert service.wait() == 0


def test_a_main_loop_that_hangs_reports_nothing(front, listener):
    """The tool that makes keys runs on the main thread; here it does not end by itself."""
    front.start(env=ENVIRONMENT)
    gate = front.wg.gate("genkey")
    waiting = front.alice.call_async("GenerateWireGuardKeyPair")
    front.world.wait_call("wg", "genkey")
    assert listener.is_silent_for(10 * INTERVAL)
    gate.open()
    waiting.result()
    listener.assert_steady(intervals=10)


def test_a_frozen_service_reports_nothing(front, listener):
    service = front.start(env=ENVIRONMENT)
    front.world.polkit.signal(signal.SIGSTOP)
    front.alice.call_async("Disconnect")
    listener.assert_steady(intervals=10)
    service.signal(signal.SIGSTOP)
    assert listener.is_silent_for(10 * INTERVAL)
    service.signal(signal.SIGCONT)
    front.world.polkit.signal(signal.SIGCONT)


def test_the_tools_do_not_learn_where_to_report(front, listener):
    front.start(env={**ENVIRONMENT, "WATCHDOG_PID": ""})
    front.world.wait_call("nft", "-f")
    known = set(front.world.calls("nft")[0].env)
    assert known.isdisjoint({"WATCHDOG_USEC", "WATCHDOG_PID", "NOTIFY_SOCKET"})
    assert "PATH" in known


@pytest.mark.parametrize("change", [
    pytest.param({"WATCHDOG_PID": "1"}, id="another process is watched"),
    pytest.param({"WATCHDOG_USEC": None}, id="no interval"),
    pytest.param({"WATCHDOG_USEC": "0"}, id="an interval of nothing"),
    pytest.param({"WATCHDOG_USEC": "100000x"}, id="an interval that is no number"),
])
def test_nobody_is_told_who_did_not_ask(front, listener, change):
    front.start(env={**ENVIRONMENT, **change})
    front.alice.call("RequestVpnPermission")
    assert listener.is_silent_for(10 * INTERVAL)


@pytest.mark.parametrize("place", ["", "relative", "/" + "x" * 107, "/run/world/nobody"],
                         ids=["none", "a relative path", "too long a path", "nobody there"])
def test_a_place_that_cannot_be_told_keeps_nobody_from_working(front, place):
    front.start(env={**ENVIRONMENT, "NOTIFY_SOCKET": place})
    assert front.alice.call("RequestVpnPermission") is True
