# SPDX-License-Identifier: Apache-2.0
"""`watch`: what it shows, in which order, and that it outlives the service."""

import json
import signal

import pytest

from control_steps import FAILURE, INSTALLED, OK, UNREACHABLE

pytestmark = pytest.mark.bus


def events(process) -> list[dict]:
    return [json.loads(line) for line in process.lines]


def watch(control, user: str = "bob"):
    """Anybody may watch. Returns when it has shown how things stand."""
    process = control.start("watch", "--json", user=user)
    process.wait_line('"event":"network"')
    return process


def test_begins_with_how_things_stand(control):
    control.world.start_service()
    process = watch(control)
    assert [event["event"] for event in events(process)] == ["service", "stage", "network"]
    assert events(process)[0]["running"] is True
    assert events(process)[1]["stage"] == "disconnected"
    assert isinstance(events(process)[2]["reachable"], bool)


def test_shows_stages_and_log_entries_as_they_come(control):
    control.world.start_service()
    process = watch(control)
    control.run("connect", control.put_profile())
    process.wait_line("WireGuard tunnel connected.")
    told = [event for event in events(process)[3:] if event["event"] == "stage"]
    assert [(event["stage"], event["profile"]) for event in told] == [
        ("preparing", "home"), ("connecting", "home"), ("connected", "home")]
    logged = [event for event in events(process) if event["event"] == "log"]
    assert [(event["level"], event["message"]) for event in logged] == [
        ("info", "Preparing WireGuard tunnel."), ("info", "WireGuard tunnel connected.")]
    times = [event["time"] for event in events(process)]
    assert min(times) > 1_600_000_000_000


def test_shows_the_error_with_its_stage(control):
    control.world.stand_in("/usr/bin/wg-quick").on("up", exit_status=1)
    control.world.start_service()
    process = watch(control)
    control.run("connect", control.put_profile())
    process.wait_line('"stage":"error"')
    told = next(event for event in events(process) if event.get("stage") == "error")
    assert told["lastError"] == control.json("status")["lastError"]


def test_waits_for_a_service_that_is_not_there_yet(control):
    process = control.start("watch", "--json")
    process.wait_line('"running":false')
    control.world.start_service()
    process.wait_line('"running":true')
    process.wait_line('"stage":"disconnected"')


def test_outlives_the_service(control):
    service = control.world.start_service()
    process = watch(control)
    service.stop()
    process.wait_line('"running":false')
    control.world.start_service()
    again = lambda: [event for event in events(process) if event.get("running") is True][1:]
    control.world.wait(again, what="the service's return")
    control.run("connect", control.put_profile())
    process.wait_line('"stage":"connected"')


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM], ids=["ctrl-c", "sigterm"])
def test_ends_well_when_interrupted(control, number):
    control.world.start_service()
    process = watch(control)
    process.signal(number)
    assert process.wait() == OK


def test_its_lines_for_people_have_a_time_and_a_kind(control):
    control.world.start_service()
    process = control.start("watch")
    process.wait_line("network")
    control.run("connect", control.put_profile())
    process.wait_line("WireGuard tunnel connected.")
    kinds = [line.split()[1] for line in process.lines]
    assert kinds[:3] == ["service", "stage", "network"]
    assert any(line.endswith("  stage    preparing (home)") for line in process.lines)
    assert any(line.endswith("  info     WireGuard tunnel connected.") for line in process.lines)


def test_ends_with_the_bus(control):
    """A bus that comes back does not know the connection any more."""
    control.world.start_service()
    process = watch(control)
    control.world.kill_bus()
    assert process.wait() == UNREACHABLE
    assert "The system bus has ended." in "\n".join(process.lines)


@pytest.mark.parametrize("lines", [1, 3])
def test_ends_when_nobody_reads_any_more(control, lines):
    """After the third line there is nothing more to write."""
    control.world.start_service()
    read = control.world.run(["/bin/sh", "-c", f"{INSTALLED} watch --json | head -n {lines}"], timeout=20,
                             env=control.environment)
    assert '"event":"service"' in read.stdout
    control.world.wait(lambda: not [one for one in control.world.processes() if INSTALLED in one["argv"]],
                       what="the end of the command")


def test_output_that_cannot_be_written_is_a_failure(control):
    """So that a key pair on a full disk does not pass for one that was kept."""
    control.world.start_service()
    for command in ("status", "keygen"):
        full = control.world.run(["/bin/sh", "-c", f"{INSTALLED} {command} >/dev/full"], user="alice", check=False,
                                 env=control.environment)
        assert full.status == FAILURE and "No space left on device" in full.stderr
