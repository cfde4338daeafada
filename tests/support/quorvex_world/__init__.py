# SPDX-License-Identifier: Apache-2.0
"""Private machines for tests of the real service; README.md beside this package shows their use."""

from .amnezia import AmneziaServer
from .client import BUS_NAME, INTERFACE, OBJECT_PATH, BusError, Client, Pending, Signal, Variant
from .name_server import NameServer
from .openvpn import OpenVpnServer
from .peers import Peer
from .process import CommandFailed, Completed, Process
from .service import Service
from .sing_box import SingBoxServer
from .stand_ins import Behaviour, Call, Gate, StandIn
from .state import State, diff_states
from .tunnel_server import TunnelServer
from .wireguard import WireGuardServer
from .world import World, WorldFault
from .xray import XrayServer

__all__ = [
    "AmneziaServer", "BUS_NAME", "Behaviour", "BusError", "Call", "Client", "CommandFailed", "Completed", "Gate",
    "INTERFACE", "NameServer", "OBJECT_PATH", "OpenVpnServer", "Peer", "Pending", "Process",
    "Service", "Signal", "SingBoxServer", "StandIn", "State", "TunnelServer", "Variant",
    "WireGuardServer", "World", "WorldFault", "XrayServer", "diff_states",
]
