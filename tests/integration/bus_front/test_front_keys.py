# SPDX-License-Identifier: Apache-2.0
"""GenerateWireGuardKeyPair: real pairs, the exact commands and what passes through their pipes, and where keys show."""

import base64
import signal

import pytest

from front_steps import (
    NOT_AUTHORIZED, PRIVATE_KEY, PUBLIC_KEY, WIREGUARD_UNAVAILABLE, Front, real_public_key, refused, reply)

pytestmark = pytest.mark.bus

UNAVAILABLE = "wireguard-tools is unavailable. Repair the QuorvexVPN installation."
GENERATION_FAILED = "WireGuard key generation failed."
DERIVATION_FAILED = "Public-key derivation failed."
LIMIT = ["/usr/bin/timeout", "--signal=TERM", "--kill-after=1s", "5s"]
METHOD = "GenerateWireGuardKeyPair"


@pytest.fixture
def keys(front) -> Front:
    """A running service whose wg is a stand-in that prints a fixed pair."""
    front.tools["wg"] = front.world.stand_in("/usr/bin/wg")
    front.wg.on("genkey", stdout=f"{PRIVATE_KEY}\n").on("pubkey", stdout=f"{PUBLIC_KEY}\n")
    front.start()
    return front


def expect_failure(front: Front, message: str) -> None:
    assert refused(front.alice, METHOD) == (WIREGUARD_UNAVAILABLE, message)
    assert front.signals() == []
    assert len(front.service.journal) == 1


def verbs(front: Front) -> list[str]:
    return [call.argv[1] for call in front.world.calls("wg")]


def test_a_pair_is_real(shared_front):
    pair = shared_front.alice.call(METHOD)
    assert list(pair) == ["privateKey", "publicKey"]
    assert [len(base64.b64decode(key, validate=True)) for key in pair.values()] == [32, 32]
    assert real_public_key(pair["privateKey"]) == pair["publicKey"]


def test_each_pair_is_a_new_one(shared_front):
    pairs = [shared_front.alice.call(METHOD) for _ in range(3)]
    assert len({key for pair in pairs for key in pair.values()}) == 6


def test_the_reply_holds_both_keys_in_order_without_line_ends(keys):
    assert reply(keys.alice, METHOD) == (
        "(a{sv})", f"({{'privateKey': <'{PRIVATE_KEY}'>, 'publicKey': <'{PUBLIC_KEY}'>}},)")


def test_both_commands_run_under_a_time_limit_with_the_key_on_standard_input_alone(keys):
    timeout = keys.world.recorder("/usr/bin/timeout")
    keys.alice.call(METHOD)
    assert [call.argv for call in keys.world.calls("timeout")] == [
        [*LIMIT, "/usr/bin/wg", "genkey"], [*LIMIT, "/usr/bin/wg", "pubkey"]]
    generated, derived = keys.world.calls("wg", nested=True)
    assert (generated.argv, generated.stdin) == (["/usr/bin/wg", "genkey"], "")
    assert (derived.argv, derived.stdin) == (["/usr/bin/wg", "pubkey"], f"{PRIVATE_KEY}\n")
    assert timeout.path == "/usr/bin/timeout"


@pytest.mark.parametrize("before, after", [
    ("", ""), ("", "\n\n"), ("", "\r\n"), (" \t", " \n"), ("\n\n", "\n"), ("\f", "\f\n"),
], ids=["no line end", "two line ends", "CR LF", "blanks", "leading line ends", "form feeds"])
def test_white_space_around_both_keys_is_dropped(keys, before, after):
    keys.wg.on("genkey", stdout=before + PRIVATE_KEY + after).on("pubkey", stdout=before + PUBLIC_KEY + after)
    assert keys.alice.call(METHOD) == {"privateKey": PRIVATE_KEY, "publicKey": PUBLIC_KEY}
    assert keys.world.calls("wg", "pubkey")[0].stdin == f"{PRIVATE_KEY}\n"


def test_what_a_successful_tool_complains_about_is_dropped(keys):
    keys.wg.on("genkey", stdout=f"{PRIVATE_KEY}\n", stderr="Warning: something\n")
    assert keys.alice.call(METHOD)["privateKey"] == PRIVATE_KEY
    assert len(keys.service.journal) == 1


@pytest.mark.parametrize("path", ["/usr/bin/wg", "/usr/bin/timeout"])
@pytest.mark.parametrize("gone", [True, False], ids=["missing", "not executable"])
def test_a_tool_that_cannot_be_run_is_told_before_anything_runs(keys, path, gone):
    keys.world.remove_tool(path) if gone else keys.world.chmod_tool(path, 0o644)
    expect_failure(keys, UNAVAILABLE)
    assert verbs(keys) == []


def test_the_other_tools_are_not_needed(keys):
    for path in ("/usr/bin/wg-quick", "/usr/sbin/ip", "/usr/libexec/quorvexvpn-dns", "/usr/bin/resolvectl"):
        keys.world.remove_tool(path)
    assert keys.alice.call(METHOD)["publicKey"] == PUBLIC_KEY


FAULTS = [
    pytest.param({"exit_status": 1}, id="status 1"),
    pytest.param({"exit_status": 1, "stderr": "wg: no\n"}, id="status 1 with words"),
    pytest.param({"exit_status": 124}, id="status 124"),
    pytest.param({"die_by": signal.SIGKILL}, id="killed"),
    pytest.param({"die_by": signal.SIGTERM}, id="terminated"),
]


