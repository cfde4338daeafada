# SPDX-License-Identifier: Apache-2.0
"""Where a profile's keys go: into the private file and the engine, and nowhere else, nor do they stay anywhere."""

import re

import pytest

from quorvex_world import BusError
from secret_hunt import in_files, in_memory, in_processes, keeps_freed_memory
from tunnel_steps import CONFIG, TUNNEL4, FAR4, Machine

pytestmark = pytest.mark.tunnel

COMMENT = "# a comment of no importance\n"
TRACE = "/tmp/trace"


@pytest.fixture
def watched(machine) -> Machine:
    """A machine whose service has the shipped allocator, which wipes what is freed."""
    if keeps_freed_memory(machine.world.executable):
        pytest.skip("a sanitized service has the sanitizer's allocator, which keeps freed memory on purpose")
    return machine


def left_in_memory(machine, secrets: list[str]) -> list[str]:
    return in_memory(machine.service.host_pid, secrets)


def expect_forgotten(machine, secrets: list[str]) -> None:
    """A reply may arrive before the service's other thread has dropped the request, so this waits a moment."""
    try:
        machine.world.poll(lambda: not left_in_memory(machine, secrets), timeout=2, what="the service to forget")
    except TimeoutError:
        assert left_in_memory(machine, secrets) == []


def keys(world) -> list[str]:
    """A private and a preshared key that no other profile has."""
    return [world.run(["/usr/bin/wg", kind]).stdout.strip() for kind in ("genkey", "genpsk")]


def profile_with(machine, secrets: list[str], **more) -> str:
    text = machine.wireguard.profile(**more)
    return text.replace(machine.wireguard.client_private, secrets[0]).replace(machine.wireguard.preshared, secrets[1])


# Memory

@pytest.mark.parametrize("filling", [
    pytest.param("", id="a short profile"),
    pytest.param(COMMENT * 200, id="a profile of 6 kB"),
    pytest.param(COMMENT * 20_000, id="a profile of 580 kB"),
])
@pytest.mark.parametrize("kill_switch", [pytest.param(False, id="open"), pytest.param(True, id="with the kill switch")])
def test_a_connected_service_knows_no_key_any_more(watched, filling, kill_switch):
    gate = watched.world.recorder("/usr/bin/wg-quick").gate("up")
    watched.alice.connect("home", "wireGuard", watched.wireguard.profile() + filling, kill_switch=kill_switch)
    watched.world.wait_call("wg-quick", "up")
    for secret in watched.wireguard.secrets:
        assert left_in_memory(watched, [secret]), "the hunt must find a key that the service is working with"
    gate.open()
    watched.alice.wait_stage("connected")
    assert left_in_memory(watched, watched.wireguard.secrets) == []
    watched.alice.wait_log("WireGuard tunnel connected.")
    watched.disconnect()
    assert left_in_memory(watched, watched.wireguard.secrets) == []


def test_profiles_in_a_row_are_all_forgotten(watched):
    """Each round meets an allocator, caches and threads that the rounds before have used."""
    secrets = []
    for length in range(6):
        fresh = keys(watched.world)
        secrets += fresh
        watched.connect(profile_with(watched, fresh) + COMMENT * 80 * length)
        assert left_in_memory(watched, secrets) == []
        watched.disconnect()


def refused_by_polkit(machine, profile: str) -> str:
    return refusal(machine.world.client("bob"), profile)


def refused_as_invalid(machine, profile: str) -> str:
    return refusal(machine.alice, profile + "PostUp = true\n")


def refused_for_its_end(machine, profile: str) -> str:
    """Read to the last line before it is refused."""
    return refusal(machine.alice, profile + "[Peer]\n")


def refused_as_busy(machine, profile: str) -> str:
    gate = machine.world.recorder("/usr/bin/wg-quick").gate("up")
    machine.alice.connect("home", "wireGuard", machine.wireguard.profile())
    machine.world.wait_call("wg-quick", "up")
    try:
        return refusal(machine.alice, profile)
    finally:
        gate.open()


