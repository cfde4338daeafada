# SPDX-License-Identifier: Apache-2.0
"""How long an engine has for its tunnel: a fixed number of looks, half a second apart."""

import time

import pytest

from wireguard_flow import CLEAR_GROUND, failure

pytestmark = [pytest.mark.bus, pytest.mark.slow]

PAUSE = 0.5
# What a busy machine may add to each look.
SLACK = 0.25


def time_of_failure(flow, engine) -> float:
    began = time.monotonic()
    assert flow.files_before_recovery(engine) == []
    seconds = time.monotonic() - began
    assert flow.settled("error") == failure(engine.not_up)
    return seconds


def come_up_after_the_first_look(engine) -> str:
    """The first look is at once, the second half a second later, and finds the interface."""
    return f"sleep 0.1; {engine.add_interface}"


def expect_all_looks(flow, engine, after: list[str]) -> None:
    """The first finds no interface and so asks for no routes."""
    asked = engine.polls - 1
    assert flow.commands() == CLEAR_GROUND + engine.launch + list(engine.look) * asked + after


def test_an_engine_without_interface_has_its_time_and_is_stopped(flow, engine):
    flow.behave(engine, hang=True)
    flow.start()
    seconds = time_of_failure(flow, engine)
    assert engine.polls * PAUSE <= seconds < engine.polls * (PAUSE + SLACK)
    # Without the interface nobody asks for routes.
    assert flow.commands() == CLEAR_GROUND + engine.launch + engine.clean_up + CLEAR_GROUND
    assert not flow.engine_lives(engine)


def test_an_engine_with_interface_and_no_routes_is_looked_at_so_many_times(flow, engine):
    flow.behave(engine, shell=come_up_after_the_first_look(engine), hang=True)
    flow.start()
    seconds = time_of_failure(flow, engine)
    assert engine.polls * PAUSE <= seconds < engine.polls * (PAUSE + SLACK)
    expect_all_looks(flow, engine, engine.clean_up + CLEAR_GROUND)
    assert not flow.engine_lives(engine)


def test_a_tunnel_at_the_last_look_is_in_time(flow, engine):
    flow.behave(engine, shell=come_up_after_the_first_look(engine), hang=True)
    name, words = "ip", tuple(engine.look[0].split()[1:])
    add = " && ".join(f"/usr/bin/ip {route}" for route in engine.routes)
    # The real answer is given after the routes have been made.
    last = lambda call: len(flow.world.calls(name, *words)) == engine.polls - 1
    flow.ip.on(*words, when=last, shell=f'{add}; exec /usr/bin/ip "$@"')
    flow.start()
    flow.begin(engine)
    flow.world.wait(lambda: {"connected", "error"} & set(flow.stages()), 60, "the end")
    assert flow.settled("connected", "error")["stage"] == "connected"
    expect_all_looks(flow, engine, [])
