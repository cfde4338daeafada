# SPDX-License-Identifier: Apache-2.0
"""The worlds themselves: private, populated as they say, and gone without a trace.

The service here is a placeholder, so that a failure means the worlds and not the product.
"""

import os
import signal
import subprocess
import time
from pathlib import Path

import pytest

from quorvex_world import BUS_NAME, BusError, Variant, WorldFault, diff_states

SUPPORT = Path(__file__).resolve().parents[1] / "support"
PLACEHOLDER = SUPPORT / "placeholder_service.py"
AUTHORITY = ("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
             "org.freedesktop.PolicyKit1.Authority")

KINDS = ("mnt", "net", "pid")

pytestmark = pytest.mark.bus


def is_allowed(client) -> bool:
    """What the world's real polkitd says about a client and the service's one action."""
    subject = ["system-bus-name", {"name": Variant("s", client.unique_name)}]
    check = client.raw_call_async(
        *AUTHORITY, "CheckAuthorization", "((sa{sv})sa{ss}us)", subject,
        "org.quorvexvpn.manage", {}, 0, "")
    return check.result()[0]


def namespaces(pid) -> set[str]:
    return {os.readlink(f"/proc/{pid}/ns/{kind}") for kind in KINDS}


class TestAWorld:
    def test_has_namespaces_of_its_own(self, world):
        assert not namespaces("self") & namespaces(world.init_pid)

    def test_sees_its_own_processes_only(self, world):
        listed = world.run(["/bin/ls", "/proc"]).stdout.split()
        assert "1" in listed and str(os.getpid()) not in listed

    def test_shows_only_its_own_interfaces(self, world):
        assert world.run(["/bin/ls", "/sys/class/net"]).stdout.split() == ["lo"]

    def test_has_its_loopback_up(self, world):
        world.run(["/media/bin/ip", "-4", "route", "get", "127.0.0.1"])
        assert "LOOPBACK,UP" in world.state().links[0]

    def test_changes_tools_in_itself_only(self, world):
        world.remove_tool("/usr/bin/timeout")
        world.put_file("/usr/bin/wg", "#!/bin/sh\necho mine\n", mode=0o755)
        world.chmod_tool("/usr/sbin/nft", 0o644)
        assert world.run(["wg"]).stdout == "mine\n"
        with pytest.raises(OSError, match="timeout"):
            world.run(["/usr/bin/timeout", "1", "true"])
        with pytest.raises(OSError, match="Permission denied"):
            world.run(["/usr/sbin/nft"])
        assert os.access("/usr/bin/timeout", os.X_OK) and os.access("/usr/sbin/nft", os.X_OK)
        assert Path("/usr/bin/wg").read_bytes()[:4] == b"\x7fELF"

    @pytest.mark.parametrize("directory", ["/run", "/tmp", "/dev/shm", "/etc", "/usr"])
    def test_writes_to_no_directory_of_the_machine(self, world, directory):
        path = f"{directory}/quorvex-probe-{os.getpid()}"
        world.run(["/bin/sh", "-c", f"echo secret > {path}"])
        assert world.path(path).read_text() == "secret\n"
        assert not Path(path).exists()

    @pytest.mark.parametrize("directory", ["/var/tmp", "/root", "", "/dev"])
    def test_cannot_write_elsewhere(self, world, directory):
        path = f"{directory}/quorvex-probe-{os.getpid()}"
        done = world.run(["/bin/sh", "-c", f"echo secret > {path}"], check=False)
        assert done.status != 0 and "Read-only file system" in done.stderr
        assert not Path(path).exists()

    def test_can_be_given_a_directory_to_write(self, make_world, tmp_path):
        with make_world(writable=[tmp_path], bus=False) as world:
            world.run(["/bin/sh", "-c", f"echo data > {tmp_path}/x"])
        assert (tmp_path / "x").read_text() == "data\n"

    def test_runs_commands_as_its_users(self, world):
        done = world.run(["/usr/bin/id"], user="alice")
        assert done.stdout == "uid=64101(alice) gid=64101(alice) groups=64101(alice)\n"

    def test_tells_the_signal_that_ended_a_process(self, world):
        process = world.spawn(["/bin/sleep", "100"])
        process.kill()
        assert process.wait() == -signal.SIGKILL

    def test_reaps_orphans(self, world):
        world.run(["/bin/sh", "-c", "(sleep 0.01; exit 3) & exit 0"])
        world.poll(lambda: not world.processes(), what="the orphan to be reaped")
        states = world.run(["/bin/sh", "-c", "cat /proc/[0-9]*/stat"], check=False).stdout
        assert ") Z " not in states

    def test_finds_nothing_different_when_nothing_has_changed(self, world):
        assert diff_states(world.state(), world.state()) == ""

    def test_finds_what_has_changed(self, world):
        before = world.state()
        world.run(["/media/bin/ip", "tuntap", "add", "dev", "quorvexvpn", "mode", "tun"])
        world.run(["/media/sbin/nft", "add", "table", "inet", "quorvexvpn"])
        world.put_file("/run/quorvexvpn/quorvexvpn.conf", "x", mode=0o600)
        world.spawn(["/bin/sleep", "100"], listed=True)
        found = diff_states(before, world.state())
        assert "links: +quorvexvpn" in found and "nftables: +table inet quorvexvpn" in found
        assert "+-rw------- quorvexvpn/quorvexvpn.conf" in found
        assert "processes: +/bin/sleep 100" in found


