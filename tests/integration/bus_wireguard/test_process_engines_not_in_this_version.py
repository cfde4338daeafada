# SPDX-License-Identifier: Apache-2.0
"""sing-box, Xray and OpenVPN are validated and looked for, but cannot be started yet."""

import json
from dataclasses import dataclass

import pytest

from wireguard_flow import (
    AWG_DIRECTORY, CLEAR_GROUND, REMOVE_KILL_SWITCH, REVERT_OPENVPN_DNS, TAKE_DOWN)

pytestmark = pytest.mark.bus


@dataclass
class Engine:
    name: str
    protocol: str
    profile: str

    @property
    def sentence(self) -> str:
        return f"{self.name} tunnels cannot be started by this version of the service."


SING_BOX = Engine("Sing-box", "vless", json.dumps({
    "dns": {"servers": [{"type": "tls", "server": "1.1.1.1"}]},
    "inbounds": [{"type": "tun", "auto_route": True}],
    "outbounds": [{"type": "vless", "tag": "proxy", "server": "203.0.113.9"}]}))
XRAY = Engine("Xray", "xray", json.dumps({
    "inbounds": [{"protocol": "tun"}],
    "outbounds": [{"protocol": "vless", "tag": "proxy"}]}))
OPENVPN = Engine("OpenVPN", "openVpn", "client\nremote 203.0.113.9 1194 udp\ndev tun\n")


@pytest.fixture(params=[SING_BOX, XRAY, OPENVPN], ids=lambda engine: engine.name)
def engine(request) -> Engine:
    return request.param


@pytest.fixture
def installed(flow):
    """All engines are there, and would be recorded if anything ran them."""
    for program in (f"{AWG_DIRECTORY}/sing-box", f"{AWG_DIRECTORY}/xray", "/usr/sbin/openvpn"):
        flow.world.stand_in(program)
    for data in ("geoip.dat", "geosite.dat"):
        flow.world.put_file(f"{AWG_DIRECTORY}/{data}", b"data")
    return flow


def test_the_connect_fails_in_words_and_only_clears_the_ground(installed, engine):
    flow = installed
    flow.start()
    snapshot = flow.connect(engine.profile, protocol=engine.protocol, kill_switch=True)
    assert snapshot == {"stage": "error", "activeProfileId": "p1", "lastError": engine.sentence}
    assert flow.stages() == ["preparing", "connecting", "error"]
    assert flow.logs() == [("info", f"Preparing {engine.name} tunnel."),
                           ("error", f"{engine.name} connection failed.")]
    # Before the attempt, and once more in the recovery after it.
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND
    assert not flow.world.path("/run/quorvexvpn").exists()
    assert not flow.repair_required()


def test_a_wireguard_tunnel_goes_down_for_it_as_for_any_connect(installed, engine):
    flow = installed
    flow.start()
    flow.connected()
    assert flow.connect(engine.profile, protocol=engine.protocol)["lastError"] == engine.sentence
    assert flow.commands() == [REMOVE_KILL_SWITCH, *TAKE_DOWN, REVERT_OPENVPN_DNS, *CLEAR_GROUND]
    assert flow.files() == []
    assert not flow.interface_exists()


def test_wireguard_connects_after_it(installed, engine):
    flow = installed
    flow.start()
    flow.connect(engine.profile, protocol=engine.protocol)
    assert flow.connect()["stage"] == "connected"