@pytest.mark.parametrize("fault", FAULTS)
def test_a_failing_genkey_is_told_and_nothing_is_derived(keys, fault):
    keys.wg.on("genkey", stdout=f"{PRIVATE_KEY}\n", **fault)
    expect_failure(keys, GENERATION_FAILED)
    assert verbs(keys) == ["genkey"]


@pytest.mark.parametrize("fault", FAULTS)
def test_a_failing_pubkey_is_told(keys, fault):
    keys.wg.on("pubkey", stdout=f"{PUBLIC_KEY}\n", **fault)
    expect_failure(keys, DERIVATION_FAILED)
    assert verbs(keys) == ["genkey", "pubkey"]


def test_a_key_that_the_real_pubkey_rejects_fails_in_the_derivation(front):
    front.wg.on("genkey", stdout="not a key\n")
    front.start()
    expect_failure(front, DERIVATION_FAILED)
    assert front.world.calls("wg", "pubkey")[0].stdin == "not a key\n"


@pytest.mark.parametrize("private, public", [
    ("", PUBLIC_KEY), (PRIVATE_KEY, ""), ("", ""), (" \n", PUBLIC_KEY), (PRIVATE_KEY, "\n\n"),
], ids=["no private key", "no public key", "neither", "a blank private key", "a blank public key"])
def test_an_empty_key_is_a_failure_without_words(keys, private, public):
    keys.wg.on("genkey", stdout=private).on("pubkey", stdout=public)
    expect_failure(keys, "")
    assert verbs(keys) == ["genkey", "pubkey"]
    assert keys.world.calls("wg", "pubkey")[0].stdin == private.strip() + "\n"


def test_a_start_that_fails_is_told_in_the_library_s_own_words(keys):
    keys.world.put_file("/usr/bin/timeout", "#!/no/such/interpreter\n", mode=0o755)
    error, message = refused(keys.alice, METHOD)
    assert error == WIREGUARD_UNAVAILABLE
    assert "/usr/bin/timeout" in message and message != GENERATION_FAILED


@pytest.mark.parametrize("verb, usual", [("genkey", GENERATION_FAILED), ("pubkey", DERIVATION_FAILED)])
def test_output_that_is_no_text_is_told_in_the_library_s_own_words(keys, verb, usual):
    keys.wg.on(verb, shell="printf 'a\\377b'")
    error, message = refused(keys.alice, METHOD)
    assert error == WIREGUARD_UNAVAILABLE
    assert message not in ("", usual)


def test_a_failure_is_forgotten_at_the_next_call(keys):
    keys.wg.on("pubkey", exit_status=1, times=1)
    expect_failure(keys, DERIVATION_FAILED)
    assert keys.alice.call(METHOD) == {"privateKey": PRIVATE_KEY, "publicKey": PUBLIC_KEY}


def test_everything_else_waits_while_the_keys_are_made(keys):
    gate = keys.wg.gate("pubkey")
    pair = keys.alice.call_async(METHOD)
    keys.world.wait_call("wg", "pubkey")
    waiting = keys.alice.call_async("GetCapabilities")
    keys.bus("GetId", client=keys.alice)
    assert not waiting.done
    gate.open()
    pair.result()
    waiting.result()
    assert pair.answered_at <= waiting.answered_at


def test_the_keys_are_not_published_and_change_nothing(keys):
    before = keys.world.state()
    keys.alice.call(METHOD)
    assert keys.snapshot() == {"stage": "disconnected"}
    assert keys.signals() == []
    assert len(keys.service.journal) == 1
    assert keys.world.state() == before
    assert not keys.world.path("/run/quorvexvpn").exists()


def test_the_private_key_stands_in_no_argument_environment_or_journal(front):
    """With the real wg."""
    front.world.recorder("/usr/bin/timeout")
    front.start()
    key = front.alice.call(METHOD)["privateKey"]
    calls = front.world.all_calls(nested=True)
    assert [call.argv[-1] for call in calls if call.name == "wg"] == ["genkey", "pubkey"]
    # The one place where it may be, and is.
    assert [call.stdin for call in calls if key in call.stdin] == [f"{key}\n"] * 2
    assert not any(key in word for call in calls for word in [*call.argv, *call.env.values()])
    assert not any(key in line for line in front.service.journal)


def test_keys_are_refused_to_others_before_a_tool_runs(keys):
    assert refused(keys.bob, METHOD) == NOT_AUTHORIZED
    assert verbs(keys) == []


@pytest.mark.parametrize("fault", [{}, {"exit_status": 1}], ids=["success", "failed derivation"])
def test_the_memory_of_the_service_keeps_no_private_key(keys, fault):
    """The input of pubkey is in memory while pubkey runs, so a good search finds it then."""
    if keys.service.is_sanitized:
        pytest.skip("a sanitizer's allocator keeps what has been freed as it was")
    gate = keys.wg.gate("pubkey")
    keys.wg.on("pubkey", stdout=f"{PUBLIC_KEY}\n", **fault)
    pending = keys.alice.call_async(METHOD)
    keys.world.wait_call("wg", "pubkey")
    assert keys.service.memory_contains(PRIVATE_KEY.encode())
    gate.open()
    keys.world.wait(lambda: pending.done, what="the reply")
    # The bus library frees the message some time after it was sent.
    keys.world.poll(lambda: not keys.service.memory_contains(PRIVATE_KEY.encode()), what="no key in memory")