class TestTheBus:
    def test_asks_the_real_polkit(self, world):
        assert is_allowed(world.client("alice"))
        assert not is_allowed(world.client("bob"))
        assert is_allowed(world.client("root"))

    def test_follows_new_rules(self, world):
        world.polkit_allow("bob")
        world.polkit_refuse("alice")
        assert is_allowed(world.client("bob")) and not is_allowed(world.client("alice"))

    def test_can_lose_its_polkit(self, world):
        world.stop_polkit()
        with pytest.raises(BusError) as refusal:
            is_allowed(world.client("alice"))
        assert refusal.value.name == "org.freedesktop.DBus.Error.ServiceUnknown"
        world.start_polkit()
        assert is_allowed(world.client("alice"))

    def test_lets_only_root_own_the_name(self, world):
        with pytest.raises(BusError) as refusal:
            world.client("alice").own_name(BUS_NAME)
        assert refusal.value.name == "org.freedesktop.DBus.Error.AccessDenied"
        assert world.client("root").own_name(BUS_NAME) == 1
        assert world.client("root", new=True).own_name(BUS_NAME) == 3

    def test_can_be_killed_under_its_clients(self, world):
        alice = world.client("alice")
        world.kill_bus()
        world.wait(lambda: alice.closed, what="the end of the connection")

    def test_forgets_a_caller_who_leaves(self, world):
        world.start_service(executable=PLACEHOLDER)
        alice, bob = world.client("alice"), world.client("bob")
        ask_bus = lambda method: bob.raw_call(
            "org.freedesktop.DBus", "/", "org.freedesktop.DBus", method, "(s)", alice.unique_name)
        alice.close()
        # A busy bus may read bob's question before it sees that alice's end of the line is closed.
        world.poll(lambda: not ask_bus("NameHasOwner"), what="the bus to see alice leave")
        with pytest.raises(BusError) as unknown:
            ask_bus("GetConnectionUnixUser")
        assert unknown.value.name == "org.freedesktop.DBus.Error.NameHasNoOwner"
        with pytest.raises(ConnectionError):
            alice.call("GetConnectionSnapshot")

    def test_knows_a_caller_as_an_unprivileged_user(self, world):
        alice = world.client("alice")
        user = alice.raw_call("org.freedesktop.DBus", "/", "org.freedesktop.DBus",
                              "GetConnectionUnixUser", "(s)", alice.unique_name)
        assert user == 64101


