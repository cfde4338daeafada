# SPDX-License-Identifier: Apache-2.0
"""A booted machine whose user asks for a tunnel: each engine connects to a real server under the shipped unit, carries
traffic and names, and leaves nothing behind."""

import pytest

from system_machine import HOST, NAME_SERVERS, OUTSIDE, SERVERS, UNIT

pytestmark = [pytest.mark.system, pytest.mark.slow]

ENGINES = list(SERVERS)
SIX = "[2001:db8:113::9]"


@pytest.mark.parametrize("engine", ENGINES)
def test_an_engine_connects_carries_traffic_and_leaves_nothing(machine, engine):
    tunnel = machine.tunnels[engine]
    assert machine.seen_from() == "10.99.0.1"
    before = machine.picture()
    machine.connect(engine)
    assert machine.seen_from() == tunnel.seen_as4
    assert machine.seen_from(SIX) == tunnel.seen_as6
    assert machine.picture() != before
    machine.disconnect()
    machine.expect_picture(before)
    assert machine.seen_from() == "10.99.0.1"


@pytest.mark.parametrize("engine", list(NAME_SERVERS))
def test_names_are_asked_for_in_the_tunnel_and_outside_again_afterwards(machine, engine):
    address, answer = NAME_SERVERS[engine]
    interface = machine.tunnels[engine].interface
    assert machine.name_answer() == OUTSIDE
    machine.connect(engine)
    assert machine.output(f"resolvectl dns {interface}").endswith(f": {address}")
    assert machine.name_answer() == answer
    assert machine.output(f"getent ahostsv4 {HOST} | cut -d' ' -f1 | sort -u") == answer
    machine.disconnect()
    assert machine.name_answer() == OUTSIDE
    assert address not in machine.output("resolvectl status")


@pytest.mark.parametrize("engine", ENGINES)
def test_the_journal_tells_the_tunnel_s_story_and_no_secret(machine, engine):
    seen = len(machine.container.unit_journal())
    machine.connect(engine)
    machine.disconnect()
    told = machine.container.unit_journal()[seen:]
    story = [f"Preparing {engine} tunnel.", "Kill switch active for this tunnel.", f"{engine} tunnel connected.",
             "VPN tunnel disconnected."]
    assert [one for line in told for one in story if line.endswith(one)] == story
    whole = machine.output("journalctl --no-pager -b -o export")
    assert not [secret for secret in machine.tunnels[engine].secrets if secret in whole]


def test_one_engine_follows_another(machine):
    before = machine.picture()
    for engine in ENGINES:
        machine.connect(engine)
        assert machine.seen_from() == machine.tunnels[engine].seen_as4
    machine.disconnect()
    machine.expect_picture(before)


def test_the_unit_is_what_ran_all_this(machine):
    assert machine.container.unit_property("NRestarts") == "0"
    assert machine.container.unit_property("ActiveState") == "active"
    [status] = [line for line in machine.output(["systemctl", "status", UNIT]).splitlines() if "Main PID" in line]
    assert "quorvexvpn-serv" in status