def refused_without_tools(machine, profile: str) -> str:
    machine.world.remove_tool("/usr/bin/wg")
    return refusal(machine.alice, profile)


def refused_for_its_type(machine, profile: str) -> str:
    """The bus library itself turns this call away."""
    with pytest.raises(BusError) as error:
        machine.alice.raw_call("org.quorvexvpn.Service1", "/org/quorvexvpn/Service1", "org.quorvexvpn.Service1",
                               "Connect", "(s)", profile)
    return error.value.name


def refusal(client, profile: str) -> str:
    with pytest.raises(BusError) as error:
        client.connect("home", "wireGuard", profile)
    return error.value.name


@pytest.mark.parametrize("filling", [pytest.param("", id="short"), pytest.param(COMMENT * 400, id="long")])
@pytest.mark.parametrize("refuse, error", [
    pytest.param(refused_by_polkit, "org.quorvexvpn.Error.NotAuthorized", id="by polkit"),
    pytest.param(refused_as_invalid, "org.quorvexvpn.Error.InvalidProfile", id="as invalid"),
    pytest.param(refused_for_its_end, "org.quorvexvpn.Error.InvalidProfile", id="as invalid at its end"),
    pytest.param(refused_as_busy, "org.quorvexvpn.Error.Busy", id="as busy"),
    pytest.param(refused_without_tools, "org.quorvexvpn.Error.RuntimeUnavailable", id="without tools"),
    pytest.param(refused_for_its_type, "org.freedesktop.DBus.Error.InvalidArgs", id="for its type"),
])
def test_a_refused_profile_is_forgotten(watched, refuse, error, filling):
    secrets = keys(watched.world)
    assert refuse(watched, profile_with(watched, secrets) + filling) == error
    expect_forgotten(watched, secrets)


def test_a_failed_connect_is_forgotten(watched):
    secrets = keys(watched.world)
    watched.alice.connect("home", "wireGuard", profile_with(watched, secrets, address="nonsense"))
    watched.alice.wait_stage("error")
    assert left_in_memory(watched, secrets) == []


def test_a_cancelled_connect_is_forgotten(watched):
    secrets = keys(watched.world)
    gate = watched.world.recorder("/usr/bin/wg-quick").gate("up")
    watched.alice.connect("home", "wireGuard", profile_with(watched, secrets))
    watched.world.wait_call("wg-quick", "up")
    watched.alice.call("Disconnect")
    gate.open()
    watched.alice.wait_stage("disconnected")
    assert left_in_memory(watched, secrets) == []


def test_a_generated_private_key_is_forgotten_once_the_caller_has_it(watched):
    wg = watched.world.recorder("/usr/bin/wg")
    gate = wg.gate("pubkey")
    pending = watched.alice.call_async("GenerateWireGuardKeyPair")
    private_key = watched.world.wait_call("wg", "pubkey").stdin.strip() or read_later(watched)
    assert left_in_memory(watched, [private_key]), "the hunt must find a key that the service is working with"
    gate.open()
    assert pending.result()["privateKey"] == private_key
    expect_forgotten(watched, [private_key])


def read_later(machine) -> str:
    """The input of the call that is held: it is recorded a moment after the call itself."""
    return machine.world.poll(lambda: machine.world.calls("wg", "pubkey")[0].stdin.strip(), what="the input of pubkey")


def test_many_generated_private_keys_are_all_forgotten(watched):
    private_keys = [watched.alice.call("GenerateWireGuardKeyPair")["privateKey"] for _ in range(10)]
    assert len(set(private_keys)) == 10
    expect_forgotten(watched, private_keys)


# Command lines, environments, files, journal

# What the service and its tools open for writing; "/dev/null" and the like apart, there is nothing but this.
WRITTEN = {CONFIG, "/run/quorvexvpn-ground/record", "/proc/sys/net/ipv4/conf/all/src_valid_mark", "/dev/net/tun"}


