# SPDX-License-Identifier: Apache-2.0
"""What can happen to a tunnel with a kill switch. Each begins disconnected and ends so, with the network as it was."""

from typing import Callable

from engine_steps import ALL as ALL_ENGINES
from leak_steps import LeakMachine
from leak_wire import ACTIVE
from quorvex_world import TunnelServer
from tunnel_steps import SECOND_ADDRESS

Event = Callable[[LeakMachine], None]


def closed(machine: LeakMachine) -> None:
    """Connected with the kill switch, and some rounds of attempts against it."""
    machine.connect(kill_switch=True)
    machine.alice.wait_log(ACTIVE)
    # Some more than are asked for: on a busy machine what they tell of themselves comes late.
    machine.rounds(8)


def two_disconnects(machine: LeakMachine) -> None:
    closed(machine)
    machine.alice.mark()
    machine.wish(False)
    for call in [machine.alice.call_async("Disconnect") for _ in range(2)]:
        call.result()
    machine.alice.wait_log("VPN tunnel disconnected.")


def engine_killed(machine: LeakMachine) -> None:
    closed(machine)
    machine.alice.mark()
    machine.signal_engine("KILL")
    machine.alice.wait_stage("error")
    machine.rounds()
    machine.disconnect()


def engine_frozen(machine: LeakMachine) -> None:
    closed(machine)
    machine.signal_engine("STOP")
    machine.rounds(8)
    machine.signal_engine("CONT")
    machine.rounds()
    machine.disconnect()


def service_killed(machine: LeakMachine) -> None:
    """The service alone; its engine goes on until the service is back."""
    closed(machine)
    machine.service.kill()
    machine.service.wait()
    machine.rounds(8)
    machine.restart()


def all_killed(machine: LeakMachine) -> None:
    """As systemd does it when the service has died: its engines with it."""
    closed(machine)
    machine.service.kill()
    machine.service.wait()
    machine.signal_engine("KILL")
    machine.rounds(8)
    machine.restart()


def service_stopped(machine: LeakMachine) -> None:
    closed(machine)
    machine.stop_service()
    machine.rounds()
    machine.restart()


def link_moved(machine: LeakMachine) -> None:
    closed(machine)
    machine.move()
    machine.rounds(8)
    machine.disconnect()


def other_server(machine: LeakMachine) -> None:
    """Another engine's, at another address, while connected."""
    closed(machine)
    first = type(machine.world.tunnel)
    machine.use(next_engine(first))
    second = machine.world.tunnel
    machine.connect(second.profile(host=SECOND_ADDRESS), kill_switch=True)
    machine.alice.wait_log(ACTIVE)
    machine.rounds()
    machine.disconnect()
    machine.use(first)


def next_engine(kind: type[TunnelServer]) -> type[TunnelServer]:
    return ALL_ENGINES[(ALL_ENGINES.index(kind) + 1) % len(ALL_ENGINES)]


def begin(machine: LeakMachine) -> None:
    server = machine.world.tunnel
    machine.alice.mark()
    machine.wish(True)
    machine.alice.connect("home", server.protocol, server.profile(), kill_switch=True)


def disconnect_while_preparing(machine: LeakMachine) -> None:
    begin(machine)
    machine.disconnect()


def disconnect_while_connecting(machine: LeakMachine) -> None:
    begin(machine)
    machine.alice.wait_stage("connecting")
    machine.rounds(machine.delay)
    machine.disconnect()


def disconnect_as_it_closes(machine: LeakMachine) -> None:
    """The moment at which the kill switch has just been loaded."""
    calls = len(machine.world.calls("nft", "-f", "-"))
    begin(machine)
    machine.world.wait(
        lambda: any("policy drop" in call.stdin for call in machine.world.calls("nft", "-f", "-")[calls:]),
        what="the kill switch")
    machine.disconnect()


# What befalls a tunnel.
ACCIDENTS: dict[str, Event] = {
    "the engine is killed": engine_killed,
    "the engine stands still and goes on": engine_frozen,
    "the service is killed": service_killed,
    "service and engine are killed": all_killed,
    "the service is stopped": service_stopped,
    "the link goes and comes back with another address": link_moved,
}
# What the user asks for.
REQUESTS: dict[str, Event] = {
    "two disconnects": two_disconnects,
    "another server while connected": other_server,
    "a disconnect while preparing": disconnect_while_preparing,
    "a disconnect while connecting": disconnect_while_connecting,
    "a disconnect as it closes": disconnect_as_it_closes,
}
EVENTS = {**ACCIDENTS, **REQUESTS}
