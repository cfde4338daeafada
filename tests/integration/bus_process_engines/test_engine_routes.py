# SPDX-License-Identifier: Apache-2.0
"""Which answers of `ip` make a process engine's tunnel full; a stand-in gives them."""

from dataclasses import dataclass

import pytest

from engine_flow import OPENVPN, SING_BOX, XRAY, Engine
from wireguard_flow import CLEAR_GROUND

pytestmark = pytest.mark.bus

LAN = "default via 10.99.0.2 dev phys0 metric 100\n"


@dataclass(frozen=True)
class Answers:
    name: str
    engine: Engine
    ipv4: str
    ipv6: str = ""
    status: int = 0


FULL = [
    Answers("sing-box, through a gateway", SING_BOX,
            "default via 172.19.0.2 dev quorvex-sbox0 proto static\n"),
    Answers("sing-box, a longer interface name", SING_BOX, "default dev quorvex-sbox01\n"),
    Answers("xray, both families", XRAY, LAN + "default dev quorvex-xray0 metric 1\n",
            "default dev quorvex-xray0 metric 1\n"),
    Answers("openvpn, half-routes", OPENVPN,
            "0.0.0.0/1 via 10.8.0.1 dev tun-quorvexvpn\n" + LAN +
            "128.0.0.0/1 via 10.8.0.1 dev tun-quorvexvpn\n"),
    Answers("openvpn, a default route", OPENVPN, "default via 10.8.0.1 dev tun-quorvexvpn\n"),
]
NOT_FULL = [
    Answers("sing-box, none", SING_BOX, ""),
    Answers("sing-box, another device", SING_BOX, LAN),
    Answers("sing-box, a part only", SING_BOX, "10.0.0.0/8 dev quorvex-sbox0\n"),
    Answers("sing-box, the query fails", SING_BOX, "default dev quorvex-sbox0\n", status=2),
    Answers("xray, ipv4 only", XRAY, "default dev quorvex-xray0\n", LAN),
    Answers("xray, ipv6 only", XRAY, LAN, "default dev quorvex-xray0\n"),
    Answers("openvpn, the lower half", OPENVPN, "0.0.0.0/1 dev tun-quorvexvpn\n"),
    Answers("openvpn, the upper half", OPENVPN, "128.0.0.0/1 dev tun-quorvexvpn\n"),
    Answers("openvpn, one half elsewhere", OPENVPN,
            "0.0.0.0/1 dev tun-quorvexvpn\n128.0.0.0/1 dev phys0\n"),
    Answers("openvpn, ipv6 only", OPENVPN, LAN, "default dev tun-quorvexvpn\n"),
]


def answer_with(flow, answers: Answers) -> None:
    for family, text in (("-4", answers.ipv4), ("-6", answers.ipv6)):
        flow.ip.on(family, "route", "show", stdout=text, exit_status=answers.status)
    flow.behave(answers.engine, shell=answers.engine.add_interface, hang=True)


@pytest.mark.parametrize("answers", FULL, ids=lambda one: one.name)
def test_a_full_tunnel_is_seen_at_the_first_look(flow, answers):
    answer_with(flow, answers)
    flow.start()
    assert flow.attempt(answers.engine)["stage"] == "connected"
    expected = CLEAR_GROUND + answers.engine.launch + list(answers.engine.look)
    assert flow.commands() == expected


@pytest.mark.parametrize("answers", NOT_FULL, ids=lambda one: one.name)
def test_less_than_a_full_tunnel_is_looked_at_again(flow, answers):
    answer_with(flow, answers)
    flow.start()
    flow.begin(answers.engine)
    words = answers.engine.look[0].split()[1:]
    flow.world.wait_call("ip", *words, count=3)
    assert flow.snapshot()["stage"] == "connecting"
    flow.alice.call("Disconnect")
    assert flow.settled("disconnected") == {"stage": "disconnected"}
