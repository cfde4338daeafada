# SPDX-License-Identifier: Apache-2.0
"""Who may do what: each privileged method refused as well as allowed, and a refusal that changes nothing."""

import signal

import pytest

from front_steps import (
    BRING_UP, CLEAR_GROUND, NOT_AUTHORIZED, PROFILE, Front, refusal, refused, refused_connect, reply, snapshot_text)

pytestmark = pytest.mark.bus

PRIVILEGED = ["GenerateWireGuardKeyPair", "Disconnect", "Connect"]
READ_ONLY = ["Initialize", "GetRuntimeInfo", "GetCapabilities", "GetConnectionSnapshot", "GetNetworkPath"]
AUTHORIZATION_FAILED = "Polkit authorization failed: "
PERMISSION_FAILED = "Polkit permission request failed: "


def attempt(client, method: str):
    """A call that would work for an authorised user."""
    if method == "Connect":
        return client.connect_async("p1", "wireGuard", PROFILE)
    return client.call_async(method)


def warnings(service) -> list[str]:
    """What stands after the prefix of each warning in the journal."""
    return [line.partition("WARNING **: ")[2].partition(": ")[2] for line in service.journal if "WARNING **" in line]


def expect_nothing_happened(front: Front, before) -> None:
    assert front.commands() == []
    assert front.signals() == []
    assert reply(front.alice, "GetConnectionSnapshot")[1] == snapshot_text("disconnected")
    assert not front.world.path("/run/quorvexvpn").exists()
    assert front.world.state() == before


@pytest.mark.parametrize("user", ["bob", "nobody"])
@pytest.mark.parametrize("method", PRIVILEGED)
def test_an_unauthorised_user_is_refused_and_nothing_happens(front, method, user):
    service = front.start()
    before = front.world.state()
    assert refusal(attempt(front.world.client(user), method)) == NOT_AUTHORIZED
    expect_nothing_happened(front, before)
    assert warnings(service) == []


@pytest.mark.parametrize("user", ["alice", "root"])
@pytest.mark.parametrize("method, commands", [
    ("GenerateWireGuardKeyPair", ["/usr/bin/wg genkey", "/usr/bin/wg pubkey"]),
    ("Disconnect", ["/usr/sbin/nft -f -"]),
    ("Connect", CLEAR_GROUND + BRING_UP),
], ids=PRIVILEGED)
def test_an_authorised_user_may(front, user, method, commands):
    """The other half of the refusals: the same calls do something."""
    front.start()
    attempt(front.world.client(user), method).result()
    front.world.wait(lambda: len(front.world.all_calls()) >= 2 + len(commands), what="the commands")
    front.world.poll(lambda: not front.workers(), what="the end of the worker")
    assert front.commands() == commands


@pytest.mark.parametrize("method", READ_ONLY)
def test_reading_needs_no_authorisation_and_no_polkit(front, method):
    service = front.start()
    front.world.stop_polkit()
    front.bob.call(method)
    assert warnings(service) == []


@pytest.mark.parametrize("user, granted", [
    ("alice", "(true,)"), ("root", "(true,)"), ("bob", "(false,)"), ("nobody", "(false,)")])
def test_the_permission_is_told_in_one_word_and_never_refused(front, user, granted):
    service = front.start()
    assert reply(front.world.client(user), "RequestVpnPermission") == ("(b)", granted)
    assert warnings(service) == []
    assert front.commands() == []
    assert front.signals() == []


@pytest.mark.parametrize("user", ["alice", "root", "bob"])
@pytest.mark.parametrize("method", PRIVILEGED)
def test_without_polkit_everybody_is_refused_and_the_journal_says_why(front, user, method):
    service = front.start()
    before = front.world.state()
    front.world.stop_polkit()
    assert refusal(attempt(front.world.client(user), method)) == NOT_AUTHORIZED
    expect_nothing_happened(front, before)
    [warning] = warnings(service)
    assert warning.startswith(AUTHORIZATION_FAILED)
    assert len(warning) > len(AUTHORIZATION_FAILED)


