# SPDX-License-Identifier: Apache-2.0
"""The stand-ins and recorders of a world: exact records, programmed faults, calls held midway.

The placeholder service makes some of the calls, so that they come the way the product's come.
"""

import signal
from pathlib import Path

import pytest

from quorvex_world import Behaviour

PLACEHOLDER = Path(__file__).resolve().parents[1] / "support/placeholder_service.py"

pytestmark = pytest.mark.bus


class TestAStandIn:
    def test_records_arguments_environment_and_input_exactly(self, world):
        world.stand_in("/usr/bin/wg-quick")
        words = ["", "a b", "é\n", "-f", "$HOME"]
        world.run(["/usr/bin/wg-quick", *words], input="line 1\nline 2", env={"MARK": "x=y z"})
        (call,) = world.calls("wg-quick")
        assert call.argv == ["/usr/bin/wg-quick", *words]
        assert call.env["MARK"] == "x=y z" and "HOME" not in call.env
        assert call.stdin == "line 1\nline 2"
        assert (call.program, call.status) == ("/usr/bin/wg-quick", 0)

    def test_records_large_input(self, world):
        world.stand_in("/usr/sbin/nft")
        text = "0123456789" * 100_000
        world.run(["nft", "-f", "-"], input=text)
        assert world.calls("nft")[0].stdin == text

    def test_records_the_caller_and_the_times(self, world):
        world.stand_in("/usr/bin/wg-quick", shell="sleep 0.05")
        world.start_service(executable=PLACEHOLDER)
        argv = ["/usr/bin/timeout", "12s", "/usr/bin/wg-quick", "up", "x"]
        world.client("alice").call("Run", {"argv": argv})
        (call,) = world.calls("wg-quick", "up")
        assert [name for _, name in call.ancestors] == ["timeout", "quorvexvpn-serv"]
        # Asked for after its end, a call is complete.
        assert 0.05 <= call.ended - call.began < 5

    def test_keeps_the_order_of_all_calls(self, world):
        for name in ("wg", "nft", "ip"):
            world.stand_in(f"/usr/sbin/{name}")
        world.run(["/bin/sh", "-c", "/usr/sbin/ip 1; /usr/sbin/nft 2; /usr/sbin/wg 3; ip 4"])
        assert [(call.name, call.argv[1]) for call in world.all_calls()] == [
            ("ip", "1"), ("nft", "2"), ("wg", "3"), ("ip", "4")]

    @pytest.mark.parametrize("behaviour, status, stdout, stderr", [
        ({"exit_status": 7}, 7, "", ""),
        ({"stdout": "out\n", "stderr": "err\n"}, 0, "out\n", "err\n"),
        ({"die_by": signal.SIGKILL}, -9, "", ""),
        ({"die_by": signal.SIGTERM, "ignore_term": True}, -15, "", ""),
        ({"shell": "echo $0 $1; exit 4"}, 4, "/usr/bin/wg a\n", ""),
        ({"shell": "exit 4", "exit_status": 0}, 0, "", ""),
        ({"shell": "cat"}, 0, "text", ""),
    ], ids=str)
    def test_does_as_told(self, world, behaviour, status, stdout, stderr):
        world.stand_in("/usr/bin/wg", **behaviour)
        done = world.run(["/usr/bin/wg", "a"], input="text", check=False)
        assert (done.status, done.stdout, done.stderr) == (status, stdout, stderr)

    def test_takes_the_newest_rule_that_matches(self, world):
        wg = world.stand_in("/usr/bin/wg", stdout="other")
        wg.on("show", stdout="show").on("show", "wg0", stdout="once", times=1)
        wg.on("set", when=lambda call: "needle" in call.stdin, stdout="found")
        wg.on("react", react=lambda call: Behaviour(stdout=call.argv[-1]))

        def says(*words, text=""):
            return world.run(["wg", *words], input=text).stdout
        assert [says("show", "wg0"), says("show", "wg0"), says("genkey")] == [
            "once", "show", "other"]
        assert [says("set", text="a needle"), says("set"), says("react", "me")] == [
            "found", "other", "me"]

    def test_can_hang_until_it_is_stopped(self, world):
        world.stand_in("/usr/bin/wg", hang=True)
        done = world.run(["/usr/bin/timeout", "--signal=TERM", "0.2", "/usr/bin/wg"], check=False)
        assert done.status == 124
        (call,) = world.calls("wg")
        assert world.wait_ended(call).status is None

    def test_can_hang_and_ignore_the_polite_signal(self, world):
        world.stand_in("/usr/bin/wg", hang=True, ignore_term=True)
        process = world.spawn(["/usr/bin/timeout", "-k", "0.2", "0.2", "/usr/bin/wg"])
        assert process.wait() == -signal.SIGKILL
        (call,) = world.calls("wg")
        assert world.wait_ended(call).ended - call.began > 0.3

    def test_can_be_used_by_an_unprivileged_user(self, world):
        world.stand_in("/usr/bin/wg", stdout="key")
        assert world.run(["wg"], user="alice").stdout == "key"

    def test_replaces_a_program_that_is_not_there(self, world):
        world.stand_in("/usr/libexec/quorvexvpn/sing-box")
        world.run(["/usr/libexec/quorvexvpn/sing-box", "check"])
        assert world.calls("sing-box", "check") and not world.calls("sing-box", "run")


