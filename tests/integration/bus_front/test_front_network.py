# SPDX-License-Identifier: Apache-2.0
"""Whether the machine has a network: what GetNetworkPath answers and when NetworkPathChanged is sent."""

import time

import pytest

from front_steps import Front, masked, reply

pytestmark = pytest.mark.bus

OURS, THEIRS = "10.99.0.1/24", "10.99.0.2/24"


def now() -> int:
    return time.time_ns() // 1_000_000


def path_text(available: bool) -> str:
    status, reachable = ("satisfied", "true") if available else ("unsatisfied", "false")
    return (f"({{'status': <'{status}'>, 'isReachable': <{reachable}>, 'interfaceType': <'unknown'>, "
            "'isExpensive': <false>, 'isConstrained': <false>, 'timestampEpochMillis': <int64 #>},)")


def answered_path(front: Front) -> str:
    signature, text = reply(front.alice, "GetNetworkPath")
    assert signature == "(a{sv})"
    return masked(text)


def plug_in(front: Front) -> None:
    """A cable to another machine, with a default route across it."""
    front.world.link(front.world.peer("server"), OURS, THEIRS)


def route(front: Front, *words: str) -> None:
    front.world.run(["/usr/bin/ip", "-4", "route", *words])


def paths(client) -> list[str]:
    return [masked(one.text) for one in client.signals if one.name == "NetworkPathChanged"]


def wait_path(client, available: bool) -> None:
    client.wait_signal("NetworkPathChanged", lambda one: one.value["isReachable"] is available, what=str(available))


def test_a_machine_without_a_network_is_unsatisfied(front):
    front.start()
    assert answered_path(front) == path_text(False)


def test_a_default_route_at_the_start_is_seen(front):
    plug_in(front)
    front.start()
    assert answered_path(front) == path_text(True)


def test_a_network_without_a_default_route_is_none(front):
    plug_in(front)
    route(front, "delete", "default")
    front.start()
    assert answered_path(front) == path_text(False)


def test_the_time_is_now_in_milliseconds(front):
    front.start()
    before = now()
    told = front.alice.call("GetNetworkPath")["timestampEpochMillis"]
    assert before <= told <= now()


def test_each_answer_has_its_own_time(front):
    front.start()
    first = front.alice.call("GetNetworkPath")["timestampEpochMillis"]
    front.world.poll(lambda: now() > first + 5, what="some milliseconds")
    assert front.alice.call("GetNetworkPath")["timestampEpochMillis"] > first + 5


def test_a_network_that_comes_and_goes_is_told_to_everybody(front):
    front.start()
    bob = front.bob
    plug_in(front)
    for client in (front.alice, bob):
        wait_path(client, True)
        assert paths(client)[-1] == path_text(True)
    assert answered_path(front) == path_text(True)
    for client in (front.alice, bob):
        client.mark()
    route(front, "delete", "default")
    for client in (front.alice, bob):
        wait_path(client, False)
        assert paths(client)[-1] == path_text(False)
    assert answered_path(front) == path_text(False)


def test_a_change_that_leaves_the_availability_as_it_is_is_told_too(front):
    plug_in(front)
    front.start()
    assert paths(front.alice) == []
    route(front, "add", "198.51.100.0/24", "via", "10.99.0.2")
    front.alice.wait_signal("NetworkPathChanged")
    assert paths(front.alice) == [path_text(True)]


def test_the_network_changes_no_stage_and_logs_nothing(front):
    service = front.start()
    plug_in(front)
    wait_path(front.alice, True)
    assert front.snapshot() == {"stage": "disconnected"}
    assert front.signals() == []
    assert len(service.journal) == 1


def test_a_tunnel_s_own_route_counts_as_a_network(front):
    front.start()
    front.begin_connect()
    wait_path(front.alice, True)
    front.settled("connected")
    front.alice.mark()
    front.alice.call("Disconnect")
    wait_path(front.alice, False)


def test_initialize_sends_the_snapshot_and_then_the_path_to_everybody(front):
    front.start()
    bob = front.bob
    front.alice.call("Initialize")
    for client in (front.alice, bob):
        client.wait_signal("NetworkPathChanged")
        last = client.signals[-2:]
        assert [(one.name, masked(one.text)) for one in last] == [
            ("SnapshotChanged", "({'stage': <'disconnected'>},)"), ("NetworkPathChanged", path_text(False))]


def test_initialize_sends_both_before_it_replies(front):
    front.start()
    pending = front.alice.call_async("Initialize")
    pending.result()
    names = [one.name for one in front.alice.signals if one.time <= pending.answered_at]
    assert names[-2:] == ["SnapshotChanged", "NetworkPathChanged"]


def test_initialize_tells_a_running_connection_and_changes_nothing(front):
    front.start()
    front.connected()
    before = front.snapshot()
    front.bob.call("Initialize")
    told = front.alice.wait_signal("SnapshotChanged")
    assert told.value == before and before["stage"] == "connected"
    assert front.commands() == []
    assert front.stages() == ["connected"]
