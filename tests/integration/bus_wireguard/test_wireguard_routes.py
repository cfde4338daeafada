# SPDX-License-Identifier: Apache-2.0
"""Which answers of `ip` count as a full tunnel; a stand-in, since the real one tells the truth."""

from dataclasses import dataclass

import pytest

from wireguard_flow import BRING_UP, CLEAR_GROUND, IPV4_ROUTES, IPV6_ROUTES, TAKE_DOWN, UP, failure

pytestmark = pytest.mark.bus

NO_FULL_ROUTE = "WireGuard did not install a full-tunnel route."
ROUTE = "default dev quorvexvpn\n"
HALF_ROUTES = "0.0.0.0/1 dev quorvexvpn\n128.0.0.0/1 dev quorvexvpn\n"
LAN = "default via 10.99.0.2 dev phys0 metric 100\n10.99.0.0/24 dev phys0 proto kernel scope link\n"


@dataclass
class Answer:
    """What `ip` prints and how it ends."""

    text: str = ""
    status: int = 0


def answer_with(flow, ipv4: Answer, ipv6: Answer) -> None:
    for family, answer in (("-4", ipv4), ("-6", ipv6)):
        flow.ip.on(family, "route", "show", stdout=answer.text, exit_status=answer.status)


@pytest.mark.parametrize("text", [
    pytest.param("default dev quorvexvpn scope link\n", id="main table"),
    pytest.param("default dev quorvexvpn table 51820 scope link\n" + LAN, id="a table of its own"),
    pytest.param(LAN + "default dev quorvexvpn table 51820", id="last line without its end"),
    pytest.param("default via 10.8.0.1 dev quorvexvpn metric 5\n", id="through a gateway"),
    pytest.param("default dev quorvexvpn0 scope link\n", id="a longer interface name"),
])
def test_a_default_route_of_ipv4_through_the_interface_suffices(flow, text):
    answer_with(flow, Answer(text), Answer("", 1))
    flow.start()
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + BRING_UP


@pytest.mark.parametrize("ipv4", [
    pytest.param("", id="no ipv4 route at all"),
    pytest.param(LAN, id="ipv4 past the tunnel"),
    pytest.param(HALF_ROUTES, id="two half-routes of ipv4"),
])
def test_a_default_route_of_ipv6_alone_suffices(flow, ipv4):
    answer_with(flow, Answer(ipv4), Answer("::1 dev lo\n" + ROUTE))
    flow.start()
    assert flow.connect()["stage"] == "connected"
    assert flow.commands() == CLEAR_GROUND + [UP, IPV4_ROUTES, IPV6_ROUTES, BRING_UP[-1]]


@pytest.mark.parametrize("ipv4, ipv6", [
    pytest.param("", "", id="nothing at all"),
    pytest.param(LAN, "default via fe80::1 dev phys0\n", id="past the tunnel"),
    pytest.param("10.0.0.0/8 dev quorvexvpn\n", "2000::/3 dev quorvexvpn\n", id="a part only"),
    pytest.param(HALF_ROUTES, "", id="two half-routes"),
    pytest.param(" " + ROUTE, "\t" + ROUTE, id="not at the beginning of the line"),
    pytest.param("Default dev quorvexvpn\n", "DEFAULT dev quorvexvpn\n", id="in capitals"),
    pytest.param("default dev quorvexvp\n", "default dev Quorvexvpn\n", id="another interface"),
    pytest.param("default via 10.99.0.2\n dev quorvexvpn\n", "", id="spread over two lines"),
    pytest.param("unreachable " + ROUTE, "blackhole " + ROUTE, id="no way out"),
    pytest.param("default quorvexvpn\n", "default dev=quorvexvpn\n", id="without the word dev"),
])
def test_other_answers_are_no_full_tunnel(flow, ipv4, ipv6):
    answer_with(flow, Answer(ipv4), Answer(ipv6))
    flow.start()
    assert flow.connect() == failure(NO_FULL_ROUTE)
    start = CLEAR_GROUND + [UP, IPV4_ROUTES, IPV6_ROUTES] + TAKE_DOWN
    assert flow.commands() == start + CLEAR_GROUND


@pytest.mark.parametrize("ipv4, ipv6", [
    pytest.param(Answer(ROUTE, 1), Answer("", 0), id="ipv4 fails with a route in its output"),
    pytest.param(Answer(LAN, 0), Answer(ROUTE, 2), id="ipv6 fails with a route in its output"),
    pytest.param(Answer("", 1), Answer(ROUTE, 0), id="ipv4 fails although ipv6 has a route"),
    pytest.param(Answer(ROUTE, 124), Answer("", 1), id="the exit status of a time-out"),
])
def test_a_query_that_fails_is_no_full_tunnel(flow, ipv4, ipv6):
    answer_with(flow, ipv4, ipv6)
    flow.start()
    assert flow.connect() == failure(NO_FULL_ROUTE)
    assert flow.commands()[-4:] == TAKE_DOWN + CLEAR_GROUND


def test_a_query_that_dies_is_no_full_tunnel(flow):
    flow.ip.on("-4", stdout=ROUTE, die_by=9)
    flow.start()
    assert flow.connect() == failure(NO_FULL_ROUTE)


def test_an_answer_that_is_not_utf8_is_no_full_tunnel(flow):
    flow.ip.on("-4", shell=r"printf 'default dev quorvexvpn\n\377\n'")
    flow.start()
    assert flow.connect() == failure(NO_FULL_ROUTE)


def test_what_a_query_writes_to_standard_error_is_no_answer(flow):
    flow.ip.on("-4", stderr=ROUTE)
    flow.ip.on("-6", stderr=ROUTE)
    service = flow.start()
    assert flow.connect() == failure(NO_FULL_ROUTE)
    assert not [line for line in service.journal if "dev quorvexvpn" in line]


def test_a_long_answer_is_read_to_its_end(flow):
    # More than a pipe holds, the route last.
    flow.ip.on("-4", stdout="10.0.0.0/8 via 10.99.0.2 dev phys0\n" * 10_000 + ROUTE)
    flow.start()
    assert flow.connect()["stage"] == "connected"
