# SPDX-License-Identifier: Apache-2.0
"""From the word "connected" on not one packet that belongs into the tunnel leaves in the clear, over many connects."""

import pytest

from engine_steps import by_engine, need
from leftover_steps import KINDS
from word_steps import WATCHED_AFTER_CRASH, connect_and_watch, crash, word_machine

pytestmark = pytest.mark.tunnel

CONNECTS = 16
AFTER_CRASHES = 4


@by_engine(KINDS)
def test_nothing_leaves_in_the_clear_from_the_word_connected_on(world, kind):
    """Every second time without the kill switch. What leaves before the word shows that the capture sees it all."""
    need(kind)
    machine = word_machine(world, kind)
    for number in range(CONNECTS):
        machine.await_all()
        word = connect_and_watch(machine, kill_switch=number % 2 == 1)
        assert word.before and word.describe() == []
        machine.disconnect()


@by_engine(KINDS)
def test_nor_when_a_crash_left_an_engine_behind(world, kind):
    need(kind)
    machine = word_machine(world, kind)
    machine.connect()
    for number in range(AFTER_CRASHES):
        crash(machine)
        word = connect_and_watch(machine, kill_switch=number % 2 == 1, seconds=WATCHED_AFTER_CRASH)
        assert word.describe() == []
    machine.disconnect()
    machine.await_all()
