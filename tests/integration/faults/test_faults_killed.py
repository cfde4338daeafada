# SPDX-License-Identifier: Apache-2.0
"""The service is killed at steps of its work that chance chooses; the next start cleans up whatever is left.

All steps of all phases: tests/search/step_kills.py.
"""

import pytest

from engine_steps import by_engine
from fault_cases import Kill, chosen, family_kills, kills_at, steps_of, try_kill
from fault_steps import ENGINES, PHASES, FaultMachine, fault_machine

pytestmark = pytest.mark.tunnel

KILLS = 3
KILLS_IN_TOOLS = 1


@by_engine(ENGINES)
@pytest.mark.parametrize("phase", PHASES)
def test_a_start_after_a_kill_anywhere_cleans_up(machines, kind, phase):
    with machines.use(kind) as machine:
        kills = kills_at(phase, steps_of(machine, phase))
        try_some(machine, chosen(phase).sample(kills, KILLS))


@by_engine(ENGINES)
@pytest.mark.parametrize("phase", PHASES)
def test_a_start_after_a_kill_in_the_midst_of_a_tool_cleans_up(machines, kind, phase):
    with machines.use(kind) as machine:
        try_some(machine, chosen(phase).sample(family_kills(machine, phase), KILLS_IN_TOOLS))


def try_some(machine: FaultMachine, kills: list[Kill]) -> None:
    for number, kill in enumerate(kills):
        print(kill)
        try_kill(machine, kill, use=number == 0)


@by_engine(ENGINES)
def test_a_kill_while_connected_leaves_what_the_comparison_sees(world, kind):
    """The positive control of the tests above."""
    machine = fault_machine(world, kind)
    PHASES["shutdown"](machine, "--kill-at", "1")
    assert machine.hit().how == "killed before"
    left = machine.left(running=False)
    for item in ("links", "addresses", "routes4", "rules4", "nftables", "processes", "runtime_files", "ground_files"):
        assert f"{item}: +" in left