@pytest.mark.parametrize("user", ["alice", "root", "bob"])
def test_without_polkit_nobody_has_the_permission_and_the_journal_says_why(front, user):
    service = front.start()
    front.world.stop_polkit()
    assert reply(front.world.client(user), "RequestVpnPermission") == ("(b)", "(false,)")
    [warning] = warnings(service)
    assert warning.startswith(PERMISSION_FAILED)
    assert len(warning) > len(PERMISSION_FAILED)


def test_polkit_is_found_again_when_it_comes_back(front):
    front.start()
    front.world.stop_polkit()
    assert refused(front.alice, "Disconnect") == NOT_AUTHORIZED
    front.world.start_polkit()
    assert front.disconnect() == {"stage": "disconnected"}


def test_polkit_is_asked_anew_for_every_call(front):
    front.start()
    front.alice.call("GenerateWireGuardKeyPair")
    front.world.polkit_refuse("alice")
    assert refused(front.alice, "GenerateWireGuardKeyPair") == NOT_AUTHORIZED
    assert reply(front.alice, "RequestVpnPermission")[1] == "(false,)"
    front.world.polkit_allow("alice", "bob")
    front.alice.call("GenerateWireGuardKeyPair")
    front.bob.call("GenerateWireGuardKeyPair")
    assert reply(front.bob, "RequestVpnPermission")[1] == "(true,)"


def test_a_granted_permission_is_not_remembered(front):
    front.start()
    assert reply(front.alice, "RequestVpnPermission")[1] == "(true,)"
    front.world.polkit_refuse("alice")
    assert refused_connect(front.alice) == NOT_AUTHORIZED
    assert front.commands() == []


@pytest.mark.parametrize("profile", [
    pytest.param({}, id="nothing in it"),
    pytest.param({"id": "p1", "protocol": "no such", "rawConfig": "x"}, id="an unknown protocol"),
])
def test_an_unauthorised_user_learns_nothing_about_a_profile(front, profile):
    front.start()
    assert refused(front.bob, "Connect", profile) == NOT_AUTHORIZED


def test_a_refused_disconnect_does_not_cancel_a_connect(front):
    gate = front.wg_quick.gate("up")
    front.start()
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    assert refused(front.bob, "Disconnect") == NOT_AUTHORIZED
    assert refused_connect(front.bob) == NOT_AUTHORIZED
    gate.open()
    assert front.settled("connected")["activeProfileId"] == "p1"
    assert front.stages() == ["preparing", "connecting", "connected"]
    assert front.commands() == CLEAR_GROUND + BRING_UP


def test_a_refused_disconnect_leaves_the_tunnel_up(front):
    front.start()
    front.connected()
    before = front.snapshot()
    assert refused(front.bob, "Disconnect") == NOT_AUTHORIZED
    assert front.snapshot() == before
    assert front.commands() == []
    assert front.world.interface_exists("quorvexvpn")


def test_nothing_else_is_served_while_polkit_thinks(front):
    front.start()
    front.world.polkit.signal(signal.SIGSTOP)
    asking = front.alice.call_async("Disconnect")
    waiting = front.alice.call_async("GetCapabilities")
    front.bus("GetId", client=front.alice)
    assert not asking.done and not waiting.done
    front.world.polkit.signal(signal.SIGCONT)
    asking.result()
    waiting.result()
    assert asking.answered_at <= waiting.answered_at


def test_a_caller_who_leaves_while_polkit_thinks_gets_nothing_done(front):
    service = front.start()
    front.world.polkit.signal(signal.SIGSTOP)
    leaving = front.world.client("alice", new=True)
    leaving.call_async("Disconnect")
    front.bus("GetId", client=leaving)
    leaving.close()
    front.world.wait(lambda: leaving.closed, what="the end of the caller")
    front.world.polkit.signal(signal.SIGCONT)
    assert front.snapshot() == {"stage": "disconnected"}
    assert front.commands() == []
    [warning] = warnings(service)
    assert warning.startswith(AUTHORIZATION_FAILED)
