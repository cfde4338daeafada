# SPDX-License-Identifier: Apache-2.0
"""The example of the client's DNS helper: which words of the service and of OpenVPN become which words to resolvectl.

resolvectl is a stand-in that records, since no world has a systemd-resolved; the system tests show the real one.
"""

from pathlib import Path

import pytest

from quorvex_world import World

pytestmark = pytest.mark.bus

EXAMPLE = Path(__file__).resolve().parents[2] / "examples/quorvexvpn-dns"
HELPER = "/usr/libexec/quorvexvpn-dns"
WIREGUARD, OPENVPN = "quorvexvpn", "tun-quorvexvpn"


class Helper:
    """The helper in a world of its own; each look at the commands counts from the last one."""

    def __init__(self, world: World):
        self.world = world
        self.resolvectl = world.stand_in("/usr/bin/resolvectl")
        world.put_file(HELPER, EXAMPLE.read_bytes(), mode=0o755)
        self._seen = 0

    def run(self, *arguments: str, **variables: str) -> int:
        done = self.world.run([HELPER, *arguments], env=variables, check=False)
        self.complaint = done.stderr
        return done.status

    def make_link(self, name: str) -> None:
        self.world.run(["/media/bin/ip", "tuntap", "add", "dev", name, "mode", "tun"])

    def commands(self) -> list[str]:
        calls = self.world.calls("resolvectl")
        lines = [" ".join(call.argv[1:]) for call in calls[self._seen:]]
        self._seen = len(calls)
        return lines


@pytest.fixture(scope="module")
def shared_world(request):
    with World(bus=False, service=request.config.getoption("--service")) as world:
        for name in (WIREGUARD, OPENVPN):
            world.run(["/media/bin/ip", "tuntap", "add", "dev", name, "mode", "tun"])
        yield Helper(world)


@pytest.fixture
def helper(shared_world) -> Helper:
    shared_world.commands()
    return shared_world


def applied(link: str, servers: str) -> list[str]:
    return [f"dns {link} {servers}", f"domain {link} ~.", f"default-route {link} true", "flush-caches"]


def test_a_wireguard_tunnel_s_servers_answer_for_all_names(helper):
    assert helper.run("apply-wireguard", "10.8.0.1", "fd08::1") == 0
    assert helper.commands() == applied(WIREGUARD, "10.8.0.1 fd08::1")


@pytest.mark.parametrize("verb, link", [("revert-wireguard", WIREGUARD), ("revert", OPENVPN)])
def test_a_link_that_is_there_is_reverted_as_often_as_asked(helper, verb, link):
    assert [helper.run(verb), helper.run(verb)] == [0, 0]
    assert helper.commands() == [f"revert {link}"] * 2


@pytest.mark.parametrize("verb", ["revert-wireguard", "revert"])
def test_a_link_that_is_gone_needs_no_reverting(world, verb):
    helper = Helper(world)
    assert helper.run(verb) == 0
    assert helper.commands() == []


@pytest.mark.parametrize("verb", ["revert-wireguard", "revert"])
def test_a_revert_that_fails_is_reported_while_the_link_is_there(world, verb):
    helper = Helper(world)
    for name in (WIREGUARD, OPENVPN):
        helper.make_link(name)
    helper.resolvectl.on("revert", exit_status=1)
    assert helper.run(verb) != 0


def test_a_link_that_goes_meanwhile_is_reverted(world):
    helper = Helper(world)
    helper.make_link(OPENVPN)
    helper.resolvectl.on("revert", shell=f"/media/bin/ip link delete {OPENVPN}; exit 1")
    assert helper.run("revert") == 0


@pytest.mark.parametrize("pushed, servers", [
    pytest.param(["dhcp-option DNS 10.9.0.1"], "10.9.0.1", id="one server"),
    pytest.param(["dhcp-option DNS 10.9.0.1", "dhcp-option DNS6 fd09::1"], "10.9.0.1 fd09::1", id="both families"),
    pytest.param(["dhcp-option DOMAIN example.test", "dhcp-option DNS 10.9.0.1"], "10.9.0.1", id="a domain before it"),
    pytest.param(["dhcp-option DNS 10.9.0.1", "dhcp-option WINS 10.9.0.2"], "10.9.0.1", id="another kind behind it"),
    pytest.param(["dhcp-option DNS *", "dhcp-option DNS 10.9.0.1"], "10.9.0.1", id="a word that a shell would expand"),
    pytest.param(["dhcp-option DNS -x", "dhcp-option DNS 10.9.0.1"], "10.9.0.1", id="a word that looks like an option"),
    pytest.param([f"dhcp-option DNS 10.9.0.{one}" for one in range(1, 13)],
                 " ".join(f"10.9.0.{one}" for one in range(1, 13)), id="a dozen"),
])
def test_what_an_openvpn_server_pushed_is_applied(helper, pushed, servers):
    variables = {f"foreign_option_{number}": option for number, option in enumerate(pushed, 1)}
    assert helper.run(OPENVPN, "1500", "0", "10.9.0.2", "255.255.255.0", "init", script_type="up", dev=OPENVPN,
                      **variables) == 0
    assert helper.commands() == applied(OPENVPN, servers)


def test_a_server_that_pushes_none_changes_nothing(helper):
    assert helper.run(OPENVPN, script_type="up", dev=OPENVPN) == 0
    assert helper.commands() == []


def test_openvpn_s_end_reverts(helper):
    pushed = {"foreign_option_1": "dhcp-option DNS 10.9.0.1"}
    assert helper.run(OPENVPN, "1500", script_type="down", dev=OPENVPN, **pushed) == 0
    assert helper.commands() == [f"revert {OPENVPN}"]


@pytest.mark.parametrize("arguments, variables", [
    pytest.param([], {}, id="no verb"),
    pytest.param(["apply"], {}, id="another verb"),
    pytest.param(["apply-wireguard"], {}, id="no server"),
    pytest.param(["apply-wireguard", "dns.example"], {}, id="a name"),
    pytest.param(["apply-wireguard", "10.8.0.1", "--help"], {}, id="an option"),
    pytest.param(["apply-wireguard", ""], {}, id="an empty word"),
    pytest.param(["tun7"], {"script_type": "up", "dev": "tun7"}, id="somebody else's tunnel"),
])
def test_what_it_does_not_know_is_refused_in_words(helper, arguments, variables):
    assert helper.run(*arguments, **variables) == 1
    assert helper.complaint.startswith("quorvexvpn-dns: ")
    assert helper.commands() == []


def test_a_server_that_resolved_refuses_is_a_failure(world):
    helper = Helper(world)
    helper.resolvectl.on("dns", exit_status=1)
    assert helper.run("apply-wireguard", "10.8.0.1") != 0
    assert helper.commands() == ["dns quorvexvpn 10.8.0.1"]