class TestAService:
    def test_is_called_and_heard(self, world):
        alice = world.client("alice")
        service = world.start_service(executable=PLACEHOLDER)
        reply = alice.call_reply("GetConnectionSnapshot")
        assert reply.text == "({'stage': <'disconnected'>, 'time': <int64 7>},)"
        assert alice.wait_log("started").value["level"] == "info"
        alice.connect("p", "wg", "text", kill_switch=Variant("s", "yes"), omit=("id",))
        alice.wait_stage("connected")
        service.wait_journal(
            "({'protocol': <'wg'>, 'rawConfig': <'text'>, 'killSwitch': <'yes'>},)")
        assert service.stop() == 0

    def test_refuses_with_its_own_error(self, world):
        world.start_service(executable=PLACEHOLDER)
        with pytest.raises(BusError) as refusal:
            world.client("bob").call("Fail")
        assert (refusal.value.name, refusal.value.message) == (f"{BUS_NAME}.Failed", "As asked.")

    def test_can_be_killed_and_started_again(self, world):
        first = world.start_service(executable=PLACEHOLDER)
        first.kill()
        assert first.wait() == -signal.SIGKILL
        second = world.start_service(executable=PLACEHOLDER)
        assert second.alive and second.pid != first.pid

    def test_started_anew_is_not_taken_for_the_one_before(self, world):
        for _ in range(5):
            service = world.start_service(executable=PLACEHOLDER)
            world.client("alice").call("Say", {"text": "here"})
            service.wait_journal("here")
            service.kill()
            service.wait()

    def test_is_found_below_a_wrapper(self, world):
        service = world.start_service(
            executable=PLACEHOLDER, wrapper=["/usr/bin/strace", "-f", "-o", "/tmp/trace"])
        assert service.pid != service.process.pid
        assert service.stop() == 0
        assert "SIGTERM" in world.path("/tmp/trace").read_text()

    def test_shows_its_inside(self, world):
        service = world.start_service(executable=PLACEHOLDER, env={"MARK": "needle-in-the-hay"})
        assert service.memory_contains(b"needle-in-" + b"the-hay")
        assert not service.memory_contains(b"another-" + b"needle")
        assert 0 in service.fds() and "gdbus" in service.threads().values()

    def test_is_given_the_sanitizers_options_and_files(self, world, tmp_path, monkeypatch):
        (tmp_path / "list").write_text("race:libglib\n")
        options = f"halt_on_error=0:suppressions={tmp_path}/list:second_deadlock_stack=1"
        monkeypatch.setenv("TSAN_OPTIONS", options)
        service = world.start_service(executable=PLACEHOLDER)
        told = Path(f"/proc/{service.host_pid}/environ").read_bytes().split(b"\0")
        inner = "halt_on_error=0:suppressions=/run/world/TSAN_OPTIONS:second_deadlock_stack=1"
        assert f"TSAN_OPTIONS={inner}".encode() in told
        assert world.path("/run/world/TSAN_OPTIONS").read_text() == "race:libglib\n"

    @pytest.mark.parametrize("line", [
        "==1==ERROR: AddressSanitizer: heap-use-after-free", "x.cc:1:2: runtime error: overflow",
        "WARNING: ThreadSanitizer: data race", "==1==ERROR: LeakSanitizer: detected memory leaks",
        "(process:2): GLib-CRITICAL **: 10:00:00.000: assertion failed"])
    def test_fails_the_test_by_a_report_in_its_journal(self, make_world, line):
        with pytest.raises(WorldFault, match="at fault"):
            with make_world() as world:
                service = world.start_service(executable=PLACEHOLDER)
                world.client("alice").call("Say", {"text": line})
                service.wait_journal(line)

    def test_fails_the_test_by_a_crash(self, make_world):
        with pytest.raises(WorldFault, match="SIGABRT"):
            with make_world() as world:
                service = world.start_service(executable=PLACEHOLDER)
                world.client("alice").call_async("Crash")
                service.wait()

    def test_may_crash_where_a_test_says_so(self, world):
        world.tolerate("SIGABRT")
        service = world.start_service(executable=PLACEHOLDER)
        world.client("alice").call_async("Crash")
        assert service.wait() == -signal.SIGABRT

    def test_that_ends_at_once_is_reported_with_its_journal(self, world):
        world.put_file("/tmp/service", "#!/bin/sh\necho no good >&2\nexit 3\n", mode=0o755)
        with pytest.raises(AssertionError, match="ended with 3(.|\n)*no good"):
            world.start_service(executable=world.path("/tmp/service"))


