# SPDX-License-Identifier: Apache-2.0
"""Private machines for tests of the real service; README.md beside this package shows their use."""

from .client import BUS_NAME, INTERFACE, OBJECT_PATH, BusError, Client, Pending, Signal, Variant
from .peers import Peer
from .process import CommandFailed, Completed, Process
from .service import Service
from .stand_ins import Behaviour, Call, Gate, StandIn
from .state import State, diff_states
from .wireguard import WireGuardServer
from .world import World, WorldFault

__all__ = [
    "BUS_NAME", "Behaviour", "BusError", "Call", "Client", "CommandFailed", "Completed", "Gate",
    "INTERFACE", "OBJECT_PATH", "Peer", "Pending", "Process", "Service", "Signal", "StandIn",
    "State", "Variant", "WireGuardServer", "World", "WorldFault", "diff_states",
]
