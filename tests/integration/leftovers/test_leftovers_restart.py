# SPDX-License-Identifier: Apache-2.0
"""An OpenVPN that begins anew by itself, as it does when its server has been silent, and closes its device meanwhile."""

import time

import pytest

from leftover_steps import scene
from quorvex_world import OpenVpnServer

pytestmark = pytest.mark.tunnel


def restart(one) -> None:
    """The signal that its own timer would send. The profile is without `persist-tun`."""
    one.signal_engine("USR1")
    one.world.poll(lambda: not one.world.interface_exists(one.kind.interface), what="the device to go")


def test_under_the_kill_switch_it_has_time_to_come_back(world):
    one = scene(world, OpenVpnServer, True)
    one.up()
    engine = one.engine()["pid"]
    restart(one)
    one.world.poll(lambda: one.world.interface_exists(one.kind.interface), timeout=25, what="the device to come back")
    one.world.poll(lambda: one.far() == one.through(), timeout=10, what="traffic")
    assert one.engine()["pid"] == engine and one.closed()
    assert one.snapshot()["stage"] == "connected" and one.alice.stages[-1:] != ["error"]
    one.end()
    one.expect_as_before()


def test_without_it_the_tunnel_is_no_more(world):
    """What leaves meanwhile would leave under the word "connected"."""
    one = scene(world, OpenVpnServer, False)
    one.up()
    began = time.monotonic()
    restart(one)
    one.expect_told(began)
    one.end()
    one.expect_as_before()
