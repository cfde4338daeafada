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
from demo_engines import ENGINES, Shown  # noqa: E402
from engine_steps import is_to_server, leaks  # noqa: E402
from quorvex_world import BusError, World, diff_states  # noqa: E402
from tunnel_steps import DIRECT4, FAR4, FIRST_CONNECT_LEAVES, IP, Machine, all_as, furnish  # noqa: E402



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


@dataclass
class Scene(Machine):
    """The machine, the engine that is shown on it, and the capture on its cable."""

    shown: Shown
    wire: object

    @property
    def server(self):
        return self.world.tunnel

    @property
    def endpoint(self) -> str:
        return f"{self.server.endpoint}:{self.server.port}"

    def leaks(self, since: int = 0) -> list[str]:
        """Packets on the cable that are not the tunnel's own."""
        return leaks(self.wire.packets()[since:], self.server)

    def flow(self, since: int = 0) -> list[str]:
        """Packets on the cable that are the tunnel's own."""
        return [line for line in self.wire.packets()[since:] if is_to_server(line, self.server)]


def show_machine(report: Report, scene: Scene) -> int:
    """The control: without a tunnel the capture sees everything. Returns how many packets that were."""
    alice, bob = (scene.world.run(["/usr/bin/id", "-u", user]).stdout.strip() for user in ("alice", "bob"))
    report.say(f"desktop users without rights: alice (uid {alice}) and bob (uid {bob}); polkit trusts alice")
    report.say(f"far side: http://{FAR4}/, behind {scene.shown.what} at {scene.endpoint}, both across one cable")
    seen = scene.traffic(FAR4)
    report.claim(f"without a tunnel HTTP, UDP and ping arrive from {DIRECT4}", seen == all_as(DIRECT4), seen)
    clear = scene.leaks()
    report.claim(f"control: a capture on the cable sees {len(clear)} packets in the clear", len(clear) >= 10, clear)
    return len(scene.wire.packets())


def refused(client, protocol: str, profile: str) -> str:
    try:
        client.connect("home", protocol, profile)
    except BusError as error:
        return f"{error.name.rpartition('.')[2]}: {error.message}"
    return "accepted"


def show_refusals(report: Report, scene: Scene) -> None:
    profile, protocol = scene.server.profile(), scene.server.protocol
    before, packets = scene.world.state(), len(scene.wire.packets())
    report.step("bob asks for a tunnel")
    answer = refused(scene.world.client("bob"), protocol, profile)
    report.claim(answer, answer.startswith("NotAuthorized: "), answer)
    report.step(f"alice asks with a profile that would {scene.shown.refused_for}")
    answer = refused(scene.alice, protocol, scene.shown.spoil(profile))
    report.claim(answer, answer.startswith("InvalidProfile: "), answer)
    diff = diff_states(before, scene.world.state())
    report.claim("neither changed anything on the machine", diff == "", diff)
    sent = scene.leaks(since=packets) + scene.flow(since=packets)
    report.claim("neither sent a packet", sent == [], sent)


def show_connect(report: Report, scene: Scene) -> None:
    report.step("alice asks for a tunnel with the kill switch: polkit agrees, the profile passes")
    asked = time.monotonic()
    heard = len(scene.alice.signals)
    scene.connect(kill_switch=True)
    for signal in scene.alice.signals[heard:]:
        tell_signal(report, signal, asked)
    stages = [one.value["stage"] for one in scene.alice.signals[heard:] if one.name == "SnapshotChanged"]
    report.claim("the stages came in order", stages == ["preparing", "connecting", "connected"], stages)


def tell_signal(report: Report, signal, since: float) -> None:
    texts = {"SnapshotChanged": lambda value: f"stage {value['stage']}",
             "LogEmitted": lambda value: f"{value['level']}: {value['message']}"}
    if signal.name in texts:
        report.say(f"+{(signal.time - since) * 1000:4.0f} ms  {texts[signal.name](signal.value)}")


def show_tunnel(report: Report, scene: Scene) -> None:
    report.step("what is up")
    world, shown, interface = scene.world, scene.shown, scene.server.interface
    addresses = world.run([IP, "-4", "-brief", "address", "show", interface], check=False).stdout.split()
    report.claim(f"interface {interface} with {shown.address}", shown.address in addresses, addresses)
    routes = world.run([IP, "-4", "route", "show", "table", "all"]).stdout.splitlines()
    for wanted in shown.routes:
        route = next((line for line in routes if line.startswith(wanted)), "none")
        report.claim(f"full route: {route.strip()}", route != "none", routes)
    show_dns(report, scene)
    table = "table inet quorvexvpn {" in world.state().nftables
    report.claim("firewall closed around it: table inet quorvexvpn", table)
    show_keys(report, scene)


