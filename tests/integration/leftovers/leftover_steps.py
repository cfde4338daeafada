# SPDX-License-Identifier: Apache-2.0
"""One machine with a tunnel and a bystander, and what must be true of it when something has befallen the tunnel."""

import time
from collections import Counter
from dataclasses import dataclass, field, fields, replace

from bystander import Bystander
from engine_steps import PROGRAMS, need
from quorvex_world import (
    AmneziaServer, OpenVpnServer, SingBoxServer, State, TunnelServer, WireGuardServer, XrayServer, diff_states)
from tunnel_steps import BEHIND_GATEWAY, DIRECT4, DIRECT6, FAR4, FAR6, IP, Machine, furnish

KINDS = (WireGuardServer, AmneziaServer, OpenVpnServer, SingBoxServer, XrayServer)
WIREGUARD_KINDS = KINDS[:2]
DAEMONS = ("wireguard-go", "amneziawg-go")
# How soon the stage says that a tunnel is no more.
TOLD_WITHIN = 2.0
ENDED = "The active VPN engine stopped unexpectedly."
TABLE = "table inet quorvexvpn {"
LINK6 = "fe80::99:1"


@dataclass
class Times:
    """Seconds from the event to the stage that tells it, and from the next request to its answer with all clean."""

    told: float | None = None
    cleaned: float | None = None


@dataclass
class Scene(Machine):
    """A machine on which one thing happens to a tunnel. `before` is what it must be again."""

    bystander: Bystander = None
    before: State = None
    kill_switch: bool = False
    times: Times = field(default_factory=Times)

    @property
    def kind(self) -> type[TunnelServer]:
        return type(self.world.tunnel)

    def up(self) -> None:
        self.connect(kill_switch=self.kill_switch)
        assert self.far() == self.through()
        assert self.closed() == self.kill_switch
        self.alice.mark()

    def far(self) -> tuple[str, str]:
        """This machine as web servers of both families see it; empty where there is no answer."""
        return self.http(FAR4), self.http(f"[{FAR6}]")

    def http(self, host: str) -> str:
        reply = self.world.http_get(f"http://{host}/", timeout=5)
        return reply.body if reply.status == 200 else ""

    def through(self) -> tuple[str, str]:
        return self.world.tunnel.seen_as4, self.world.tunnel.seen_as6

    def closed(self) -> bool:
        return TABLE in self.world.state().nftables

    def difference(self) -> str:
        return diff_states(self.before, self.world.state())

    def engine(self) -> dict:
        """The one process that carries the tunnel."""
        (process,) = [one for one in self.world.processes() if is_engine(self.kind, one["argv"])]
        return process

    def engine_is_gone(self) -> bool:
        return not any(is_engine(self.kind, one["argv"]) for one in self.world.processes())

    def signal_engine(self, name: str) -> None:
        self.world.run(["/bin/kill", f"-{name}", str(self.engine()["pid"])])

    def expect_told(self, since: float) -> None:
        """The stage says within its time that the tunnel is no more, and the kill switch stays where there is one."""
        error = self.alice.wait_stage("error", timeout=TOLD_WITHIN + 1)
        self.times.told = error.time - since
        assert self.times.told < TOLD_WITHIN
        assert error.value == {"stage": "error", "activeProfileId": "home",
                               "lastError": f"{self.kind.engine} stopped unexpectedly."}
        self.alice.wait_log(ENDED, level="error")
        assert self.closed() == self.kill_switch
        assert not self.world.path(self.kind.config).exists()

    def end(self, stage: str = "disconnected", sentence: str | None = None) -> None:
        """A disconnect, and its word."""
        self.alice.mark()
        began = time.monotonic()
        self.alice.call("Disconnect")
        self.expect_end(began, stage, sentence)

    def expect_end(self, began: float, stage: str, sentence: str | None) -> None:
        word = self.alice.wait_signal(
            "SnapshotChanged", lambda one: one.value["stage"] in ("disconnected", "error"), 40, "the end")
        self.times.cleaned = word.time - began
        assert word.value == {"stage": stage, **({"lastError": sentence} if sentence else {})}

    def restart(self) -> None:
        """Another run of the service, which owns its name when it has cleared the ground."""
        began = time.monotonic()
        self.service = self.world.start_service()
        self.times.cleaned = time.monotonic() - began
        assert self.snapshot() == {"stage": "disconnected"}

    def expect_as_before(self) -> None:
        """Item by item; the far side is reached without a tunnel; and nobody else has come to harm."""
        assert self.difference() == ""
        assert self.far() == (DIRECT4, DIRECT6)
        self.bystander.check()

    def expect_next_connect(self) -> None:
        self.up()
        self.end()
        assert self.difference() == ""
        self.bystander.check()


