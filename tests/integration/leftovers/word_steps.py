# SPDX-License-Identifier: Apache-2.0
"""Whether the word "connected" is true: from then on nothing that belongs into the tunnel leaves in the clear."""

import re
import time
from dataclasses import dataclass

from attempts import ASKER, NAMES, ORDINARY
from leak_steps import LeakMachine, leak_machine
from leak_wire import Packet
from leftover_steps import is_engine
from quorvex_world import TunnelServer

# Between two attempts. A round of them takes about 10 ms then.
PAUSE = 0.0002
# What was sent before the word may be seen that much later at the other end of the cable, on a busy machine.
UNDER_WAY = 0.02
# How long the word is put to the test. A new engine that an old one fools dies within the longer time.
WATCHED = 0.25
WATCHED_AFTER_CRASH = 1.5
# sing-box leads connections to a port of its own. The reset of one that is given up just then can still take the old
# way out, to an address that no other machine has: it says neither where to nor what. Once in some hundred connects.
RESET_TO_NOBODY = re.compile(r" > (::1|127\.0\.0\.1)\.\d+: Flags \[R\]")


@dataclass
class Word:
    """One connect: when it was asked for and when it was said to be there, in seconds since the epoch."""

    asked: float
    said: float
    before: list[Packet]
    after: list[Packet]

    def delay(self) -> float:
        return self.said - self.asked

    def describe(self) -> list[str]:
        return [f"{packet.time - self.said:+.3f} s {packet.line}" for packet in self.after[:5]]


def word_machine(world, kind: type[TunnelServer]) -> LeakMachine:
    """It sends without pause what every engine leads into its tunnel, and each attempt has been seen on the wire."""
    return leak_machine(world, kind, kinds=ORDINARY, recording=False, pause=PAUSE)


def connect_and_watch(machine: LeakMachine, kill_switch: bool, seconds: float = WATCHED,
                      stage: str = "connected") -> Word:
    """At once, whatever the machine's state is. The word is that stage's."""
    machine.wire.forget()
    asked = time.time()
    machine.connect(kill_switch=kill_switch)
    said = machine.alice.wait_stage(stage).time + time.time() - time.monotonic()
    machine.world.poll(lambda: machine.attempts.rounds()[-1] > said + seconds, what="rounds of attempts")
    packets = [one for one in machine.wire.packets() if belongs_into_tunnel(one)]
    return Word(asked, said, [one for one in packets if asked <= one.time < said],
                [one for one in packets if one.time > said + UNDER_WAY])


def belongs_into_tunnel(packet: Packet) -> bool:
    """A host on the link asks for echoes, and the answers go where it is: past the tunnel."""
    return packet.target != NAMES[ASKER] and not RESET_TO_NOBODY.search(packet.line)


def crash(machine: LeakMachine) -> None:
    """The service dies alone, and the next one is asked for a tunnel while the engine still stands."""
    machine.service.kill()
    machine.service.wait()
    kind = type(machine.world.tunnel)
    assert any(is_engine(kind, one["argv"]) for one in machine.world.processes())
    machine.restart()
