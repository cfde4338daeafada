#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Shows the service's main job on a private machine: a tunnel for a desktop user without rights, up and down.

Every line that begins with "ok" is a claim that was checked just then. The exit status is 0 only when all of them held.
"""

import argparse
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "integration" / "tunnel"))

import secret_hunt  # noqa: E402
from quorvex_world import BusError, World, diff_states  # noqa: E402
from tunnel_steps import (  # noqa: E402
    CONFIG, DIRECT4, FAR4, IP, TUNNEL4, Machine, all_as, furnish, is_flow, strangers)

ENDPOINT = "10.99.0.2:51820"
HOOK = "PostUp = touch /tmp/owned\n"
DIRECTORY_STAYS = "runtime_files: +drwx------ quorvexvpn"


@dataclass
class Report:
    """What is told on the way, and how many of the claims held."""

    began: float = field(default_factory=time.monotonic)
    held: int = 0
    failed: list[str] = field(default_factory=list)

    def step(self, title: str) -> None:
        print(f"\n[{time.monotonic() - self.began:5.2f} s] {title}", flush=True)

    def say(self, text: str) -> None:
        print(f"       {text}", flush=True)

    def claim(self, text: str, holds: bool, found: object = "") -> None:
        if holds:
            self.held += 1
            print(f"    ok {text}", flush=True)
        else:
            self.failed.append(text)
            print(f"  FAIL {text}\n       found: {found}", flush=True)

    def summary(self) -> int:
        total = self.held + len(self.failed)
        print(f"\n{self.held} of {total} claims held, {time.monotonic() - self.began:.1f} s")
        for text in self.failed:
            print(f"did not hold: {text}")
        return 1 if self.failed else 0


def show_machine(report: Report, machine: Machine, wire) -> int:
    """The control: without a tunnel the capture sees everything. Returns how many packets that were."""
    alice, bob = (machine.world.run(["/usr/bin/id", "-u", user]).stdout.strip() for user in ("alice", "bob"))
    report.say(f"desktop users without rights: alice (uid {alice}) and bob (uid {bob}); polkit trusts alice")
    report.say(f"far side: http://{FAR4}/, behind a WireGuard server at {ENDPOINT}, both across one cable")
    seen = machine.traffic(FAR4)
    report.claim(f"without a tunnel HTTP, UDP and ping arrive from {DIRECT4}", seen == all_as(DIRECT4), seen)
    packets = wire.packets()
    clear = strangers(packets)
    report.claim(f"control: a capture on the cable sees {len(clear)} packets in the clear", len(clear) >= 10, packets)
    return len(packets)


def refused(client, profile: str) -> str:
    try:
        client.connect("home", "wireGuard", profile)
    except BusError as error:
        return f"{error.name.rpartition('.')[2]}: {error.message}"
    return "accepted"


def show_refusals(report: Report, machine: Machine, wire) -> None:
    profile = machine.wireguard.profile()
    before, packets = machine.world.state(), wire.packets()
    report.step("bob asks for a tunnel")
    answer = refused(machine.world.client("bob"), profile)
    report.claim(answer, answer.startswith("NotAuthorized: "), answer)
    report.step("alice asks with a profile that would run a command as root")
    answer = refused(machine.alice, profile.replace("[Peer]", HOOK + "[Peer]"))
    report.claim(answer, answer.startswith("InvalidProfile: "), answer)
    diff = diff_states(before, machine.world.state())
    report.claim("neither changed anything on the machine", diff == "", diff)
    sent = strangers(wire.packets()[len(packets):]) + [line for line in wire.packets() if is_flow(line)]
    report.claim("neither sent a packet", sent == [], sent)


def show_connect(report: Report, machine: Machine) -> None:
    report.step("alice asks for a tunnel with the kill switch: polkit agrees, the profile passes")
    machine.alice.mark()
    asked = time.monotonic()
    heard = len(machine.alice.signals)
    machine.alice.connect("home", "wireGuard", machine.wireguard.profile(), kill_switch=True)
    machine.alice.wait_log("WireGuard tunnel connected.")
    for signal in machine.alice.signals[heard:]:
        tell_signal(report, signal, asked)
    stages = [one.value["stage"] for one in machine.alice.signals[heard:] if one.name == "SnapshotChanged"]
    report.claim("the stages came in order", stages == ["preparing", "connecting", "connected"], stages)


def tell_signal(report: Report, signal, since: float) -> None:
    texts = {"SnapshotChanged": lambda value: f"stage {value['stage']}",
             "LogEmitted": lambda value: f"{value['level']}: {value['message']}"}
    if signal.name in texts:
        report.say(f"+{(signal.time - since) * 1000:4.0f} ms  {texts[signal.name](signal.value)}")


def show_tunnel(report: Report, machine: Machine) -> None:
    report.step("what is up")
    world = machine.world
    addresses = world.run([IP, "-4", "-brief", "address", "show", "quorvexvpn"], check=False).stdout.split()
    report.claim(f"interface quorvexvpn with {TUNNEL4}", f"{TUNNEL4}/32" in addresses, addresses)
    routes = world.run([IP, "-4", "route", "show", "table", "all"]).stdout.splitlines()
    route = next((line for line in routes if line.startswith("default dev quorvexvpn")), "none")
    report.claim(f"full route: {route.strip()}", route != "none", routes)
    dns = machine.dns_calls()[-1:]
    report.claim("DNS handed to the helper: apply-wireguard 10.8.0.1", dns == [["apply-wireguard", "10.8.0.1"]], dns)
    table = "table inet quorvexvpn {" in world.state().nftables
    report.claim("firewall closed around it: table inet quorvexvpn", table)
    show_keys(report, machine)


def show_keys(report: Report, machine: Machine) -> None:
    secrets = machine.wireguard.secrets
    files = secret_hunt.in_files(machine.world, secrets)
    mode = machine.world.path(CONFIG).stat().st_mode & 0o777
    alone = (files, mode) == ([CONFIG], 0o600)
    report.claim(f"the keys are in {CONFIG}, mode 0600, and in no other file", alone, (files, oct(mode)))
    shown = secret_hunt.in_processes(machine.world, secrets)
    report.claim("no process shows them in its arguments or environment", shown == [], shown)
    kept = secret_hunt.in_memory(machine.service.host_pid, secrets)
    report.claim("the service itself has forgotten them", kept == [], kept)


def show_traffic(report: Report, machine: Machine, wire, before: int) -> None:
    report.step("traffic")
    seen = machine.traffic(FAR4)
    report.claim(f"HTTP 200; the server saw {seen.http}, and UDP and ping pass too", seen == all_as(TUNNEL4), seen)
    age = machine.wireguard.handshake_age()
    report.claim("client and server have shaken hands", age is not None and age < 60, age)
    packets = wire.packets()[before:]
    flow, others = [line for line in packets if is_flow(line)], strangers(packets)
    report.claim(f"the cable: {len(flow)} packets, all WireGuard UDP to and from {ENDPOINT}, {len(others)} others",
                 bool(flow) and others == [], others)
    for line in flow[:2]:
        report.say(line)


def show_disconnect(report: Report, machine: Machine, fresh) -> None:
    report.step("alice disconnects")
    asked, heard = time.monotonic(), len(machine.alice.signals)
    machine.disconnect()
    for signal in machine.alice.signals[heard:]:
        tell_signal(report, signal, asked)
    diff = diff_states(fresh, machine.world.state())
    report.claim("links, addresses, routes, rules, firewall, processes, files: as before, but for the empty private "
                 "directory", diff == DIRECTORY_STAYS, diff)
    report.say("known: wg-quick leaves the kernel setting net.ipv4.conf.all.src_valid_mark at 1")
    files = secret_hunt.in_files(machine.world, machine.wireguard.secrets)
    report.claim("the keys are in no file any more", files == [], files)
    seen = machine.traffic(FAR4)
    report.claim(f"the far server sees {DIRECT4} again", seen == all_as(DIRECT4), seen)


def show_end(report: Report, machine: Machine) -> None:
    report.step("the service is told to end")
    status = machine.service.stop()
    report.claim("it ends with status 0", status == 0, status)
    loud = [line for line in machine.service.journal for secret in machine.wireguard.secrets if secret in line]
    report.claim(f"its journal has {len(machine.service.journal)} lines and no key", loud == [], loud)


def run(report: Report, service: str) -> None:
    report.step("a private machine: its own network, processes, files, message bus and polkit")
    with World(service=service) as world:
        furnish(world)
        machine = Machine(world, world.start_service(), world.client("alice"))
        wire = world.server.capture("phys0-peer")
        fresh = world.state()
        before = show_machine(report, machine, wire)
        show_refusals(report, machine, wire)
        show_connect(report, machine)
        show_tunnel(report, machine)
        show_traffic(report, machine, wire, before)
        show_disconnect(report, machine, fresh)
        show_end(report, machine)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--service", required=True, metavar="PATH", help="the service's executable")
    report = Report()
    try:
        run(report, parser.parse_args().service)
    except (AssertionError, BusError, OSError, RuntimeError) as error:
        report.claim("the demonstration reaches its end", False, f"{type(error).__name__}: {error}")
    return report.summary()


if __name__ == "__main__":
    sys.exit(main())
