# SPDX-License-Identifier: Apache-2.0
"""What gets out although the kill switch is on: its table's own exceptions, and what never passes the output hook.

These tests promise nothing; they hold the documentation to what really happens.
"""

import time

import pytest

from attempts import ALL, BESIDE_HOOK, EXCEPTIONS, FORWARDED, Attempts
from engine_steps import ALL as ALL_ENGINES
from engine_steps import by_engine, need
from leak_events import closed
from leak_steps import leak_machine
from leak_wire import NEIGHBOURS_ONLY
from quorvex_world import SingBoxServer, WireGuardServer
from tunnel_steps import IP

pytestmark = pytest.mark.tunnel

GUEST = "guest"


def names(kinds) -> set[str]:
    return {one.name for one in kinds}


def seen_now(machine) -> set[str]:
    """What gets out in some whole rounds of attempts from now on; nothing of it may be anything but an attempt."""
    machine.rounds(1)
    since = time.time()
    machine.rounds()
    return machine.wire.seen_since(since)


def host_a_guest(world) -> None:
    """A container or virtual machine of the client's: what it sends is forwarded."""
    guest = world.peer(GUEST)
    world.run([IP, "-batch", "-"], input="\n".join([
        f"link add to-guest type veth peer name {GUEST} netns {GUEST}", "address add 10.77.0.1/24 dev to-guest",
        "address add fd77::1/64 dev to-guest nodad", "link set to-guest up"]))
    guest.run([IP, "-batch", "-"], input="\n".join([
        f"address add 10.77.0.2/24 dev {GUEST}", f"address add fd77::2/64 dev {GUEST} nodad", f"link set {GUEST} up",
        "route add default via 10.77.0.1", "route add default via fd77::1"]))
    for setting in ("net.ipv4.ip_forward", "net.ipv6.conf.all.forwarding"):
        world.run(["/usr/sbin/sysctl", "-qw", f"{setting}=1"])


def test_the_exceptions_of_the_table_get_out(world):
    """Neighbour discovery needs ICMPv6 and a lease needs DHCP; the table asks for no host and no more than a port."""
    need(WireGuardServer)
    machine = leak_machine(world, WireGuardServer, NEIGHBOURS_ONLY, kinds=[*ALL, *EXCEPTIONS])
    closed(machine)
    assert names(EXCEPTIONS) <= seen_now(machine)
    assert {leak.target for leak in machine.leaks()} == names(EXCEPTIONS)


def test_a_packet_socket_gets_out(world):
    """It belongs to root alone, and what it sends passes neither routes nor the output hook."""
    need(WireGuardServer)
    machine = leak_machine(world, WireGuardServer, kinds=[*ALL, *BESIDE_HOOK])
    closed(machine)
    assert names(BESIDE_HOOK) <= seen_now(machine)
    assert {leak.target for leak in machine.leaks()} == names(BESIDE_HOOK)


@by_engine(ALL_ENGINES)
def test_a_guests_traffic_takes_the_tunnel_while_there_is_one_and_gets_out_when_the_engine_has_died(world, kind):
    """The table looks at what the machine itself sends; what it forwards goes where the routes lead."""
    need(kind)
    machine = leak_machine(world, kind)
    host_a_guest(world)
    Attempts(world, FORWARDED, netns=GUEST, device=GUEST)
    world.poll(lambda: names(FORWARDED) <= machine.wire.seen_since(0), what="the guest's traffic on the wire")
    closed(machine)
    # sing-box leads questions for names astray as their flows begin, and these have begun long ago.
    known = {one.name for one in FORWARDED if one.how == "dns"} if kind is SingBoxServer else set()
    assert seen_now(machine) == known
    machine.alice.mark()
    machine.signal_engine("KILL")
    machine.alice.wait_stage("error")
    assert seen_now(machine) == names(FORWARDED)
