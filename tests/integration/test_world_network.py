# SPDX-License-Identifier: Apache-2.0
"""The network of a world: cables, servers, captures, and a real WireGuard tunnel made by hand."""

import pytest

from quorvex_world import diff_states

pytestmark = pytest.mark.tunnel

CONFIG = "/run/quorvexvpn/quorvexvpn.conf"


@pytest.fixture
def cable(world):
    """A world with one server across a cable."""
    server = world.peer("server")
    world.link(server, "10.99.0.1/24", "10.99.0.2/24", v6=("fd99::1/64", "fd99::2/64"))
    server.add_address("203.0.113.9/32")
    server.add_address("2001:db8:113::9/128")
    return world, server


class TestACable:
    def test_carries_http_and_udp_in_both_families(self, cable):
        world, server = cable
        for address in ("203.0.113.9", "2001:db8:113::9"):
            server.http_server(address, 80)
            server.udp_echo(address, 7)
        reply = world.http_get("http://203.0.113.9/")
        assert (reply.status, reply.body) == (200, "10.99.0.1")
        assert world.http_get("http://[2001:db8:113::9]/", user="alice").body == "fd99::1"
        assert world.udp_exchange("203.0.113.9", 7, "hello") == "10.99.0.1 hello"
        assert world.udp_exchange("2001:db8:113::9", 7, "hello") == "fd99::1 hello"

    def test_answers_nothing_where_nobody_listens(self, cable):
        world, _ = cable
        assert world.http_get("http://203.0.113.9/").status == 0
        assert world.udp_exchange("203.0.113.9", 7, timeout=0.2) is None

    def test_gives_the_same_state_twice(self, cable):
        world, _ = cable
        assert diff_states(world.state(), world.state()) == ""
        assert any("default via 10.99.0.2 dev phys0 metric 100" in line
                   for line in world.state().routes4)


class TestACapture:
    def test_sees_a_ping(self, cable):
        world, server = cable
        wire = server.capture("phys0-peer", "icmp", fence_from=(None, "phys0"))
        world.run(["/bin/ping", "-c", "1", "203.0.113.9"])
        lines = wire.stop()
        assert [line.split(":")[1].split(",")[0] for line in lines] == [
            " ICMP echo request", " ICMP echo reply"]

    def test_is_complete_at_any_time(self, cable):
        world, server = cable
        server.udp_echo("203.0.113.9", 7)
        wire = world.capture("phys0", "udp and dst port 7")
        for count in range(1, 6):
            world.udp_exchange("203.0.113.9", 7)
            assert len(wire.packets()) == count

    def test_leaves_out_what_the_filter_leaves_out(self, cable):
        world, _ = cable
        wire = world.capture("phys0", "tcp")
        world.run(["/bin/ping", "-c", "1", "203.0.113.9"])
        assert wire.stop() == []


class TestAWireGuardServer:
    def test_carries_the_real_tools_tunnel(self, wireguard_world):
        world, tunnel = wireguard_world, wireguard_world.wireguard
        before = world.state()
        assert tunnel.handshake_age() is None and before.processes == []
        world.put_file(CONFIG, tunnel.profile(dns=None), mode=0o600)
        world.run(["/usr/bin/wg-quick", "up", CONFIG])
        assert world.http_get("http://203.0.113.9/").body == "10.8.0.2"
        assert world.udp_exchange("203.0.113.9", 7, "x") == "10.8.0.2 x"
        assert tunnel.handshake_age() < 30 and min(tunnel.transfer()) > 0
        world.run(["/usr/bin/wg-quick", "down", CONFIG])
        world.path(CONFIG).unlink()
        world.path(CONFIG).parent.rmdir()
        world.poll(lambda: world.processes() == [], what="the end of the engine")
        assert diff_states(before, world.state()) == ""
        assert world.http_get("http://203.0.113.9/").body == "10.99.0.1"

    def test_makes_keys_that_differ_each_time(self, wireguard_world):
        secrets = wireguard_world.wireguard.secrets
        assert len(set(secrets)) == 2 and all(len(secret) == 44 for secret in secrets)


class TestANameServer:
    def test_answers_for_its_names_only(self, cable):
        world, server = cable
        names = {"vpn.test": ["198.51.100.8", "fd00::7"], "four.test": ["192.0.2.1"]}
        server.dns_server("10.99.0.2", names)
        world.use_resolver("10.99.0.2")
        found = world.run(["/usr/bin/getent", "ahosts", "vpn.test"]).stdout
        assert {line.split()[0] for line in found.splitlines()} == {"198.51.100.8", "fd00::7"}
        assert "192.0.2.1" in world.run(["/usr/bin/getent", "ahostsv4", "four.test"]).stdout
        assert world.run(["/usr/bin/getent", "ahosts", "no.test"], check=False).status == 2

    def test_can_be_silent(self, cable):
        world, server = cable
        server.dns_server("10.99.0.2", {}, silent=True)
        wire = server.capture("phys0-peer", "udp port 53")
        world.use_resolver("10.99.0.2")
        asker = world.spawn(["/usr/bin/getent", "ahosts", "vpn.test"])
        wire.wait_packet("A? vpn.test.")
        assert asker.alive
        asker.kill()
        assert all("10.99.0.2.53 > " not in line for line in wire.packets())