class TestAGate:
    def test_holds_a_call_before_it_acts(self, world):
        wg_quick = world.stand_in("/usr/bin/wg-quick", shell="touch /tmp/acted")
        gate = wg_quick.gate("up")
        process = world.spawn(["/usr/bin/wg-quick", "up"])
        call = world.wait_call("wg-quick", "up")
        world.run(["/usr/bin/wg-quick", "down"])
        assert call.ended is None and process.alive
        world.run(["/bin/rm", "/tmp/acted"])
        gate.open()
        assert process.wait() == 0 and world.path("/tmp/acted").exists()

    def test_holds_a_call_after_it_has_acted(self, world):
        gate = world.stand_in("/usr/bin/wg", shell="touch /tmp/acted").gate(after=True)
        process = world.spawn(["/usr/bin/wg"])
        world.poll(world.path("/tmp/acted").exists)
        assert process.alive
        gate.open()
        assert process.wait() == 0

    def test_does_not_hold_a_killed_call(self, world):
        world.stand_in("/usr/bin/wg").gate()
        process = world.spawn(["/usr/bin/wg"])
        call = world.wait_call("wg")
        process.kill()
        assert world.wait_ended(call).status is None


class TestARecorder:
    def test_becomes_the_real_tool(self, world):
        world.recorder("/usr/bin/wg")
        private = world.run(["wg", "genkey"]).stdout
        assert len(world.run(["wg", "pubkey"], input=private).stdout) == 45
        assert [call.argv[1] for call in world.calls("wg")] == ["genkey", "pubkey"]
        assert world.calls("wg", "pubkey")[0].stdin == private

    def test_hands_the_recorded_input_on(self, world):
        world.recorder("/usr/sbin/nft")
        world.run(["/usr/sbin/nft", "-f", "-"], input="table inet quorvexvpn {}\n")
        assert "table inet quorvexvpn {" in world.state().nftables
        assert world.calls("nft")[0].stdin == "table inet quorvexvpn {}\n"

    def test_can_fail_on_chosen_calls(self, world):
        nft = world.recorder("/usr/sbin/nft")
        nft.on("-f", exit_status=1, when=lambda call: "delete" in call.stdin)
        assert world.run(["nft", "-f", "-"], input="delete table inet x", check=False).status == 1
        assert world.run(["nft", "list", "tables"]).status == 0

    def test_knows_calls_that_another_recorded_tool_has_made(self, world):
        world.recorder("/usr/sbin/ip")
        world.put_file("/usr/bin/wg-quick", "#!/bin/bash\nip link show lo\n", mode=0o755)
        world.recorder("/usr/bin/wg-quick")
        assert "LOOPBACK" in world.run(["/usr/bin/wg-quick", "up"]).stdout
        assert world.calls("ip") == []
        (inner,) = world.calls("ip", nested=True)
        assert inner.nested and "wg-quick" in [name for _, name in inner.ancestors]


class TestTheStandardTools:
    def test_make_an_interface_with_a_default_route(self, world):
        world.standard_tools()
        before = world.state()
        world.run(["/usr/bin/wg-quick", "up", "x"])
        assert world.interface_exists("quorvexvpn")
        routes = world.run(["/usr/sbin/ip", "-4", "route", "show", "table", "all"]).stdout
        assert "default dev quorvexvpn" in routes
        world.run(["/usr/bin/wg-quick", "down", "x"])
        assert before.links == world.state().links

    def test_have_all_that_the_engines_ask_for(self, world):
        tools = world.standard_tools()
        assert sorted(tools) == ["ip", "nft", "quorvexvpn-dns", "resolvectl", "wg", "wg-quick"]
        world.run(["/usr/libexec/quorvexvpn-dns", "apply-wireguard", "10.0.0.1"])
        world.run(["/usr/bin/resolvectl"])