@dataclass
class LateScene(Scene):
    """Somebody begins while the tunnel stands: then the machine must be as before, with what that one has brought."""

    def bystander_comes(self) -> None:
        """Once the service knows what the tunnel has brought: what comes before that passes for the engine's own."""
        record = self.world.path("/run/quorvexvpn-ground/record")
        self.world.poll(lambda: "settled" in record.read_text(), what="the tunnel's whole record")
        connected = self.world.state()
        self.bystander = Bystander(self.world, self.kind)
        self.bystander.settle()
        self.before = with_added(self.before, connected, self.world.state())

    def difference(self) -> str:
        return diff_states(arranged(self.before), arranged(self.world.state()))


def sections(state: State) -> dict[str, list[str]]:
    return {part.name: value for part in fields(state) if isinstance(value := getattr(state, part.name), list)}


def with_added(before: State, without: State, with_more: State) -> State:
    """`before`, and each line of `with_more` that `without` has not."""
    more = sections(with_more)
    return replace(before, **{
        name: lines + list((Counter(more[name]) - Counter(sections(without)[name])).elements())
        for name, lines in sections(before).items()})


def arranged(state: State) -> State:
    """Without the order in which things came."""
    return replace(state, **{name: sorted(lines) for name, lines in sections(state).items()})


def is_engine(kind: type[TunnelServer], argv: list[str]) -> bool:
    if kind in WIREGUARD_KINDS:
        return argv[-1:] == [kind.interface] and argv[0].endswith(DAEMONS)
    return argv[:1] == [PROGRAMS[kind.engine]] and kind.config in argv


def scene(world, kind: type[TunnelServer], kill_switch: bool) -> Scene:
    """Not connected yet, beside somebody who was there before."""
    furnish_scene(world, kind)
    bystander = Bystander(world, kind)
    one = Scene(world, world.start_service(), world.client("alice"), kill_switch=kill_switch, bystander=bystander)
    bystander.settle()
    one.before = world.state()
    return one


def late_scene(world, kind: type[TunnelServer], kill_switch: bool) -> LateScene:
    """Not connected yet, and nobody else there.

    wg-quick takes the first rule that is like its own away when it goes down, so its own have to come first: the kernel
    puts them before any other that is there already.
    """
    furnish_scene(world, kind)
    for family in ("-4", "-6"):
        world.run([IP, family, "rule", "add", "pref", "90", "fwmark", "0x9090", "lookup", "300"])
    service = world.start_service()
    return LateScene(world, service, world.client("alice"), kill_switch=kill_switch, before=world.state())


def give_link_addresses(world) -> None:
    """Neighbours ask for each other by them. Of their own accord they would come anew, and later, each time."""
    world.run([IP, "link", "set", "phys0", "addrgenmode", "none"])
    world.run([IP, "address", "add", f"{LINK6}/64", "dev", "phys0", "nodad"])
    world.server.add_address("fe80::99:2/64", device="phys0-peer")


def furnish_scene(world, kind: type[TunnelServer]) -> None:
    need(kind, SingBoxServer)
    several = {"listen": (BEHIND_GATEWAY, "fd99::2")} if kind is SingBoxServer else {}
    furnish(world, kind, endpoint=BEHIND_GATEWAY, **several)
    give_link_addresses(world)
    # As systemd makes it when it starts the service.
    world.path("/run/quorvexvpn").mkdir(mode=0o700)
