# SPDX-License-Identifier: Apache-2.0
"""Every method is refused in the same words from the stop signal to the end of the process."""

import pytest

from front_steps import BRING_UP, CLEAR_GROUND, PROFILE, SHUTTING_DOWN, refusal, refused
from quorvex_world import Pending

pytestmark = pytest.mark.bus

PLAIN_METHODS = ["Initialize", "GetRuntimeInfo", "GetCapabilities", "GetConnectionSnapshot", "GetNetworkPath",
                 "RequestVpnPermission", "GenerateWireGuardKeyPair", "Disconnect"]
ALL_METHODS = sorted([*PLAIN_METHODS, "Connect"])


@pytest.fixture
def stopping(front):
    """A service that has been told to stop and waits for a connect whose `up` is held."""
    front.gate = front.wg_quick.gate("up")
    front.start()
    front.begin_connect()
    front.world.wait_call("wg-quick", "up")
    front.service.terminate()
    front.alice.wait_stage("disconnecting")
    yield front
    front.gate.open()
    assert front.service.wait() == 0


def call_everything(client) -> dict[str, Pending]:
    pending = {method: client.call_async(method) for method in PLAIN_METHODS}
    pending["Connect"] = client.connect_async("p2", "wireGuard", PROFILE)
    return pending


def refusals(calls: dict[str, Pending]) -> dict[str, tuple[str, str]]:
    return {method: refusal(call) for method, call in sorted(calls.items())}


@pytest.mark.parametrize("user", ["alice", "bob", "root"])
def test_every_method_is_refused_while_a_worker_is_waited_for(stopping, user):
    answers = refusals(call_everything(stopping.world.client(user)))
    assert answers == {method: SHUTTING_DOWN for method in ALL_METHODS}


def test_the_refused_calls_do_nothing_at_all(stopping):
    refusals(call_everything(stopping.alice))
    assert stopping.stages() == ["preparing", "connecting", "disconnecting"]
    assert [one for one in stopping.alice.signals if one.name == "NetworkPathChanged"] == []
    assert stopping.commands() == CLEAR_GROUND + BRING_UP[:1]


def test_a_wrong_profile_is_refused_for_the_shutdown_too(stopping):
    assert refused(stopping.alice, "Connect", {}) == SHUTTING_DOWN


def test_polkit_is_not_asked_any_more(stopping):
    stopping.world.stop_polkit()
    refusals(call_everything(stopping.alice))
    assert [line for line in stopping.service.journal if "olkit" in line] == []


def test_calls_during_the_last_stop_are_refused_in_words_too(front):
    """The main thread stops the engine then, so the answer comes after it, but it comes."""
    service = front.start()
    front.connected()
    gate = front.wg_quick.gate("down")
    service.terminate()
    front.world.wait_call("wg-quick", "down")
    calls = call_everything(front.alice)
    # The bus has passed them on when it answers this one.
    front.bus("GetId", client=front.alice)
    gate.open()
    assert refusals(calls) == {method: SHUTTING_DOWN for method in ALL_METHODS}
    assert service.wait() == 0


def test_calls_while_a_disconnect_is_waited_for_are_refused_at_once(front):
    service = front.start()
    front.connected()
    gate = front.wg_quick.gate("down")
    front.alice.call("Disconnect")
    front.world.wait_call("wg-quick", "down")
    service.terminate()
    front.world.wait(lambda: front.stages() == ["disconnecting"] * 2, what="the shutdown")
    assert refusals(call_everything(front.alice)) == {method: SHUTTING_DOWN for method in ALL_METHODS}
    gate.open()
    assert service.wait() == 0
    assert len(front.world.calls("wg-quick", "down")) == 1