HELD_WORLD = """
import sys
sys.path.insert(0, sys.argv[1])
from quorvex_world import World
with World() as world:
    world.link(world.peer("server"), "10.99.0.1/24", "10.99.0.2/24")
    world.stand_in("/usr/bin/wg")
    world.client("alice")
    world.spawn(["/bin/sh", "-c", "trap '' TERM INT HUP; sleep 1000"])
    print(world.init_pid, flush=True)
    sys.stdin.read()
"""


class Marked:
    """A world's namespaces, held open so that the kernel cannot give their numbers to others."""

    def __init__(self, init_pid: int):
        self.numbers = namespaces(init_pid)
        self.held = [open(f"/proc/{init_pid}/ns/{kind}", "rb") for kind in KINDS]

    def survivors(self) -> list[str]:
        found = []
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                if namespaces(name) & self.numbers:
                    found.append(name)
            except OSError:
                continue
        return found


class TestTheEnd:
    def test_takes_everything_with_it(self, make_world):
        with make_world() as world:
            marked = Marked(world.init_pid)
            world.spawn(["/bin/sh", "-c", "trap '' TERM; sleep 1000"])
            assert len(marked.survivors()) >= 4
        assert marked.survivors() == []

    def test_comes_also_when_the_test_is_killed(self):
        holder = subprocess.Popen(
            ["/usr/bin/python3", "-B", "-c", HELD_WORLD, SUPPORT],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        marked = Marked(int(holder.stdout.readline()))
        assert len(marked.survivors()) >= 5
        holder.kill()
        holder.communicate()
        deadline = time.monotonic() + 10
        while marked.survivors() and time.monotonic() < deadline:
            time.sleep(0.005)
        assert marked.survivors() == []


class TestTheStateOfAMachine:
    """A world serves as the machine here, so that other tests beside this one do not show."""

    TOOL = "/usr/bin/host-state"

    @pytest.fixture
    def world(self, world):
        world.put_file(self.TOOL, (SUPPORT / "host_state.py").read_bytes(), mode=0o755)
        return world

    def test_compares_equal_when_nothing_was_left(self, world):
        world.run([self.TOOL, "snapshot", "/tmp/before"])
        assert world.run([self.TOOL, "compare", "/tmp/before", "0"]).stdout == ""

    def test_names_what_was_left(self, world):
        world.run([self.TOOL, "snapshot", "/tmp/before"])
        world.peer("left-over")
        world.put_file("/run/quorvexvpn/quorvexvpn.conf", "x")
        world.run(["/media/bin/ip", "tuntap", "add", "dev", "quorvexvpn", "mode", "tun"])
        world.put_file("/usr/libexec/quorvexvpn-left", Path("/bin/sleep").read_bytes(), mode=0o755)
        world.spawn(["/usr/libexec/quorvexvpn-left", "100"])
        done = world.run([self.TOOL, "compare", "/tmp/before", "0"], check=False)
        assert done.status == 1
        for line in ("links: + ", "/run: + quorvexvpn", "/run/netns: + left-over", "mounts: + "):
            assert line in done.stdout
        assert "/usr/libexec/quorvexvpn-left 100" in done.stdout