def show_dns(report: Report, scene: Scene) -> None:
    """The helper is the client's own and a stand-in here, so what it is told is all there is to see."""
    calls = scene.world.calls("quorvexvpn-dns")
    if scene.server.engine == "WireGuard":
        told = [call.argv[1:] for call in calls[-1:]]
        wanted = ["apply-wireguard", "10.8.0.1"]
        report.claim("DNS handed to the helper: apply-wireguard 10.8.0.1", told == [wanted], told)
    if scene.server.engine == "OpenVPN":
        told = [call.env.get("foreign_option_1") for call in calls if call.env.get("script_type") == "up"]
        report.claim("DNS handed to the helper by OpenVPN: dhcp-option DNS 10.9.0.1",
                     told == ["dhcp-option DNS 10.9.0.1"], told)


def show_keys(report: Report, scene: Scene) -> None:
    secrets, config = scene.server.secrets, scene.server.config
    files = secret_hunt.in_files(scene.world, secrets)
    mode = scene.world.path(config).stat().st_mode & 0o777
    alone = (files, mode) == ([config], 0o600)
    report.claim(f"the keys are in {config}, mode 0600, and in no other file", alone, (files, oct(mode)))
    exposed = secret_hunt.in_processes(scene.world, secrets)
    report.claim("no process shows them in its arguments or environment", exposed == [], exposed)
    kept = secret_hunt.in_memory(scene.service.host_pid, secrets)
    report.claim("the service itself has forgotten them", kept == [], kept)


def show_traffic(report: Report, scene: Scene, before: int) -> None:
    report.step("traffic")
    seen, wanted = scene.traffic(FAR4), all_as(scene.server.seen_as4)
    if scene.server.carries_ping:
        report.claim(f"HTTP 200; the far side saw {seen.http}, and UDP and ping pass too", seen == wanted, seen)
    else:
        report.claim(f"HTTP 200; the far side saw {seen.http}, the server's own address, and UDP passes too",
                     (seen.http, seen.udp) == (wanted.http, wanted.udp), seen)
        report.say("pings are answered by the engine on this side, so they show nothing")
    if scene.server.engine == "WireGuard":
        age = scene.server.handshake_age()
        report.claim("client and server have shaken hands", age is not None and age < 60, age)
    flow, others = scene.flow(since=before), scene.leaks(since=before)
    report.claim(f"the cable: {len(flow)} packets, all {scene.shown.flow} to and from {scene.endpoint}, "
                 f"{len(others)} others", bool(flow) and others == [], others)
    for line in flow[:2]:
        report.say(line.split(", options ")[0])


def show_disconnect(report: Report, scene: Scene, fresh) -> None:
    report.step("alice disconnects")
    asked, heard = time.monotonic(), len(scene.alice.signals)
    scene.disconnect()
    for signal in scene.alice.signals[heard:]:
        tell_signal(report, signal, asked)
    diff = diff_states(fresh, scene.world.state())
    report.claim("links, addresses, routes, rules, firewall, processes, files: as before, but for the empty private "
                 "directory", diff == FIRST_CONNECT_LEAVES, diff)
    if scene.shown.known:
        report.say(f"known: {scene.shown.known}")
    files = secret_hunt.in_files(scene.world, scene.server.secrets)
    report.claim("the keys are in no file any more", files == [], files)
    seen = scene.traffic(FAR4)
    report.claim(f"the far server sees {DIRECT4} again", seen == all_as(DIRECT4), seen)


def show_end(report: Report, scene: Scene) -> None:
    report.step("the service is told to end")
    status = scene.service.stop()
    report.claim("it ends with status 0", status == 0, status)
    loud = [line for line in scene.service.journal for secret in scene.server.secrets if secret in line]
    report.claim(f"its journal has {len(scene.service.journal)} lines and no key", loud == [], loud)


def show_engine(report: Report, service: str, shown: Shown) -> None:
    engine = shown.server.engine
    report.step(f"{engine} on a private machine: its own network, processes, files, message bus and polkit")
    with World(service=service) as world:
        furnish(world, shown.server)
        scene = Scene(world, world.start_service(), world.client("alice"), shown, world.server.capture("phys0-peer"))
        fresh = world.state()
        before = show_machine(report, scene)
        show_refusals(report, scene)
        show_connect(report, scene)
        show_tunnel(report, scene)
        show_traffic(report, scene, before)
        show_disconnect(report, scene, fresh)
        show_end(report, scene)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--service", required=True, metavar="PATH", help="the service's executable")
    parser.add_argument("--engine", choices=[*ENGINES, "all"], default="wireguard")
    options = parser.parse_args()
    report = Report()
    for name in ENGINES if options.engine == "all" else [options.engine]:
        try:
            show_engine(report, options.service, ENGINES[name])
        except (AssertionError, BusError, OSError, RuntimeError) as error:
            report.claim(f"the demonstration of {name} reaches its end", False, f"{type(error).__name__}: {error}")
    return report.summary()


if __name__ == "__main__":
    sys.exit(main())