def test_every_program_started_and_every_file_written_is_known_and_keyless(machine):
    """strace records each program that the service and its tools start, and each file that one of them writes."""
    world, secrets = machine.world, machine.wireguard.secrets
    machine.service.stop()
    traced = Machine(world, world.start_service(wrapper=[
        "/usr/bin/strace", "-f", "-v", "-s", "65536", "-e", "trace=execve,open,openat,creat,mknod,mknodat,link,linkat",
        "-o", TRACE]), machine.alice)
    traced.connect(kill_switch=True)
    traced.disconnect()
    traced.service.stop()
    trace = world.path(TRACE).read_text(errors="replace")
    started = set(re.findall(r'execve\("[^"]*/([^"/]+)"', trace))
    assert {"timeout", "wg-quick", "wg", "ip", "nft", "wireguard-go", "quorvexvpn-dns"} <= started
    assert "PATH=/" in trace, "environments must be in the trace"
    assert not any(secret in trace for secret in secrets)
    assert files_written(trace) == WRITTEN


def files_written(trace: str) -> set[str]:
    opened = re.findall(r'(?:open|openat|creat)\((?:[^",]*, )?"([^"]+)", ([A-Z_|]+)[^\n]*\) = \d', trace)
    changing = ("O_WRONLY", "O_RDWR", "O_CREAT")
    return {path for path, flags in opened if any(flag in flags for flag in changing)
            and path not in ("/dev/null", "/dev/tty", "/run/world/stand-ins")
            # The counters of a build that counts lines.
            and not path.endswith(".gcda")}


def test_no_process_shows_a_key_while_the_tunnel_is_being_made(machine):
    world, secrets = machine.world, machine.wireguard.secrets
    waiting = ["/usr/bin/python3", "-c", "import signal; signal.pause()"]
    control = world.spawn([*waiting, secrets[0]], env={"KEY": secrets[1]})
    assert in_processes(world, secrets) == [f"cmdline of {control.argv}", f"environ of {control.argv}"]
    control.kill()
    control.wait()
    wg_quick, wg = world.recorder("/usr/bin/wg-quick"), world.recorder("/usr/bin/wg")
    gates = [wg_quick.gate("up"), wg.gate("setconf")]
    machine.alice.connect("home", "wireGuard", machine.wireguard.profile())
    world.wait_call("wg-quick", "up")
    assert in_processes(world, secrets) == []
    gates[0].open()
    world.wait(lambda: world.calls("wg", "setconf", nested=True), what="wg setconf")
    assert in_processes(world, secrets) == []
    gates[1].open()
    machine.alice.wait_stage("connected")
    assert in_processes(world, secrets) == []


def test_the_keys_are_in_one_file_while_connected_and_in_none_afterwards(machine):
    assert in_files(machine.world, machine.wireguard.secrets) == []
    machine.connect()
    assert in_files(machine.world, machine.wireguard.secrets) == [CONFIG]
    machine.disconnect()
    assert in_files(machine.world, machine.wireguard.secrets) == []


@pytest.mark.parametrize("more", [
    pytest.param({}, id="connected"), pytest.param({"address": "nonsense"}, id="failed")])
def test_neither_the_journal_nor_a_signal_bears_a_key(machine, more):
    profile = machine.wireguard.profile(**more)
    machine.alice.connect("home", "wireGuard", profile, kill_switch=True)
    machine.alice.wait_stage("error" if more else "connected")
    with pytest.raises(BusError) as refusal_of_invalid:
        machine.alice.connect("home", "wireGuard", profile + "PostUp = true\n")
    machine.alice.call("Disconnect")
    machine.alice.wait_stage("disconnected")
    machine.service.stop()
    said = [*machine.service.journal, *(signal.text for signal in machine.alice.signals), str(refusal_of_invalid.value)]
    assert len(said) > 10
    assert [line for line in said for secret in machine.wireguard.secrets if secret in line] == []
    assert [line for line in said if machine.wireguard.endpoint in line or TUNNEL4 in line or FAR4 in line] == []
