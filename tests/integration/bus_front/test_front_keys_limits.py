# SPDX-License-Identifier: Apache-2.0
"""A wg that hangs: the time limits of the key generation, and the service before and after them."""

import time

import pytest

from front_steps import PRIVATE_KEY, PUBLIC_KEY, WIREGUARD_UNAVAILABLE, Front, refusal

pytestmark = [pytest.mark.bus, pytest.mark.slow]

SENTENCES = {"genkey": "WireGuard key generation failed.", "pubkey": "Public-key derivation failed."}


@pytest.fixture
def keys(front) -> Front:
    """A running service whose wg is a stand-in that prints a fixed pair."""
    front.tools["wg"] = front.world.stand_in("/usr/bin/wg")
    front.wg.on("genkey", stdout=f"{PRIVATE_KEY}\n").on("pubkey", stdout=f"{PUBLIC_KEY}\n")
    front.start()
    return front


@pytest.mark.parametrize("stubborn, seconds", [(False, 5), (True, 6)], ids=["ends by SIGTERM", "ignores SIGTERM"])
@pytest.mark.parametrize("verb", ["genkey", "pubkey"])
def test_a_hung_tool_is_ended(keys, verb, stubborn, seconds):
    keys.wg.on(verb, hang=True, ignore_term=stubborn)
    pair = keys.alice.call_async("GenerateWireGuardKeyPair")
    began = keys.world.wait_call("wg", verb).began
    waiting = keys.alice.call_async("GetCapabilities")
    assert refusal(pair) == (WIREGUARD_UNAVAILABLE, SENTENCES[verb])
    waiting.result()
    # From the tool's own beginning, so a busy machine's start of it counts for nothing.
    assert seconds - 0.5 <= pair.answered_at - began <= seconds + 2.5
    assert pair.answered_at <= waiting.answered_at
    assert [call.argv[1] for call in keys.world.calls("wg")] == ["genkey", "pubkey"][:1 + (verb == "pubkey")]


def test_a_stop_signal_waits_for_the_limit_and_the_caller_is_answered(keys):
    keys.wg.on("genkey", hang=True)
    pair = keys.alice.call_async("GenerateWireGuardKeyPair")
    keys.world.wait_call("wg", "genkey")
    keys.service.terminate()
    asked = time.monotonic()
    assert refusal(pair) == (WIREGUARD_UNAVAILABLE, SENTENCES["genkey"])
    assert keys.service.wait() == 0
    assert time.monotonic() - asked <= 8
