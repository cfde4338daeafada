# SPDX-License-Identifier: Apache-2.0
"""Authorisation with a user at the screen: polkit's dialog, the wait for it, and what each answer leads to.

The dialog is a real authentication agent of bob's; only the password is left out, as root tells polkit who
authenticated.
"""

import json
import signal
from pathlib import Path

import pytest

from front_steps import LAST_STOPS, NOT_AUTHORIZED, REMOVE_KILL_SWITCH
from quorvex_world import Variant

pytestmark = pytest.mark.bus

AGENT = Path(__file__).with_name("polkit_agent.py").read_text()
AUTHORITY = ("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
             "org.freedesktop.PolicyKit1.Authority")
BOB = 64102
ROOT = [["unix-user", 0]]


class Desktop:
    """Bob's desktop, calling the given methods one after the other."""

    def __init__(self, front, *methods: str):
        self._front = front
        front.world.put_file("/tmp/agent.py", AGENT)
        self._process = front.world.spawn(["/usr/bin/python3", "/tmp/agent.py", *methods], user="bob")

    def events(self, kind: str) -> list[list]:
        told = [json.loads(line) for line in self._process.lines if line.startswith("[")]
        return [rest for first, *rest in told if first == kind]

    def wait_asked(self, count: int = 1) -> list:
        """Action, message, cookie and administrators of the dialog."""
        self._front.world.wait(lambda: len(self.events("asked")) >= count, what=f"dialog {count}")
        return self.events("asked")[count - 1]

    def close_dialog(self) -> None:
        self._process.signal(signal.SIGUSR1)

    def authenticate_as_root(self, count: int = 1) -> None:
        cookie = self.wait_asked(count)[2]
        self._front.root.raw_call(*AUTHORITY, "AuthenticationAgentResponse2", "(us(sa{sv}))", BOB, cookie,
                                  ["unix-user", {"uid": Variant("u", 0)}])
        self._process.signal(signal.SIGUSR2)

    def leave(self) -> None:
        self._process.kill()
        self._process.wait()

    def wait_end(self) -> None:
        assert self._process.wait() == 0, self._process.lines


@pytest.mark.parametrize("method", ["Disconnect", "GenerateWireGuardKeyPair", "RequestVpnPermission"])
def test_the_user_is_asked_for_the_one_action_in_the_policy_s_words(front, method):
    front.start()
    desktop = Desktop(front, method)
    action, message, _, administrators = desktop.wait_asked()
    assert (action, message) == ("org.quorvexvpn.manage", "Authentication is required to manage VPN connections")
    assert administrators == ROOT
    desktop.close_dialog()
    desktop.wait_end()
    assert front.commands() == []


def test_a_closed_dialog_is_a_refusal_without_a_warning(front):
    service = front.start()
    desktop = Desktop(front, "Disconnect")
    desktop.wait_asked()
    desktop.close_dialog()
    desktop.wait_end()
    assert desktop.events("refused") == [[NOT_AUTHORIZED[0]]]
    assert front.commands() == []
    assert front.signals() == []
    assert len(service.journal) == 1


def test_an_administrator_s_password_lets_the_call_through(front):
    front.start()
    desktop = Desktop(front, "Disconnect")
    desktop.authenticate_as_root()
    desktop.wait_end()
    assert desktop.events("answered") == [["()"]]
    front.settled("disconnected")
    assert front.commands() == [REMOVE_KILL_SWITCH]


@pytest.mark.parametrize("confirmed, answer", [(True, "(true,)"), (False, "(false,)")], ids=["confirmed", "closed"])
def test_the_permission_follows_the_dialog(front, confirmed, answer):
    front.start()
    desktop = Desktop(front, "RequestVpnPermission")
    desktop.wait_asked()
    desktop.authenticate_as_root() if confirmed else desktop.close_dialog()
    desktop.wait_end()
    assert desktop.events("answered") == [[answer]]


def test_the_user_is_asked_again_for_each_call(front):
    """The policy remembers a password for active sessions only, and bob has none."""
    front.start()
    desktop = Desktop(front, "RequestVpnPermission", "Disconnect")
    desktop.authenticate_as_root(1)
    desktop.wait_asked(2)
    desktop.close_dialog()
    desktop.wait_end()
    assert desktop.events("answered") == [["(true,)"]]
    assert desktop.events("refused") == [[NOT_AUTHORIZED[0]]]


def test_other_calls_wait_while_the_dialog_is_open(front):
    """Handled in the order of their arrival: the disconnect has begun when alice is answered."""
    front.start()
    front.connected()
    desktop = Desktop(front, "Disconnect")
    desktop.wait_asked()
    waiting = front.alice.call_async("GetConnectionSnapshot")
    # The bus has passed the call on when it answers this one.
    front.bus("GetId", client=front.alice)
    desktop.authenticate_as_root()
    assert waiting.result()["stage"] in ("disconnecting", "disconnected")
    assert front.stages()[0] == "disconnecting"


def test_a_stop_signal_waits_for_the_dialog_and_then_refuses(front):
    service = front.start()
    desktop = Desktop(front, "Disconnect")
    desktop.wait_asked()
    service.terminate()
    desktop.close_dialog()
    assert service.wait() == 0
    desktop.wait_end()
    assert desktop.events("refused") == [[NOT_AUTHORIZED[0]]]
    assert front.commands() == LAST_STOPS


def test_a_user_who_leaves_with_the_dialog_open_holds_nothing_up(front):
    front.start()
    desktop = Desktop(front, "Disconnect")
    desktop.wait_asked()
    desktop.leave()
    assert front.snapshot() == {"stage": "disconnected"}
    assert front.commands() == []
    assert front.signals() == []
